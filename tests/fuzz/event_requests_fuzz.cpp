// Ranges and event ids of playback requests, whatever a client says.
#include <cstring>
#include <string>

#include "event/byte_range.h"
#include "event/event_id.h"
#include "fuzz.h"

namespace {

constexpr std::uint64_t kAllOnes = ~std::uint64_t{0};

void CheckRange(const std::string& text, std::uint64_t size) {
  const ByteRange range = ParseByteRange(text, size);
  const bool isOpenEnded = range.length == kAllOnes && range.end == kAllOnes;
  FUZZ_CHECK(isOpenEnded || range.length == range.end - range.start + 1);
  FUZZ_CHECK(isOpenEnded || size == 0 || range.end < size);
  const ByteRange cut = ParseByteRange(text.substr(0, 255), size);
  FUZZ_CHECK(cut.start == range.start && cut.end == range.end && cut.length == range.length);
}

void CheckId(const std::string& text) {
  const EventIdParts parts = SplitEventId(text);
  FUZZ_CHECK(parts.hasCamera == (text.find(':') != std::string::npos));
  FUZZ_CHECK(parts.hasCamera || (parts.camId == 0 && parts.eventId == ReadInt32(text)));
}

}  // namespace

std::vector<FuzzInput> FuzzSeeds() {
  std::vector<FuzzInput> seeds;
  for (const char* text : {"bytes=100-199", "bytes=900-", "bytes=-500", "bytes=0-99,200-", "items=0-10", "bytes=500",
                           "bytes=9223372036854775807-18446744073709551615", "5", "3:5", "-1:99999999999", ":"}) {
    FuzzInput seed = {0xe8, 3, 0, 0, 0, 0, 0, 0};  // size 1000
    seed.insert(seed.end(), text, text + std::strlen(text));
    seeds.push_back(seed);
  }
  return seeds;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::uint64_t fileSize = 0;
  if (size < sizeof(fileSize)) return 0;
  std::memcpy(&fileSize, data, sizeof(fileSize));
  const std::string text(data + sizeof(fileSize), data + size);
  CheckRange(text, fileSize);
  CheckId(text);
  return 0;
}
