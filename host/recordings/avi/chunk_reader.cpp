// Goes through the chunks of a RIFF file with few reads.
#include "recordings/avi/chunk_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "recordings/avi/avi_format.h"

namespace oculora {

// Windows begin at whole pages, so that one read takes one page from the system's cache.
bool ChunkReader::Fill(std::uint64_t offset) {
  m_Begin = offset - offset % kWindow;
  m_Count = 0;
  ssize_t count;
  do {
    count = pread(m_Fd, m_Window.data(), m_Window.size(), static_cast<off_t>(m_Begin));
  } while (count < 0 && errno == EINTR);
  if (count < 0) m_HasFailed = true;
  m_Count = count < 0 ? 0 : static_cast<std::size_t>(count);
  return offset < m_Begin + m_Count;
}

bool ChunkReader::Read(std::uint64_t offset, void* to, std::size_t size) {
  if (offset > m_FileBytes || size > m_FileBytes - offset) return false;
  auto* out = static_cast<std::uint8_t*>(to);
  while (size > 0) {
    const bool inWindow = offset >= m_Begin && offset < m_Begin + m_Count;
    if (!inWindow && !Fill(offset)) return false;
    const auto at = static_cast<std::size_t>(offset - m_Begin);
    const std::size_t count = std::min(size, m_Count - at);
    std::memcpy(out, m_Window.data() + at, count);
    out += count;
    offset += count;
    size -= count;
  }
  return true;
}

bool ChunkReader::ReadHead(std::uint64_t offset, AviChunk& chunk) {
  std::uint8_t head[kAviChunkHead];
  if (!Read(offset, head, sizeof(head))) return false;
  chunk = {GetAvi32(head), GetAvi32(head + 4)};
  return true;
}

}  // namespace oculora
