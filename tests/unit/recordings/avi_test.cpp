// AVI recordings: torn files, full disks, a finishing that is cut short, and the files of other writers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>

#include "capture.h"
#include "front/unique_fd.h"
#include "recordings/avi/avi_finish.h"
#include "recordings/avi/avi_index.h"
#include "recordings/avi/avi_writer.h"
#include "support/avi_bytes.h"

using namespace oculora;

namespace {

// The disk below the calls replaced here.
struct {
  std::int64_t room = -1;  // bytes that can still be written; -1: no end of them
  int calls = -1;          // that still succeed, as for a process about to be killed; -1: all
  bool swallows = false;   // writes go nowhere
  bool dirty = false;      // something but the header was written since the last flush
  bool disorder = false;   // the header was written before that was flushed
} g_Disk;

bool Fails() {
  if (g_Disk.calls < 0 || g_Disk.calls-- > 0) return false;
  g_Disk.calls = 0;
  errno = EIO;
  return true;
}

}  // namespace

extern "C" ssize_t pwritev(int fd, const iovec* parts, int count, off_t offset) {
  if (Fails()) return -1;
  ssize_t all = 0;
  for (int i = 0; i < count; ++i) all += static_cast<ssize_t>(parts[i].iov_len);
  if (g_Disk.swallows) return all;
  g_Disk.disorder |= offset == 0 && g_Disk.dirty;
  g_Disk.dirty = true;
  ssize_t done = 0;
  for (int i = 0; i < count; ++i) {
    std::size_t size = parts[i].iov_len;
    if (g_Disk.room >= 0) size = std::min(size, static_cast<std::size_t>(g_Disk.room));
    done += pwrite(fd, parts[i].iov_base, size, offset + done);
    if (g_Disk.room >= 0) g_Disk.room -= static_cast<std::int64_t>(size);
  }
  if (done > 0 || all == 0) return done;
  errno = ENOSPC;
  return -1;
}
extern "C" int ftruncate(int fd, off_t size) noexcept {
  return Fails() ? -1 : static_cast<int>(syscall(SYS_ftruncate, fd, size));
}
extern "C" int fsync(int) {
  if (Fails()) return -1;
  g_Disk.dirty = false;
  return 0;
}

namespace {

const std::string kPath = "/tmp/recording.avi";
using Pictures = std::vector<std::string>;

std::string Picture(std::size_t size) { return "\xff\xd8" + std::string(size - 4, 'p') + "\xff\xd9"; }

// What the index of the file leads to.
Pictures ReadPictures(double* rate = nullptr) {
  const UniqueFd fd(open(kPath.c_str(), O_RDONLY | O_CLOEXEC));
  AviIndex index;
  std::string reason;
  if (!ReadAviIndex(fd.Get(), index, reason)) return {reason};
  EXPECT_TRUE(index.width == 320 && index.height == 240);
  if (rate != nullptr) *rate = index.rate;
  Pictures pictures;
  for (const AviFrame& frame : index.frames) {
    pictures.emplace_back(frame.size, '\0');
    EXPECT_EQ(pread(fd.Get(), pictures.back().data(), frame.size, static_cast<off_t>(frame.offset)), frame.size);
  }
  return pictures;
}

void Record(AviWriter& writer, const Pictures& pictures) {
  unlink(kPath.c_str());
  std::string reason;
  ASSERT_TRUE(writer.Open(kPath, 320, 240, 25, reason)) << reason;
  for (const std::string& picture : pictures) {
    ASSERT_TRUE(writer.HasRoom(picture.size()));
    ASSERT_EQ(writer.Write(picture.data(), picture.size()), 0);
    ASSERT_TRUE(writer.FramesWritten() % 3 != 0 || writer.Sync(12.5) == 0);
  }
  EXPECT_EQ(writer.Sync(NAN), 0) << "and the rate stays";
}

const Pictures kPictures = {Picture(10), Picture(31), Picture(4), Picture(55), Picture(26)};

// Cut anywhere, with or without the zeros of a power cut behind, while it was written and after it was finished.
TEST(Avi, FinishingKeepsEveryWholePicture) {
  AviWriter writer;
  Record(writer, kPictures);
  RecordingFacts facts;
  std::string reason;
  const std::string unfinished = ReadFile(kPath);
  ASSERT_TRUE(FinishAvi(kPath, facts, reason)) << reason;
  const std::string finished = ReadFile(kPath);
  for (const std::string& whole : {unfinished, finished}) {
    for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
      Pictures left;
      std::size_t at = 512;
      for (const std::string& picture : kPictures) {
        if (at + 8 + picture.size() <= cut) left.push_back(picture);  // its padding may be missing
        at += 8 + picture.size() + picture.size() % 2;
      }
      for (const std::size_t zeros : {0, 1, 40}) {
        if (cut < 512 && zeros > 0) continue;  // a header is on the disk or is not
        WriteFile(kPath, whole.substr(0, cut) + std::string(zeros, '\0'));
        EXPECT_TRUE(zeros > 0 || cut < 512 || ReadPictures() == left) << cut;
        const bool done = FinishAvi(kPath, facts, reason);
        ASSERT_EQ(done, !left.empty()) << cut << " " << reason;
        EXPECT_EQ(facts.worthless, left.empty()) << cut;
        if (!done) continue;
        const std::string once = ReadFile(kPath);
        EXPECT_EQ(once == finished, left == kPictures) << cut;
        EXPECT_EQ(facts.bytes, static_cast<std::int64_t>(once.size()));
        EXPECT_EQ(facts.lengthUs, static_cast<std::int64_t>(left.size()) * 80000);
        EXPECT_EQ(ReadPictures(), left);
        EXPECT_TRUE(FinishAvi(kPath, facts, reason));
        EXPECT_EQ(ReadFile(kPath), once);
      }
    }
  }
  WriteFile(kPath, std::string(3000, '\0'));
  EXPECT_FALSE(FinishAvi(kPath, facts, reason) || !facts.worthless) << "its header never reached the disk";
  WriteFile("/tmp/theirs.avi", AviFile(std::string(3000, 'x')));
  for (const char* path : {"/tmp/none.avi", "/tmp", "/tmp/theirs.avi"}) {
    EXPECT_FALSE(FinishAvi(path, facts, reason) || facts.worthless) << path;
  }
}

// Killed at any of its calls, or the disk being full at any byte, it can be done again and nothing is lost.
TEST(Avi, FinishingCanBeCutShort) {
  AviWriter writer;
  Record(writer, kPictures);
  WriteFile(kPath, ReadFile(kPath) + "00dc");
  const std::string torn = ReadFile(kPath);
  RecordingFacts facts;
  std::string reason;
  ASSERT_TRUE(FinishAvi(kPath, facts, reason)) << reason;
  const std::string finished = ReadFile(kPath);
  const auto tries = [&](int calls, int room) {
    WriteFile(kPath, torn);
    g_Disk = {.room = room, .calls = calls};
    const bool done = FinishAvi(kPath, facts, reason);
    EXPECT_FALSE(g_Disk.disorder || (done && g_Disk.dirty));
    g_Disk = {};
    EXPECT_TRUE(done || !facts.worthless);
    EXPECT_EQ(ReadPictures(), kPictures) << calls << " " << room;
    EXPECT_TRUE(done || calls >= 0 || ReadFile(kPath).size() < torn.size()) << "takes room on a full disk";
    EXPECT_TRUE(FinishAvi(kPath, facts, reason));
    EXPECT_EQ(ReadFile(kPath), finished) << calls << " " << room;
    return done;
  };
  int calls = 0;
  while (!tries(calls, -1)) ++calls;
  EXPECT_GE(calls, 5) << "cut, index, flush, header, flush";
  for (int room = 0; room < 88; ++room) EXPECT_FALSE(tries(-1, room));
}

TEST(Avi, AFullDiskCostsOnlyThePictureThatDidNotFit) {
  for (int room = 0; room < 48; ++room) {
    AviWriter writer;
    Record(writer, {kPictures[0]});
    const std::string before = ReadFile(kPath);
    g_Disk = {.room = room};
    const bool fits = writer.Write(kPictures[1].data(), kPictures[1].size()) == 0;
    EXPECT_TRUE(fits ? room >= 40 : errno == ENOSPC && ReadFile(kPath) == before) << room;
    g_Disk = {};
    EXPECT_EQ(writer.Write(kPictures[2].data(), kPictures[2].size()), 0);
    EXPECT_EQ(ReadPictures().size(), fits ? 3U : 2U) << room;
  }
}

TEST(Avi, RefusesPicturesThatWouldSpoilTheFile) {
  AviWriter writer;
  Record(writer, {});
  for (const std::string& no : {std::string(), std::string("\xff\xd8\xd9"), std::string(90, 'x')}) {
    EXPECT_TRUE(writer.Write(no.data(), no.size()) == -1 && errno == EINVAL) << no;
  }
  g_Disk = {.swallows = true};
  const std::string large = Picture(3'000'001);
  while (writer.HasRoom(large.size())) ASSERT_EQ(writer.Write(large.data(), large.size()), 0);
  EXPECT_TRUE(writer.Write(large.data(), large.size()) == -1 && errno == EFBIG);
  g_Disk = {};
  EXPECT_EQ(writer.FramesWritten(), 333);
  EXPECT_EQ(writer.BytesWritten(), 512 + 333LL * 3'000'010);
  EXPECT_FALSE(writer.HasRoom(SIZE_MAX));
}

TEST(Avi, FilesOfOtherWriters) {
  const std::string a = AviChunkOf("00dc", "first"), b = AviChunkOf("00dc", "second");
  const std::string sound = AviChunkOf("01wb", "00dc"), none = AviChunkOf("00dc", "");
  const std::string body = sound + a + none + sound + b, list = AviList("movi", body);
  const std::string audio = AviStream("auds", "    ", "    "), video = AviStream("vids", "    ", "MJPG");
  const std::string header = AviHeaderOf(AviStream("vids", "mjpg", "abcd") + audio);
  const std::string index = AviIndexOf(body, 4);
  // Nobody gets over these zeros without an index.
  const std::string gap = AviList("movi", std::string(8, '\0') + body);
  const std::pair<const char*, std::string> good[] = {
      {"without an index", AviFile(header + list)},
      {"with one", AviFile(header + gap + AviIndexOf(body, 12))},
      {"that counts from the file's begin", AviFile(header + gap + AviIndexOf(body, 12 + header.size() + 20))},
      {"behind JUNK", AviFile(header + AviChunkOf("JUNK", "xyz") + list + AviChunkOf("JUNK", "x") + index)},
      {"that leads elsewhere", AviFile(header + list + AviIndexOf(body, 5))},
      {"that is torn", AviFile(header + list) + index.substr(0, index.size() - 20)},
      {"OpenDML", AviFile(header + AviList("movi", a) + AviIndexOf(a, 4)) +
                      AviList("AVIX", AviChunkOf("ix00", "00dc") + AviList("movi", none + b), "RIFF")},
      {"clusters", AviFile(header + AviList("movi", AviList("rec ", sound + a) + AviList("rec ", b)))},
      {"still being written", AviFile(header + "LIST" + Avi32(0) + "movi" + body)},
      {"a second stream", AviFile(AviHeaderOf(audio + AviStream("vids", "h264", "H264") + video + video) +
                                  AviList("movi", a + AviChunkOf("02dc", "first") + AviChunkOf("03dc", "other") +
                                                      AviChunkOf("02db", "second")))},
  };
  for (const auto& [name, file] : good) {
    WriteFile(kPath, file);
    double rate = 0;
    EXPECT_EQ(ReadPictures(&rate), (Pictures{"first", "second"})) << name;
    // The empty chunk keeps the picture before it for one more interval.
    EXPECT_NEAR(rate, file.find(none) == std::string::npos ? 12.5 : 12.5 * 2 / 3, 1e-9) << name;
  }
}

}  // namespace
