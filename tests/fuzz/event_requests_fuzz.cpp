// Ranges, event ids and rates of playback requests, whatever a client or a file says.
#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

#include "event/byte_range.h"
#include "event/event_id.h"
#include "event/pacing.h"
#include "fuzz.h"

namespace {

constexpr std::uint64_t kAllOnes = ~std::uint64_t{0};
constexpr std::size_t kHeadBytes = 16;

template <typename Number>
Number Take(const std::uint8_t* data) {
  Number number;
  std::memcpy(&number, data, sizeof(number));
  return number;
}

void CheckRange(const std::string& text, std::uint64_t size) {
  const ByteRange range = ParseByteRange(text, size);
  const bool isOpenEnded = range.length == kAllOnes && range.end == kAllOnes;
  FUZZ_CHECK(isOpenEnded || range.length == range.end - range.start + 1);
  FUZZ_CHECK(isOpenEnded || size == 0 || range.end < size);
  const ByteRange cut = ParseByteRange(text.substr(0, 255), size);
  FUZZ_CHECK(cut.start == range.start && cut.end == range.end && cut.length == range.length);
}

// A range as a well-behaved client writes it gives just these bytes.
void CheckGoodRange(std::uint32_t one, std::uint32_t other, std::uint64_t size) {
  const std::uint64_t first = std::min(one, other);
  const std::uint64_t last = std::max(one, other);
  const ByteRange range = ParseByteRange("bytes=" + std::to_string(first) + "-" + std::to_string(last), size);
  FUZZ_CHECK(range.start == first && (size == 0 || range.end == std::min(last, size - 1)));
}

void CheckId(const std::string& text, std::int32_t camera, std::int32_t event) {
  const EventIdParts parts = SplitEventId(text);
  FUZZ_CHECK(parts.hasCamera == (text.find(':') != std::string::npos));
  FUZZ_CHECK(parts.hasCamera || (parts.camId == 0 && parts.eventId == ReadInt32(text)));
  const EventIdParts good = SplitEventId(std::to_string(camera) + ":" + std::to_string(event));
  FUZZ_CHECK(good.hasCamera && good.camId == camera && good.eventId == event);
}

void CheckPacing(float frameRate, std::int32_t rate, std::int32_t frame) {
  const int interval = IntervalUs(frameRate, rate);
  FUZZ_CHECK(interval >= 0 && (rate < 0 || interval == BaseDelayUs(frameRate)));
  const bool canSlowDown = rate <= 0 && rate > std::numeric_limits<int>::min();
  FUZZ_CHECK(!canSlowDown || IntervalUs(frameRate, rate - 1) >= interval);
  FUZZ_CHECK(NextFrame(frame, rate) - frame == std::max(rate, 1));
}

}  // namespace

std::vector<FuzzInput> FuzzSeeds() {
  std::vector<FuzzInput> seeds;
  for (const char* text : {"bytes=100-199", "bytes=900-", "bytes=-500", "bytes=0-99,200-", "items=0-10", "bytes=500",
                           "bytes=9223372036854775807-18446744073709551615", "5", "3:5", "-1:99999999999", ":"}) {
    FuzzInput seed = {0xe8, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0x3f, 0xfd, 0xff, 0xff, 0xff};  // size 1000, 1/s, rate -3
    seed.insert(seed.end(), text, text + std::strlen(text));
    seeds.push_back(seed);
  }
  return seeds;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kHeadBytes) return 0;
  const std::string text(data + kHeadBytes, data + size);
  const auto rate = Take<std::int32_t>(data + 12);
  CheckRange(text, Take<std::uint64_t>(data));
  CheckGoodRange(Take<std::uint32_t>(data + 2), Take<std::uint32_t>(data + 10), Take<std::uint64_t>(data));
  CheckId(text, Take<std::int32_t>(data + 4), rate);
  CheckPacing(Take<float>(data + 8), rate, Take<std::int32_t>(data + 4));
  return 0;
}
