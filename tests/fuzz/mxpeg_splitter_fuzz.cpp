// Finding MxPEG pictures and sound in whatever a camera sends, in whatever pieces it comes.
#include "recorder/frames/mxpeg_splitter.h"

#include <algorithm>
#include <cstring>

#include "fuzz.h"
#include "recorder/frames/mxpeg_picture.h"
#include "support/mxpeg_bytes.h"

namespace {

using oculora::MxpegItem;
using oculora::MxpegSplitter;
using Kind = MxpegItem::Kind;

constexpr std::size_t kMaxPicture = 3000;  // small, so that some are too large

struct Found {
  Kind kind;
  FuzzInput bytes;
  bool operator==(const Found&) const = default;
};

void CheckItem(const MxpegItem& item, std::span<const std::uint8_t>& rest) {
  const auto bytes = item.bytes;
  FUZZ_CHECK(bytes.empty() == (item.kind != Kind::kPicture && item.kind != Kind::kSound));
  FUZZ_CHECK((item.kind == Kind::kDamaged) == (*item.damage != '\0'));
  if (bytes.empty()) return;
  // In the order in which they came, none twice, none made up.
  const void* at = memmem(rest.data(), rest.size(), bytes.data(), bytes.size());
  FUZZ_CHECK(at != nullptr);
  rest = rest.subspan(static_cast<std::size_t>(static_cast<const std::uint8_t*>(at) - rest.data()) + bytes.size());
  if (item.kind == Kind::kSound) {
    FUZZ_CHECK(bytes.size() <= 65521);
    return;
  }
  FUZZ_CHECK(bytes.size() >= 4 && bytes.size() <= kMaxPicture);
  FUZZ_CHECK(bytes[0] == 0xff && bytes[1] == 0xd8 && bytes[bytes.size() - 2] == 0xff && bytes.back() == 0xd9);
  oculora::ReadMxpegPicture(FuzzInput(bytes.begin(), bytes.end()));
}

// What the splitter finds when the input comes in pieces of a size.
std::vector<Found> Split(std::span<const std::uint8_t> input, std::size_t piece) {
  static MxpegSplitter splitter(kMaxPicture);
  splitter.Reset();
  std::vector<Found> found;
  std::span<const std::uint8_t> rest = input;
  for (;;) {
    for (MxpegItem item = splitter.Next(); item.kind != Kind::kNone; item = splitter.Next()) {
      CheckItem(item, rest);
      found.push_back({item.kind, {item.bytes.begin(), item.bytes.end()}});
    }
    if (input.empty()) return found;
    const std::span<std::uint8_t> space = splitter.Space();
    const std::size_t count = std::min({piece, input.size(), space.size()});
    std::memcpy(space.data(), input.data(), count);
    splitter.Added(count);
    input = input.subspan(count);
  }
}

}  // namespace

std::vector<FuzzInput> FuzzSeeds() {
  const Buffer key = MakePicture(true, 120), delta = MakePicture(false, 30), part = Text("--p\r\nA: b\r\n\r\n");
  Buffer lying = key;
  lying[4] = 1;  // its comment says 274 bytes
  const Buffer cut(delta.begin(), delta.end() - 2);
  return {Join({key, MakeSound(200), delta, MakePicture(true, 4000), delta, MakeSound(1)}),
          Join({part, key, MakeSound(80), part, delta, MakeSound(80), part}),
          Join({lying, delta, cut, MakeSound(300, 400), cut, MakeSound(30, 65000), key, delta})};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span<const std::uint8_t> input(data, size);
  FUZZ_CHECK(Split(input, size) == Split(input, 1) && Split(input, 50) == Split(input, size));
  return 0;
}
