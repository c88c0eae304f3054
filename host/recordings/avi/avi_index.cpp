// Where the pictures of an AVI file are.
#include "recordings/avi/avi_index.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "recordings/avi/avi_format.h"
#include "recordings/avi/avi_streams.h"
#include "recordings/avi/avi_walk.h"

namespace oculora {
namespace {

constexpr std::size_t kMaxFrames = 4'000'000;
constexpr std::size_t kChecked = 4;  // entries of idx1, at each end

struct AviPictures {
  std::vector<AviFrame> frames;
  std::uint64_t repeats = 0;  // empty chunks: the picture before stays for one more interval
};

// idx1 of a file of one part that is as long as its lists say. Most files are; others are walked through.
class IndexReader {
 public:
  IndexReader(ChunkReader& reader, const AviStreams& streams) : m_Reader(reader), m_Streams(streams) {}

  // False, and nothing in `pictures` of use, when there is no index or it does not fit the file.
  bool Read(AviPictures& pictures) {
    if (!Find() || HasMoreParts()) return false;
    if (!FindBase() || !Collect(pictures)) return false;
    std::vector<AviFrame>& frames = pictures.frames;
    return std::all_of(frames.begin(), frames.begin() + Few(frames), [&](auto& frame) { return IsThere(frame); }) &&
           std::all_of(frames.end() - Few(frames), frames.end(), [&](auto& frame) { return IsThere(frame); });
  }

 private:
  struct Entry {
    std::uint32_t id, offset, size;
  };

  bool Find() {
    AviWalk walk(m_Reader, BehindAviChunk(m_Streams.movi, m_Streams.moviSize));
    while (walk.Next() && walk.Id() == AviId("JUNK")) continue;
    m_Begin = walk.Data();
    m_Size = walk.Size();
    m_Count = static_cast<std::uint32_t>(m_Size / kAviIndexEntry);
    return walk.Id() == AviId("idx1") && walk.IsWhole();
  }
  // Behind the first gibibyte of an OpenDML file there are pictures that idx1 does not know.
  bool HasMoreParts() {
    AviWalk walk(m_Reader, BehindAviChunk(m_Begin - kAviChunkHead, m_Size));
    while (walk.Next()) {
      if (walk.Id() == AviId("RIFF")) return true;
    }
    return false;
  }
  bool ReadEntry(std::uint32_t number, Entry& entry) {
    std::uint8_t bytes[kAviIndexEntry];
    if (!m_Reader.Read(m_Begin + std::uint64_t{number} * kAviIndexEntry, bytes, sizeof(bytes))) return false;
    entry = {GetAvi32(bytes), GetAvi32(bytes + 8), GetAvi32(bytes + 12)};
    return entry.id != 0;  // zeros are what a power cut leaves of an index
  }
  bool IsOfStream(const Entry& entry) const { return IsPictureOf(m_Streams.stream, entry.id); }

  // Positions count from the type of movi or, with some writers, from the begin of the file.
  bool FindBase() {
    Entry entry;
    for (std::uint32_t number = 0; number < m_Count && ReadEntry(number, entry); ++number) {
      if (entry.size == 0 || !IsOfStream(entry)) continue;
      for (const std::uint64_t base : {m_Streams.movi + kAviChunkHead, std::uint64_t{0}}) {
        m_Base = base;
        if (IsThere({base + entry.offset + kAviChunkHead, entry.size})) return true;
      }
      return false;
    }
    return false;
  }
  bool Collect(AviPictures& pictures) {
    std::vector<AviFrame>& frames = pictures.frames;
    frames.reserve(std::min<std::size_t>(m_Count, kMaxFrames));
    Entry entry;
    for (std::uint32_t number = 0; number < m_Count; ++number) {
      if (!ReadEntry(number, entry)) return false;
      if (!IsOfStream(entry)) continue;
      if (entry.size == 0) {
        ++pictures.repeats;
        continue;
      }
      const std::uint64_t offset = m_Base + entry.offset + kAviChunkHead;
      if (offset + entry.size > m_Reader.FileBytes() || frames.size() > kMaxFrames) return false;
      frames.push_back({offset, entry.size});
    }
    return true;
  }
  static std::ptrdiff_t Few(const std::vector<AviFrame>& frames) {
    return static_cast<std::ptrdiff_t>(std::min(frames.size(), kChecked));
  }
  bool IsThere(const AviFrame& frame) {
    AviChunk chunk;
    return m_Reader.ReadHead(frame.offset - kAviChunkHead, chunk) && IsPictureOf(m_Streams.stream, chunk.id) &&
           chunk.size == frame.size && frame.offset + frame.size <= m_Reader.FileBytes();
  }

  ChunkReader& m_Reader;
  const AviStreams& m_Streams;
  std::uint64_t m_Begin = 0;  // of the first entry
  std::uint32_t m_Size = 0;
  std::uint32_t m_Count = 0;  // of entries
  std::uint64_t m_Base = 0;
};

// False when there are too many to go on.
bool WalkPictures(ChunkReader& reader, const AviStreams& streams, AviPictures& pictures) {
  AviWalk walk(reader, streams.movi);
  while (pictures.frames.size() <= kMaxFrames && walk.Next()) {
    if (!IsPictureOf(streams.stream, walk.Id())) continue;
    if (walk.Size() == 0) {
      ++pictures.repeats;
    } else if (walk.IsWhole()) {
      pictures.frames.push_back({walk.Data(), walk.Size()});
    }
  }
  return pictures.frames.size() <= kMaxFrames && !walk.IsExhausted();
}

// Finds the pictures, and how often they come when those that stay longer are spread over all of them.
bool FindPictures(ChunkReader& reader, const AviStreams& streams, AviIndex& index) {
  AviPictures pictures;
  bool found = IndexReader(reader, streams).Read(pictures);
  if (!found) {
    pictures = {};
    found = WalkPictures(reader, streams, pictures);
  }
  const auto shown = static_cast<double>(pictures.frames.size());
  if (shown > 0) index.rate *= shown / (shown + static_cast<double>(pictures.repeats));
  index.frames = std::move(pictures.frames);
  return found;
}

// What is wrong with the file, or an empty text.
std::string ReadPictures(ChunkReader& reader, AviIndex& index) {
  std::uint8_t head[12];
  if (!reader.Read(0, head, sizeof(head)) || GetAvi32(head) != AviId("RIFF") || GetAvi32(head + 8) != AviId("AVI ")) {
    return "is no AVI";
  }
  AviStreams streams;
  if (!ReadAviStreams(reader, streams)) return "has a damaged header, or ends before its first picture";
  if (streams.stream < 0) return "holds no stream of JPEG pictures";
  index.rate = streams.rate;
  index.width = streams.width;
  index.height = streams.height;
  return FindPictures(reader, streams, index) ? std::string() : "holds too many pictures";
}

}  // namespace

bool ReadAviIndex(int fd, AviIndex& index, std::string& reason) {
  index = {};
  struct stat status {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    reason = "the recording is no regular file";
    return false;
  }
  ChunkReader reader(fd, static_cast<std::uint64_t>(status.st_size));
  const std::string fault = ReadPictures(reader, index);
  if (reader.HasFailed()) {
    reason = std::string("the recording cannot be read: ") + std::strerror(errno);
  } else if (!fault.empty()) {
    reason = "the recording " + fault;
  } else {
    return true;
  }
  index.frames.clear();
  return false;
}

}  // namespace oculora
