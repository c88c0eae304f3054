// Completes an AVI that AviWriter wrote.
#include "recordings/avi/avi_finish.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "front/unique_fd.h"
#include "recordings/avi/avi_format.h"
#include "recordings/avi/chunk_reader.h"
#include "recordings/avi/write_at.h"

namespace oculora {
namespace {

constexpr std::uint32_t kCanBeShownAlone = 0x10;
constexpr std::size_t kIndexPiece = 65536;

// The pictures follow each other without gaps, so that their lengths tell where they are.
using Sizes = std::vector<std::uint32_t>;

// Whether the header, which is written last of all, tells that everything else had been written; and whether the end of
// the index agrees, in case this is a copy that was cut short.
bool IsFinished(const AviHeader& header, ChunkReader& reader) {
  if (!header.finished || header.frames == 0) return false;
  if (static_cast<std::uint64_t>(header.FileBytes()) != reader.FileBytes()) return false;
  AviChunk index;
  if (!reader.ReadHead(static_cast<std::uint64_t>(header.moviEnd), index)) return false;
  if (index.id != AviId("idx1") || AviIndexBytes(header.frames) != AviChunkBytes(index.size)) return false;
  std::uint8_t last[kAviIndexEntry];
  return reader.Read(reader.FileBytes() - sizeof(last), last, sizeof(last)) && GetAvi32(last) == AviId("00dc") &&
         kAviMoviType + GetAvi32(last + 8) + AviChunkBytes(GetAvi32(last + 12)) == header.moviEnd;
}

// The chunks of pictures that lie in the file with all their bytes. The last one's padding may be missing.
Sizes FindPictures(ChunkReader& reader) {
  Sizes sizes;
  std::uint64_t at = kAviHeaderBytes;
  AviChunk chunk;
  while (reader.ReadHead(at, chunk) && chunk.id == AviId("00dc") && chunk.size > 0) {
    if (at + kAviChunkHead + chunk.size > reader.FileBytes()) break;
    at += static_cast<std::uint64_t>(AviChunkBytes(chunk.size));
    sizes.push_back(chunk.size);
  }
  return sizes;
}

// A power cut can leave a length without the bytes: the end of the file is where this happens.
bool IsJpeg(ChunkReader& reader, std::uint64_t offset, std::uint32_t size) {
  std::uint8_t begin[2], end[2];
  return size >= 4 && reader.Read(offset, begin, 2) && reader.Read(offset + size - 2, end, 2) && begin[0] == 0xff &&
         begin[1] == 0xd8 && end[0] == 0xff && end[1] == 0xd9;
}

void CountPictures(ChunkReader& reader, Sizes& sizes, AviHeader& header) {
  header.moviEnd = kAviHeaderBytes;
  for (const std::uint32_t size : sizes) header.moviEnd += AviChunkBytes(size);
  while (!sizes.empty()) {
    const std::int64_t begin = header.moviEnd - AviChunkBytes(sizes.back());
    if (IsJpeg(reader, static_cast<std::uint64_t>(begin) + kAviChunkHead, sizes.back())) break;
    sizes.pop_back();
    header.moviEnd = begin;
  }
  header.frames = static_cast<std::uint32_t>(sizes.size());
  header.largest = sizes.empty() ? 0 : *std::max_element(sizes.begin(), sizes.end());
}

bool WriteIndex(int fd, const Sizes& sizes, std::int64_t offset) {
  std::vector<std::uint8_t> piece;
  piece.reserve(kIndexPiece + kAviIndexEntry);
  const auto put = [&piece](std::uint64_t value) {
    piece.resize(piece.size() + 4);
    PutAvi32(piece.data() + piece.size() - 4, static_cast<std::uint32_t>(value));
  };
  put(AviId("idx1"));
  put(kAviIndexEntry * sizes.size());
  std::int64_t chunk = kAviHeaderBytes - kAviMoviType;
  for (const std::uint32_t size : sizes) {
    put(AviId("00dc"));
    put(kCanBeShownAlone);
    put(static_cast<std::uint64_t>(chunk));
    put(size);
    chunk += AviChunkBytes(size);
    if (piece.size() < kIndexPiece) continue;
    if (!WriteAt(fd, piece.data(), piece.size(), offset)) return false;
    offset += static_cast<std::int64_t>(piece.size());
    piece.clear();
  }
  return WriteAt(fd, piece.data(), piece.size(), offset);
}

// The cut, which may add the last padding; the index; and the header after both: stopped anywhere, the header does not
// call the file finished.
bool Complete(int fd, const Sizes& sizes, AviHeader& header) {
  if (ftruncate(fd, static_cast<off_t>(header.moviEnd)) != 0) return false;
  if (!WriteIndex(fd, sizes, header.moviEnd)) {
    // A full disk needs the room, and without a part of an index the file is as good as before.
    const int code = errno;
    if (ftruncate(fd, static_cast<off_t>(header.moviEnd)) != 0) return false;
    errno = code;
    return false;
  }
  if (fsync(fd) != 0) return false;
  header.finished = true;
  const AviHeaderBytes bytes = MakeAviHeader(header);
  return WriteAt(fd, bytes.data(), bytes.size(), 0) && fsync(fd) == 0;
}

void Describe(const AviHeader& header, RecordingFacts& facts) {
  facts.bytes = header.FileBytes();
  facts.frames = static_cast<std::int32_t>(header.frames);
  facts.lengthUs = header.rate == 0 ? 0 : std::int64_t{header.frames} * 1'000'000'000'000 / header.rate;
}

bool Fail(std::string& reason, const std::string& path, const std::string& what) {
  reason = path + " " + what;
  return false;
}

bool FailWithCode(std::string& reason, const std::string& path) {
  return Fail(reason, path, std::string("cannot be finished: ") + std::strerror(errno));
}

bool HasNoHeader(const AviHeaderBytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace

bool FinishAvi(const std::string& path, RecordingFacts& facts, std::string& reason) {
  facts = {};
  const UniqueFd fd(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!fd.IsValid() || fstat(fd.Get(), &status) != 0) return FailWithCode(reason, path);
  if (!S_ISREG(status.st_mode)) return Fail(reason, path, "is no regular file");
  if (status.st_size > kAviMaxBytes) return Fail(reason, path, "is larger than any recording made here");

  ChunkReader reader(fd.Get(), static_cast<std::uint64_t>(status.st_size));
  AviHeaderBytes bytes{};
  const bool hasHeader = reader.Read(0, bytes.data(), bytes.size());
  if (reader.HasFailed()) return FailWithCode(reason, path);
  if (!hasHeader || HasNoHeader(bytes)) {
    facts.worthless = true;
    return Fail(reason, path, "ends before its first picture");
  }
  AviHeader header;
  if (!ReadAviHeader(bytes, header)) return Fail(reason, path, "is not an AVI that was recorded here");
  if (IsFinished(header, reader)) {
    // Whoever finished it may have been killed before its last flush.
    if (fsync(fd.Get()) != 0) return FailWithCode(reason, path);
    Describe(header, facts);
    return true;
  }

  header.finished = false;
  Sizes sizes = FindPictures(reader);
  CountPictures(reader, sizes, header);
  if (reader.HasFailed()) return FailWithCode(reason, path);
  if (sizes.empty()) {
    facts.worthless = true;
    return Fail(reason, path, "holds no whole picture");
  }
  if (!Complete(fd.Get(), sizes, header)) return FailWithCode(reason, path);
  Describe(header, facts);
  return true;
}

}  // namespace oculora
