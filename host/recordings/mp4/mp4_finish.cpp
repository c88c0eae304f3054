// Completes a recorded MP4 file: its index and its length.
#include "recordings/mp4/mp4_finish.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <vector>

#include "front/unique_fd.h"
#include "recordings/mp4/mp4_boxes.h"
#include "recordings/mp4/mp4_fragments.h"

namespace oculora {
namespace {

using Content = std::vector<std::uint8_t>;

constexpr std::uint64_t kMostReferences = 0xffff;
constexpr std::uint64_t kMostReferenceBytes = 0x7fffffff;
constexpr std::uint64_t kMostTicks = 0xffffffff;

// Changes to make at places of the file.
struct Patch {
  std::uint64_t offset;
  Content bytes;
};

// A file under repair. The first failure sticks.
class PatchedFile {
 public:
  explicit PatchedFile(int fd) : m_Fd(fd) {}

  // Whether the file holds these bytes already.
  bool Holds(const Patch& patch) {
    Content now(patch.bytes.size());
    return Transfer(now, patch.offset, pread) && now == patch.bytes;
  }
  void Write(const Patch& patch) {
    Content bytes = patch.bytes;
    Transfer(bytes, patch.offset, pwrite);
  }
  void Cut(std::uint64_t size) {
    if (m_Error == 0 && ftruncate(m_Fd, static_cast<off_t>(size)) != 0) m_Error = errno;
  }
  void Sync() {
    if (m_Error == 0 && fsync(m_Fd) != 0) m_Error = errno;
  }
  int Error() const { return m_Error; }

 private:
  // All of `bytes`, by pread or pwrite. False also at the end of the file.
  template <typename Call>
  bool Transfer(Content& bytes, std::uint64_t offset, Call call) {
    for (std::size_t done = 0; done < bytes.size() && m_Error == 0;) {
      const ssize_t count = call(m_Fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
      if (count == 0) return false;
      if (count > 0) done += static_cast<std::size_t>(count);
      if (count < 0 && errno != EINTR) m_Error = errno;
    }
    return m_Error == 0;
  }

  int m_Fd;
  int m_Error = 0;
};

struct Reference {
  std::uint64_t bytes = 0;
  std::uint64_t ticks = 0;
  bool startsWithKey = false;
};

// One reference a fragment, or for as many fragments together as it takes to have no more than `most`. A reference
// lasts until the next one begins, so that the index counts as the fragments do.
std::vector<Reference> MakeReferences(const Mp4Layout& layout, std::uint64_t most) {
  const std::vector<Mp4Fragment>& fragments = layout.fragments;
  const std::size_t joined = static_cast<std::size_t>((fragments.size() + most - 1) / most);
  const std::int64_t end = fragments.front().time + layout.Duration();
  std::vector<Reference> references;
  for (std::size_t i = 0; i < fragments.size(); i += joined) {
    const bool last = fragments.size() - i <= joined;
    const std::uint64_t endOffset = last ? layout.end : fragments[i + joined].offset;
    const std::int64_t endTime = last ? end : fragments[i + joined].time;
    references.push_back({endOffset - fragments[i].offset, static_cast<std::uint64_t>(endTime - fragments[i].time),
                          fragments[i].startsWithKey});
  }
  return references;
}

bool Fit(const std::vector<Reference>& references) {
  return std::all_of(references.begin(), references.end(), [](const Reference& reference) {
    return reference.bytes <= kMostReferenceBytes && reference.ticks <= kMostTicks;
  });
}

// The index stands at the end of its place: Chromium goes through all fragments of a file when there is anything
// between the index and the first one.
Patch MakeIndex(const Mp4Layout& layout, const std::vector<Reference>& references) {
  const std::uint64_t size = kIndexHeadBytes + references.size() * kIndexReferenceBytes;
  Patch patch{layout.indexOffset + layout.indexBytes - size, {}};
  Content& index = patch.bytes;
  AppendNumber(index, size, 4);
  AppendNumber(index, BoxType("sidx"), 4);
  AppendNumber(index, 1 << 24, 4);  // version 1: times of 64 bits
  AppendNumber(index, layout.track.id, 4);
  AppendNumber(index, layout.track.timescale, 4);
  AppendNumber(index, static_cast<std::uint64_t>(layout.fragments.front().time), 8);
  AppendNumber(index, 0, 8);  // between the index and the first fragment
  AppendNumber(index, references.size(), 4);
  for (const Reference& reference : references) {
    AppendNumber(index, reference.bytes, 4);
    AppendNumber(index, reference.ticks, 4);
    AppendNumber(index, reference.startsWithKey ? 0x90000000 : 0, 4);  // begins with a point to start at, of type 1
  }
  return patch;
}

// Rounded; without numbers of more than 64 bits.
std::uint64_t Rescale(std::int64_t ticks, std::uint32_t from, std::uint32_t to) {
  const auto time = static_cast<std::uint64_t>(ticks);
  const std::uint64_t whole = std::min<std::uint64_t>(time / from, kMostTicks);
  return whole * to + (time % from * to + from / 2) / from;
}

Patch MakeDuration(const Mp4Layout& layout, const Mp4DurationField& field) {
  std::uint64_t duration = Rescale(layout.Duration(), layout.track.timescale, field.timescale);
  if (field.bytes == 4) duration = std::min(duration, kMostTicks);  // which means: not known
  Patch patch{field.offset, {}};
  AppendNumber(patch.bytes, duration, field.bytes);
  return patch;
}

Patch MakeLengthBox(const Mp4Layout& layout) {
  Patch patch{layout.track.lengthBox + 4, {}};  // behind the size, which stays
  AppendNumber(patch.bytes, BoxType("mehd"), 4);
  AppendNumber(patch.bytes, 1 << 24, 4);  // version 1
  AppendNumber(patch.bytes, Rescale(layout.Duration(), layout.track.timescale, layout.track.ofMovie.timescale), 8);
  return patch;
}

Patch MakeSizeOfEmptyBox(const Mp4Layout& layout, std::uint64_t size) {
  Patch patch{layout.indexOffset, {}};
  AppendNumber(patch.bytes, size, 4);
  return patch;
}

// What completes a file.
struct Completion {
  std::vector<Patch> contents;  // durations and the index, which lies within the empty box still
  Patch emptyBox;               // makes that end where the index begins
};

// Whatever is on the disk when the power goes, the file is whole: the fragments first, then all contents, then one
// write within a sector that brings the index to light.
void Apply(PatchedFile& file, const Mp4Layout& layout, const Completion& completion) {
  if (layout.fileBytes > layout.end) file.Cut(layout.end);
  if (layout.hasIndex) file.Write(MakeSizeOfEmptyBox(layout, layout.indexBytes));
  file.Sync();
  for (const Patch& patch : completion.contents) file.Write(patch);
  file.Sync();
  file.Write(completion.emptyBox);
  file.Sync();
}

bool IsFinished(PatchedFile& file, const Mp4Layout& layout, const Completion& completion) {
  return layout.fileBytes == layout.end && file.Holds(completion.emptyBox) &&
         std::all_of(completion.contents.begin(), completion.contents.end(),
                     [&file](const Patch& patch) { return file.Holds(patch); });
}

bool Describe(const Mp4Layout& layout, RecordingFacts& facts) {
  const std::int64_t frames = layout.Frames();
  if (frames > std::numeric_limits<std::int32_t>::max()) return false;
  facts.bytes = static_cast<std::int64_t>(layout.end);
  facts.frames = static_cast<std::int32_t>(frames);
  facts.lengthUs = static_cast<std::int64_t>(Rescale(layout.Duration(), layout.track.timescale, 1000000));
  return true;
}

bool Fail(std::string& reason, const std::string& text) {
  reason = text;
  return false;
}

}  // namespace

bool FinishMp4(const std::string& path, RecordingFacts& facts, std::string& reason) {
  facts = {};
  const UniqueFd fd(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
  if (!fd.IsValid()) return Fail(reason, std::string("The file cannot be opened: ") + std::strerror(errno));
  Mp4Layout layout;
  const Mp4Reading reading = ReadMp4Layout(fd.Get(), layout, reason);
  facts.worthless = reading == Mp4Reading::kTorn || (reading == Mp4Reading::kRead && layout.fragments.empty());
  if (reading != Mp4Reading::kRead) return false;
  if (layout.fragments.empty()) return Fail(reason, "The file holds no whole picture");

  const std::uint64_t room = (layout.indexBytes - kIndexHeadBytes - kEmptyBoxBytes) / kIndexReferenceBytes;
  const std::vector<Reference> references = MakeReferences(layout, std::min(room, kMostReferences));
  if (!Fit(references) || !Describe(layout, facts)) return Fail(reason, "The file is too large for an index");
  const Mp4Track& track = layout.track;
  const Patch index = MakeIndex(layout, references);
  const Completion completion{{MakeDuration(layout, track.ofMovie), MakeDuration(layout, track.ofTrack),
                               MakeDuration(layout, track.ofMedia), MakeLengthBox(layout), index},
                              MakeSizeOfEmptyBox(layout, index.offset - layout.indexOffset)};
  PatchedFile file(fd.Get());
  if (!IsFinished(file, layout, completion)) Apply(file, layout, completion);
  if (file.Error() != 0) {
    return Fail(reason, std::string("The file cannot be completed: ") + std::strerror(file.Error()));
  }
  return true;
}

}  // namespace oculora
