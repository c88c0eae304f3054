// The boxes of an MP4 file: finding them, and their big-endian numbers.
#include "recordings/mp4/mp4_boxes.h"

#include <algorithm>

namespace oculora {

std::optional<Mp4Box> ReadBox(BoxBytes head, std::uint64_t offset, std::uint64_t limit) {
  BoxReader reader(head);
  Mp4Box box{.type = 0, .offset = offset, .header = 8, .size = reader.U32()};
  box.type = reader.U32();
  if (box.size == 1) {
    box.header = 16;
    box.size = reader.U64();
  }
  if (reader.Failed() || offset > limit || box.size < box.header || box.size > limit - offset) return std::nullopt;
  return box;
}

void BoxReader::Skip(std::size_t bytes) {
  m_Failed = m_Failed || bytes > m_Bytes.size();
  m_Bytes = m_Failed ? BoxBytes() : m_Bytes.subspan(bytes);
}

std::uint64_t BoxReader::Number(std::size_t bytes) {
  std::uint64_t value = 0;
  if (bytes <= m_Bytes.size()) {
    for (const std::uint8_t byte : m_Bytes.first(bytes)) value = value << 8 | byte;
  }
  Skip(bytes);
  return value;
}

void PutNumber(std::uint8_t* target, std::uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i, value >>= 8) target[i] = static_cast<std::uint8_t>(value);
}

void AppendNumber(std::vector<std::uint8_t>& target, std::uint64_t value, int bytes) {
  target.resize(target.size() + static_cast<std::size_t>(bytes));
  PutNumber(&*(target.end() - bytes), value, bytes);
}

bool BoxWalker::Next(Mp4Box& box) {
  const BoxBytes rest = m_Bytes.subspan(static_cast<std::size_t>(m_At));
  const auto found = ReadBox(rest.first(std::min(rest.size(), kLongestBoxHeader)), m_At, m_Bytes.size());
  if (!found) return false;
  box = *found;
  m_At = box.End();
  return true;
}

std::optional<Mp4Box> BoxWalker::Find(std::uint32_t type) {
  for (Mp4Box box; Next(box);) {
    if (box.type == type) return box;
  }
  return std::nullopt;
}

BoxBytes BoxWalker::BodyOf(const Mp4Box& box) const {
  return m_Bytes.subspan(static_cast<std::size_t>(box.Body()), static_cast<std::size_t>(box.size - box.header));
}

}  // namespace oculora
