// Goes through the chunks of a RIFF file with few reads.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace oculora {

struct AviChunk {
  std::uint32_t id;
  std::uint32_t size;  // of what follows the head
};

// Reads small pieces of a file through a window of a page. The descriptor stays the caller's.
class ChunkReader {
 public:
  // `fileBytes`: where the file ends; what is behind does not exist.
  ChunkReader(int fd, std::uint64_t fileBytes) : m_Fd(fd), m_FileBytes(fileBytes) {}

  std::uint64_t FileBytes() const { return m_FileBytes; }

  // False when not all of it lies inside the file, or it cannot be read: HasFailed then, with errno.
  bool Read(std::uint64_t offset, void* to, std::size_t size);
  // The head of the chunk at `offset`; the chunk itself may reach behind the end of the file.
  bool ReadHead(std::uint64_t offset, AviChunk& chunk);

  // Whether a read went wrong, as it does on a bad disk. It is not the end of the file.
  bool HasFailed() const { return m_HasFailed; }

 private:
  static constexpr std::size_t kWindow = 4096;

  bool Fill(std::uint64_t offset);

  int m_Fd;
  std::uint64_t m_FileBytes;
  std::uint64_t m_Begin = 0;
  std::size_t m_Count = 0;
  bool m_HasFailed = false;
  std::array<std::uint8_t, kWindow> m_Window;
};

}  // namespace oculora
