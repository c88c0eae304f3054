// Numbers in the byte orders of JPEG segments (high byte first) and of what MxPEG puts into them (low byte first).
#pragma once

#include <cstddef>
#include <cstdint>

namespace oculora {

inline void PutBigEndian16(std::uint8_t* at, std::size_t value) {
  at[0] = static_cast<std::uint8_t>(value >> 8);
  at[1] = static_cast<std::uint8_t>(value);
}

inline void PutLittleEndian(std::uint8_t* at, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) at[i] = static_cast<std::uint8_t>(value >> 8 * i);
}

}  // namespace oculora
