// The boxes of an MP4 file: finding them, and their big-endian numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace oculora {

using BoxBytes = std::span<const std::uint8_t>;

// Four letters as the number a file holds.
constexpr std::uint32_t BoxType(const char (&letters)[5]) {
  std::uint32_t type = 0;
  for (int i = 0; i < 4; ++i) type = type << 8 | static_cast<std::uint8_t>(letters[i]);
  return type;
}

struct Mp4Box {
  std::uint32_t type = 0;
  std::uint64_t offset = 0;  // of its header, from where the surroundings begin
  std::uint64_t header = 0;  // bytes of its header: 8 or 16
  std::uint64_t size = 0;    // with its header; never less than that
  std::uint64_t Body() const { return offset + header; }
  std::uint64_t End() const { return offset + size; }
};

constexpr std::size_t kLongestBoxHeader = 16;

// The box whose first bytes are `head` (up to kLongestBoxHeader of them) at `offset`, when it ends at or before
// `limit`. A box that goes "to the end of the file" is none.
std::optional<Mp4Box> ReadBox(BoxBytes head, std::uint64_t offset, std::uint64_t limit);

// Reads numbers off a box. Past the end they are 0, and Failed() tells.
class BoxReader {
 public:
  explicit BoxReader(BoxBytes bytes) : m_Bytes(bytes) {}

  std::uint32_t U8() { return static_cast<std::uint32_t>(Number(1)); }
  std::uint32_t U16() { return static_cast<std::uint32_t>(Number(2)); }
  std::uint32_t U32() { return static_cast<std::uint32_t>(Number(4)); }
  std::uint64_t U64() { return Number(8); }
  void Skip(std::size_t bytes);
  bool Failed() const { return m_Failed; }

 private:
  std::uint64_t Number(std::size_t bytes);

  BoxBytes m_Bytes;
  bool m_Failed = false;
};

// Puts `value` at `target` in `bytes` (1 to 8) bytes.
void PutNumber(std::uint8_t* target, std::uint64_t value, int bytes);
void AppendNumber(std::vector<std::uint8_t>& target, std::uint64_t value, int bytes);

// Walks the boxes that lie side by side in `bytes`; ends with them, or where there is none.
class BoxWalker {
 public:
  explicit BoxWalker(BoxBytes bytes) : m_Bytes(bytes) {}
  bool Next(Mp4Box& box);
  // The next box of that type.
  std::optional<Mp4Box> Find(std::uint32_t type);
  BoxBytes BodyOf(const Mp4Box& box) const;

 private:
  BoxBytes m_Bytes;
  std::uint64_t m_At = 0;
};

}  // namespace oculora
