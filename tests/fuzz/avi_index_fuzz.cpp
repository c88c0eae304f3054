// Any bytes as an AVI file: found one's way in, and finished.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "front/unique_fd.h"
#include "fuzz.h"
#include "recordings/avi/avi_finish.h"
#include "recordings/avi/avi_format.h"
#include "recordings/avi/avi_index.h"
#include "support/avi_bytes.h"

namespace {

std::string Content(int fd) {
  std::string bytes(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)), '\0');
  FUZZ_CHECK(pread(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
  return bytes;
}

void CheckIndex(int fd) {
  const auto size = static_cast<std::uint64_t>(lseek(fd, 0, SEEK_END));
  oculora::AviIndex index;
  std::string reason;
  const bool readable = oculora::ReadAviIndex(fd, index, reason);
  FUZZ_CHECK(readable == reason.empty() && (readable || index.frames.empty()));
  FUZZ_CHECK(index.frames.size() <= size / 9);
  for (const oculora::AviFrame& frame : index.frames) {
    FUZZ_CHECK(frame.size > 0 && frame.offset <= size && frame.size <= size - frame.offset);
  }
}

FuzzInput Bytes(const std::string& text) { return {text.begin(), text.end()}; }

}  // namespace

std::vector<FuzzInput> FuzzSeeds() {
  const std::string picture = "\xff\xd8picture\xff\xd9", chunk = AviChunkOf("00dc", picture);
  std::string body = AviChunkOf("01wb", "sound") + AviChunkOf("00dc", "");
  for (int i = 0; i < 10; ++i) body += chunk;
  const std::string header = AviHeaderOf(AviStream("vids", "mjpg", "MJPG") + AviStream("auds", "    ", "    "));
  const std::string listed = header + AviList("movi", body) + AviIndexOf(body, 4);
  const oculora::AviHeaderBytes own = oculora::MakeAviHeader({.width = 16, .height = 16, .rate = 25'000'000});
  const std::string recorded = std::string(own.begin(), own.end()) + chunk + chunk;
  return {Bytes(AviFile(listed)), Bytes(AviFile(listed) + AviList("AVIX", AviList("movi", body), "RIFF")),
          Bytes(AviFile(header + AviList("movi", AviList("rec ", body)))), Bytes(recorded),
          Bytes(recorded + AviIndexOf(chunk + chunk, 4))};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const oculora::UniqueFd fd(memfd_create("avi", MFD_CLOEXEC));
  FUZZ_CHECK(write(fd.Get(), data, size) == static_cast<ssize_t>(size));
  CheckIndex(fd.Get());

  const std::string path = "/proc/self/fd/" + std::to_string(fd.Get());
  oculora::RecordingFacts facts;
  std::string reason;
  const bool finished = oculora::FinishAvi(path, facts, reason);
  FUZZ_CHECK(finished == reason.empty());
  const std::string once = Content(fd.Get());
  if (!finished) {
    FUZZ_CHECK(once == std::string(data, data + size));
    return 0;
  }
  FUZZ_CHECK(facts.frames >= 0 && facts.bytes == static_cast<std::int64_t>(once.size()));
  CheckIndex(fd.Get());
  FUZZ_CHECK(oculora::FinishAvi(path, facts, reason) && Content(fd.Get()) == once);
  return 0;
}
