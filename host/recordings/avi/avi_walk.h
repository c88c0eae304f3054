// Goes through an AVI file from chunk to chunk.
#pragma once

#include <cstddef>
#include <cstdint>

#include "recordings/avi/avi_format.h"
#include "recordings/avi/chunk_reader.h"

namespace oculora {

// Goes into the lists that hold headers and pictures, over all others. How long a list says it is does not matter: in a
// file that is still being written, or was cut, it says something else than what is there. Always goes forward, and
// ends after 32 million chunks.
class AviWalk {
 public:
  // `reader` must outlive it.
  AviWalk(ChunkReader& reader, std::uint64_t at) : m_Reader(reader), m_Next(at) {}

  // On to the next chunk. False at the end of the file and where no chunk begins.
  bool Next();

  std::uint32_t Id() const { return m_Chunk.id; }
  std::uint32_t Type() const { return m_Type; }  // of a list, else 0
  std::uint32_t Size() const { return m_Chunk.size; }
  std::uint64_t Data() const { return m_At + kAviChunkHead; }  // where its bytes begin
  bool IsWhole() const { return Data() + Size() <= m_Reader.FileBytes(); }
  // Copies its first bytes; false when it has fewer.
  bool Read(void* to, std::size_t size) { return Size() >= size && m_Reader.Read(Data(), to, size); }
  // Whether there were too many chunks to go on.
  bool IsExhausted() const { return m_Count >= kMaxChunks; }

 private:
  static constexpr std::uint32_t kMaxChunks = 32'000'000;

  ChunkReader& m_Reader;
  std::uint64_t m_Next;
  std::uint64_t m_At = 0;
  AviChunk m_Chunk = {};
  std::uint32_t m_Type = 0;
  std::uint32_t m_Count = 0;
};

// Where the chunk behind one at `at` begins.
inline std::uint64_t BehindAviChunk(std::uint64_t at, std::uint32_t size) {
  return at + static_cast<std::uint64_t>(AviChunkBytes(size));
}

}  // namespace oculora
