// The block that carries sound behind an MxPEG picture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace oculora {

constexpr std::size_t kMxpegSoundHeader = 16;
constexpr std::size_t kMaxMxpegSound = 65521;  // the block's length field has 16 bits

// Appends one block with `alaw` (8000 samples a second) to `out`; `timestampUs` is the time of its first sample.
// False, and nothing appended, when there is no sound or more than kMaxMxpegSound.
bool AppendMxpegSound(std::span<const std::uint8_t> alaw, std::int64_t timestampUs, std::vector<std::uint8_t>& out);

}  // namespace oculora
