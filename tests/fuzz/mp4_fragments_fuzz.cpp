// Any bytes as an MP4 recording: read, and finished.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "front/unique_fd.h"
#include "fuzz.h"
#include "recordings/mp4/mp4_finish.h"
#include "recordings/mp4/mp4_fragments.h"

namespace {

using oculora::AppendNumber;
using oculora::BoxType;
using oculora::Mp4Layout;
using oculora::Mp4Reading;

FuzzInput Numbers(const std::vector<std::uint32_t>& numbers) {
  FuzzInput bytes;
  for (const std::uint32_t number : numbers) AppendNumber(bytes, number, 4);
  return bytes;
}

FuzzInput Box(std::uint32_t type, const std::vector<FuzzInput>& parts) {
  FuzzInput box = Numbers({0, type});
  for (const FuzzInput& part : parts) box.insert(box.end(), part.begin(), part.end());
  oculora::PutNumber(box.data(), box.size(), 4);
  return box;
}

FuzzInput Header() {
  const FuzzInput mvhd = Box(BoxType("mvhd"), {Numbers({0, 0, 0, 1000, 0})});
  const FuzzInput tkhd = Box(BoxType("tkhd"), {Numbers({0, 0, 0, 1, 0, 0})});
  const FuzzInput mdhd = Box(BoxType("mdhd"), {Numbers({1U << 24, 0, 0, 0, 0, 90000, 0, 0})});
  const FuzzInput hdlr = Box(BoxType("hdlr"), {Numbers({0, 0, BoxType("vide")})});
  const FuzzInput stsd = Box(BoxType("stsd"), {Numbers({0, 1, 86, BoxType("avc1"), 0, 0, 0, 0, 0, 0, 64 << 16 | 48})});
  const FuzzInput minf = Box(BoxType("minf"), {Box(BoxType("stbl"), {stsd})});
  const FuzzInput trak = Box(BoxType("trak"), {tkhd, Box(BoxType("mdia"), {mdhd, hdlr, minf})});
  FuzzInput header = Box(BoxType("ftyp"), {Numbers({BoxType("isom"), 0})});
  const FuzzInput moov = Box(BoxType("moov"), {mvhd, trak, Box(BoxType("mvex"), {Numbers({8, BoxType("trex")})})});
  header.insert(header.end(), moov.begin(), moov.end());
  FUZZ_CHECK(oculora::AddMp4Places(header, 1));
  return header;
}

// Three frames of 4, 5 and 6 bytes.
FuzzInput Fragment(std::uint32_t time) {
  constexpr std::uint32_t kMoofBytes = 108;
  const FuzzInput tfhd = Box(BoxType("tfhd"), {Numbers({0x20038, 1, 3000, 5, 0x1010000})});
  const FuzzInput tfdt = Box(BoxType("tfdt"), {Numbers({1U << 24, 0, time})});
  const FuzzInput trun = Box(BoxType("trun"), {Numbers({0x301, 3, kMoofBytes + 8, 3000, 4, 3000, 5, 3000, 6})});
  FuzzInput moof = Box(BoxType("moof"), {Box(BoxType("traf"), {tfhd, tfdt, trun})});
  FUZZ_CHECK(moof.size() == kMoofBytes);
  const FuzzInput mdat = Box(BoxType("mdat"), {FuzzInput(15, 'p')});
  moof.insert(moof.end(), mdat.begin(), mdat.end());
  return moof;
}

FuzzInput Content(int fd) {
  FuzzInput bytes(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)));
  FUZZ_CHECK(pread(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
  return bytes;
}

Mp4Layout CheckLayout(int fd, Mp4Reading& reading) {
  Mp4Layout layout;
  std::string reason;
  reading = ReadMp4Layout(fd, layout, reason);
  FUZZ_CHECK((reading == Mp4Reading::kRead) == reason.empty() && reading != Mp4Reading::kFailed);
  if (reading != Mp4Reading::kRead) return layout;
  std::uint64_t at = layout.indexOffset + layout.indexBytes;
  std::int64_t time = -1;
  for (const oculora::Mp4Fragment& fragment : layout.fragments) {
    FUZZ_CHECK(fragment.offset == at && fragment.frames > 0 && fragment.time > time && fragment.duration >= 0);
    time = fragment.time;
    at += fragment.bytes;
  }
  FUZZ_CHECK(layout.end == at && at <= layout.fileBytes && layout.Duration() >= 0);
  return layout;
}

}  // namespace

std::vector<FuzzInput> FuzzSeeds() {
  FuzzInput file = Header();
  for (std::uint32_t i = 0; i < 6; ++i) {  // more than the index has place for
    const FuzzInput fragment = Fragment(i * 9000);
    file.insert(file.end(), fragment.begin(), fragment.end());
  }
  const oculora::UniqueFd fd(memfd_create("mp4", MFD_CLOEXEC));
  FUZZ_CHECK(write(fd.Get(), file.data(), file.size()) == static_cast<ssize_t>(file.size()));
  oculora::RecordingFacts facts;
  std::string reason;
  FUZZ_CHECK(oculora::FinishMp4("/proc/self/fd/" + std::to_string(fd.Get()), facts, reason) && facts.frames == 18);
  return {file, Content(fd.Get())};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const oculora::UniqueFd fd(memfd_create("mp4", MFD_CLOEXEC));
  FUZZ_CHECK(write(fd.Get(), data, size) == static_cast<ssize_t>(size));
  Mp4Reading reading{};
  const Mp4Layout before = CheckLayout(fd.Get(), reading);

  const std::string path = "/proc/self/fd/" + std::to_string(fd.Get());
  oculora::RecordingFacts facts;
  std::string reason;
  if (!oculora::FinishMp4(path, facts, reason)) {
    FUZZ_CHECK(Content(fd.Get()) == FuzzInput(data, data + size));
    return 0;
  }
  const FuzzInput once = Content(fd.Get());
  const Mp4Layout after = CheckLayout(fd.Get(), reading);
  FUZZ_CHECK(reading == Mp4Reading::kRead && after.hasIndex && after.fragments.size() == before.fragments.size());
  FUZZ_CHECK(facts.bytes == static_cast<std::int64_t>(once.size()) && after.end == once.size());
  FUZZ_CHECK(oculora::FinishMp4(path, facts, reason) && Content(fd.Get()) == once);
  return 0;
}
