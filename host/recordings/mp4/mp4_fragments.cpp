// What lies where in a recorded MP4 file: header, the place of its index, fragments.
#include "recordings/mp4/mp4_fragments.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

namespace oculora {
namespace {

// Far above what a recording has: ten seconds at most in a moof, a second at least in a fragment.
constexpr std::uint64_t kMostHeaderBytes = 1 << 20;
constexpr std::size_t kMostFragments = 1 << 17;
constexpr std::uint32_t kMostFrames = 1 << 16;          // of a fragment
constexpr std::uint64_t kLastTime = 1ULL << 52;         // leaves room for sums
constexpr std::uint64_t kMostDuration = 0xffffffff;     // of a fragment: what an index can say
constexpr std::uint64_t kMostFragmentBytes = 1U << 30;  // likewise

// A file as boxes. After a failed read every further one finds nothing.
class BoxFile {
 public:
  BoxFile(int fd, std::uint64_t size) : m_Fd(fd), m_Size(size) {}

  std::optional<Mp4Box> At(std::uint64_t offset) {
    std::array<std::uint8_t, kLongestBoxHeader> head{};
    const std::size_t size = Read(offset, head);
    return ReadBox(BoxBytes(head).first(size), offset, m_Size);
  }
  // The whole box in memory, valid until the next call; none when it is larger than any header.
  std::optional<BoxBytes> Load(const Mp4Box& box) {
    if (box.size > kMostHeaderBytes) return std::nullopt;
    m_Loaded.resize(static_cast<std::size_t>(box.size));
    if (Read(box.offset, m_Loaded) < m_Loaded.size()) return std::nullopt;
    return BoxBytes(m_Loaded).subspan(static_cast<std::size_t>(box.header));
  }
  // What to say when there is no whole box at `offset`, where one of `type` was to begin.
  Mp4Reading WhyNone(std::uint64_t offset, std::uint32_t type) {
    std::array<std::uint8_t, kEmptyBoxBytes> head{};
    if (Read(offset, head) < head.size()) return Mp4Reading::kTorn;
    BoxReader reader(head);
    const bool cut = reader.U32() > head.size() && reader.U32() == type;
    return cut ? Mp4Reading::kTorn : Mp4Reading::kForeign;
  }
  int Error() const { return m_Error; }

 private:
  std::size_t Read(std::uint64_t offset, std::span<std::uint8_t> space) {
    std::size_t done = 0;
    while (done < space.size() && m_Error == 0) {
      const ssize_t count = pread(m_Fd, space.data() + done, space.size() - done, static_cast<off_t>(offset + done));
      if (count == 0) break;
      if (count > 0) done += static_cast<std::size_t>(count);
      if (count < 0 && errno != EINTR) m_Error = errno;
    }
    return m_Error == 0 ? done : 0;
  }

  int m_Fd;
  std::uint64_t m_Size;
  int m_Error = 0;
  std::vector<std::uint8_t> m_Loaded;
};

enum FragmentFlag : std::uint32_t {
  kBaseOffset = 0x1,
  kDescription = 0x2,
  kDefaultDuration = 0x8,
  kDefaultSize = 0x10,
  kDefaultFlags = 0x20,
  kBaseIsMoof = 0x20000,
  kDataOffset = 0x1,
  kFirstFlags = 0x4,
  kDurations = 0x100,
  kSizes = 0x200,
  kFlags = 0x400,
  kCompositions = 0x800,
  kNotSync = 0x10000,  // of a sample
};

struct SampleDefaults {
  std::uint32_t duration = 0, size = 0, flags = 0;
};

bool ReadDefaults(BoxBytes tfhd, std::uint32_t trackId, SampleDefaults& defaults) {
  BoxReader reader(tfhd);
  const std::uint32_t present = reader.U32() & 0xffffff;
  if (reader.U32() != trackId || (present & kBaseOffset) != 0 || (present & kBaseIsMoof) == 0) return false;
  if ((present & kDescription) != 0) reader.Skip(4);
  if ((present & kDefaultDuration) != 0) defaults.duration = reader.U32();
  if ((present & kDefaultSize) != 0) defaults.size = reader.U32();
  if ((present & kDefaultFlags) != 0) defaults.flags = reader.U32();
  return !reader.Failed();
}

// Sums up a trun. `dataBytes` becomes the bytes of its frames, which begin `dataOffset` behind the moof's beginning.
bool ReadRun(BoxBytes trun, const SampleDefaults& defaults, Mp4Fragment& fragment, std::uint64_t& dataOffset,
             std::uint64_t& dataBytes) {
  BoxReader reader(trun);
  const std::uint32_t present = reader.U32() & 0xffffff;
  const std::uint32_t count = reader.U32();
  if (count == 0 || count > kMostFrames || (present & kDataOffset) == 0) return false;
  dataOffset = reader.U32();
  std::uint32_t firstFlags = (present & kFirstFlags) != 0 ? reader.U32() : defaults.flags;
  std::uint64_t duration = 0;
  for (std::uint32_t i = 0; i < count && !reader.Failed(); ++i) {
    duration += (present & kDurations) != 0 ? reader.U32() : defaults.duration;
    dataBytes += (present & kSizes) != 0 ? reader.U32() : defaults.size;
    const std::uint32_t flags = (present & kFlags) != 0 ? reader.U32() : firstFlags;
    if (i == 0) firstFlags = flags;
    if ((present & kCompositions) != 0) reader.Skip(4);
  }
  fragment.frames = static_cast<std::int32_t>(count);
  fragment.duration = static_cast<std::int64_t>(duration);
  fragment.startsWithKey = (firstFlags & kNotSync) == 0;
  return !reader.Failed() && duration <= kMostDuration;
}

bool ReadTime(BoxBytes tfdt, Mp4Fragment& fragment) {
  BoxReader reader(tfdt);
  const bool wide = reader.U8() == 1;
  reader.Skip(3);
  const std::uint64_t time = wide ? reader.U64() : reader.U32();
  fragment.time = static_cast<std::int64_t>(time);
  return !reader.Failed() && time < kLastTime;
}

// Whether `moof` (its body) tells of one run of frames of that track, and these fill `mdat`, which follows.
bool ReadFragment(BoxBytes moof, const Mp4Box& moofBox, const Mp4Box& mdat, std::uint32_t trackId,
                  Mp4Fragment& fragment) {
  BoxWalker parts(moof);
  const auto traf = parts.Find(BoxType("traf"));
  if (!traf || parts.Find(BoxType("traf"))) return false;
  const BoxBytes inside = parts.BodyOf(*traf);
  BoxWalker tfhd(inside), tfdt(inside), trun(inside);
  const auto head = tfhd.Find(BoxType("tfhd"));
  const auto time = tfdt.Find(BoxType("tfdt"));
  const auto run = trun.Find(BoxType("trun"));
  if (!head || !time || !run || trun.Find(BoxType("trun"))) return false;

  SampleDefaults defaults;
  std::uint64_t dataOffset = 0, dataBytes = 0;
  fragment.offset = moofBox.offset;
  fragment.bytes = moofBox.size + mdat.size;
  return ReadDefaults(tfhd.BodyOf(*head), trackId, defaults) && ReadTime(tfdt.BodyOf(*time), fragment) &&
         ReadRun(trun.BodyOf(*run), defaults, fragment, dataOffset, dataBytes) &&
         moofBox.offset + dataOffset == mdat.Body() && dataBytes == mdat.size - mdat.header &&
         fragment.bytes <= kMostFragmentBytes;
}

bool ReadNextFragment(BoxFile& file, Mp4Layout& layout) {
  const auto moof = file.At(layout.end);
  if (!moof || moof->type != BoxType("moof")) return false;
  const auto mdat = file.At(moof->End());
  if (!mdat || mdat->type != BoxType("mdat")) return false;
  const auto body = file.Load(*moof);
  Mp4Fragment fragment;
  if (!body || !ReadFragment(*body, *moof, *mdat, layout.track.id, fragment)) return false;
  if (!layout.fragments.empty() && fragment.time <= layout.fragments.back().time) return false;
  if (layout.fragments.size() == kMostFragments) return false;
  layout.fragments.push_back(fragment);
  layout.end = mdat->End();
  return true;
}

Mp4Reading ReadIndexPlace(BoxFile& file, std::uint64_t offset, Mp4Layout& layout) {
  const auto empty = file.At(offset);
  if (!empty) return file.WhyNone(offset, BoxType("free"));
  const auto index = file.At(empty->End());
  layout.hasIndex = index && index->type == BoxType("sidx");
  layout.end = layout.hasIndex ? index->End() : empty->End();
  layout.indexOffset = offset;
  layout.indexBytes = layout.end - offset;
  if (empty->type != BoxType("free") || offset % 8 != 0 || layout.indexBytes > kMostHeaderBytes) {
    return Mp4Reading::kForeign;
  }
  return layout.indexBytes >= kLeastIndexPlace ? Mp4Reading::kRead : file.WhyNone(layout.end, BoxType("sidx"));
}

Mp4Reading ReadHeader(BoxFile& file, Mp4Layout& layout) {
  const auto ftyp = file.At(0);
  if (!ftyp) return file.WhyNone(0, BoxType("ftyp"));
  const auto moov = file.At(ftyp->End());
  if (!moov) return file.WhyNone(ftyp->End(), BoxType("moov"));
  if (ftyp->type != BoxType("ftyp") || moov->type != BoxType("moov")) return Mp4Reading::kForeign;
  const auto body = file.Load(*moov);
  if (!body || !ReadMp4Track(*body, moov->Body(), layout.track)) return Mp4Reading::kForeign;
  return ReadIndexPlace(file, moov->End(), layout);
}

}  // namespace

std::int64_t Mp4Layout::Duration() const {
  return fragments.empty() ? 0 : fragments.back().time + fragments.back().duration - fragments.front().time;
}

std::int64_t Mp4Layout::Frames() const {
  std::int64_t frames = 0;
  for (const Mp4Fragment& fragment : fragments) frames += fragment.frames;
  return frames;
}

Mp4Reading ReadMp4Layout(int fd, Mp4Layout& layout, std::string& reason) {
  layout = {};
  struct stat status {};
  const int rc = fstat(fd, &status);
  if (rc == 0 && !S_ISREG(status.st_mode)) {
    reason = "This is no file";
    return Mp4Reading::kForeign;
  }
  layout.fileBytes = static_cast<std::uint64_t>(status.st_size);
  BoxFile file(fd, layout.fileBytes);
  Mp4Reading result = ReadHeader(file, layout);
  while (result == Mp4Reading::kRead && ReadNextFragment(file, layout)) {
  }
  const int code = rc == 0 ? file.Error() : errno;
  if (code != 0) result = Mp4Reading::kFailed;
  if (result == Mp4Reading::kFailed) reason = std::string("The file cannot be read: ") + std::strerror(code);
  if (result == Mp4Reading::kTorn) reason = "The file ends within its header";
  if (result == Mp4Reading::kForeign) reason = "The file is no MP4 recording of a camera";
  return result;
}

}  // namespace oculora
