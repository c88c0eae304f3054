// The block that carries sound behind an MxPEG picture.
#include "recorder/mxpeg/mxpeg_sound.h"

#include "recorder/mxpeg/alaw.h"
#include "recorder/mxpeg/bytes.h"

namespace oculora {

bool AppendMxpegSound(std::span<const std::uint8_t> alaw, std::int64_t timestampUs, std::vector<std::uint8_t>& out) {
  if (alaw.empty() || alaw.size() > kMaxMxpegSound) return false;
  const std::size_t at = out.size();
  out.resize(at + kMxpegSoundHeader);
  std::uint8_t* header = out.data() + at;
  header[0] = 0xFF;
  header[1] = 0xED;
  PutBigEndian16(header + 2, kMxpegSoundHeader - 2 + alaw.size());
  PutLittleEndian(header + 4, std::uint64_t{alaw.size()} * 1000000 / kAlawRate, 4);
  PutLittleEndian(header + 8, static_cast<std::uint64_t>(timestampUs), 8);
  out.insert(out.end(), alaw.begin(), alaw.end());
  return true;
}

}  // namespace oculora
