// Finding MxPEG pictures and sound in whatever a camera sends, in whatever pieces it comes.
#include "recorder/frames/mxpeg_splitter.h"

#include <algorithm>
#include <cstring>

#include "fuzz.h"
#include "recorder/frames/mxpeg_picture.h"

namespace {

using oculora::MxpegItem;
using oculora::MxpegSplitter;
using Kind = MxpegItem::Kind;

constexpr std::size_t kMaxPicture = 3000;  // small, so that some are too large
constexpr std::size_t kPieceBytes = 4;     // of the input, that say how it is cut

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

// What the splitter finds when piece N is as long as `pieces` says.
std::vector<Found> Split(std::span<const std::uint8_t> input, std::span<const std::uint8_t> pieces) {
  static MxpegSplitter splitter(kMaxPicture);
  splitter.Reset();
  std::vector<Found> found;
  std::span<const std::uint8_t> rest = input;
  std::size_t steps = 0;
  for (std::size_t piece = 0;; ++piece) {
    for (MxpegItem item = splitter.Next(); item.kind != Kind::kNone; item = splitter.Next()) {
      FUZZ_CHECK(++steps <= 4 * input.size());
      CheckItem(item, rest);
      found.push_back({item.kind, {item.bytes.begin(), item.bytes.end()}});
    }
    if (input.empty()) return found;
    const std::span<std::uint8_t> space = splitter.Space();
    FUZZ_CHECK(space.size() >= 65536);
    const std::size_t wanted = pieces.empty() ? input.size() : 1 + std::size_t{pieces[piece % pieces.size()]} * 3;
    const std::size_t count = std::min({wanted, input.size(), space.size()});
    std::memcpy(space.data(), input.data(), count);
    splitter.Added(count);
    input = input.subspan(count);
  }
}

void Append(FuzzInput& to, std::initializer_list<int> bytes) {
  for (const int byte : bytes) to.push_back(static_cast<std::uint8_t>(byte));
}

void AppendText(FuzzInput& to, const char* text) { to.insert(to.end(), text, text + std::strlen(text)); }

void AppendPicture(FuzzInput& to, bool key, int codedBytes) {
  Append(to, {0xff, 0xd8, 0xff, 0xfe, 0, 18, 'M', 'X', 'F', 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8});
  if (key) Append(to, {0xff, 0xe1, 0, 8, 0xff, 0xd8, 0xff, 0xd9, 0, 0, 0xff, 0xc0, 0, 5, 8, 0, 16});
  Append(to, {0xff, 0xda, 0, 8, 1, 1, 0, 0, 63, 0});
  for (int i = 0; i < codedBytes; ++i) Append(to, {i % 97, 0xff, i % 13 == 0 ? 0xd0 + i % 8 : 0});
  Append(to, {0xff, 0xd9});
}

void AppendSound(FuzzInput& to, int samples) {
  const int durationUs = samples * 125;
  Append(to, {0xff, 0xed, (samples + 14) >> 8, (samples + 14) & 255, durationUs & 255, durationUs >> 8 & 255,
              durationUs >> 16, 0, 1, 2, 3, 4, 5, 6, 7, 8});
  to.insert(to.end(), static_cast<std::size_t>(samples), 0xd5);
}

}  // namespace

std::vector<FuzzInput> FuzzSeeds() {
  FuzzInput raw = {255, 255, 255, 255};
  AppendPicture(raw, true, 40);
  AppendSound(raw, 200);
  AppendPicture(raw, false, 10);
  AppendPicture(raw, true, 1200);  // too large
  AppendPicture(raw, false, 20);
  AppendSound(raw, 1);
  FuzzInput multipart = {0, 1, 20, 3};
  for (const bool key : {true, false}) {
    AppendText(multipart, "--pic\r\nContent-Type: image/jpeg\r\n\r\n");
    AppendPicture(multipart, key, 15);
    AppendSound(multipart, 80);
    AppendText(multipart, "\r\n");
  }
  FuzzInput lying = {9, 1, 200, 30};
  AppendPicture(lying, true, 5);
  lying[kPieceBytes + 4] = 1;  // its comment says 274 bytes
  AppendPicture(lying, false, 200);
  lying.resize(lying.size() - 2);
  AppendSound(lying, 300);
  lying.resize(lying.size() - 100);
  AppendPicture(lying, true, 5);
  return {raw, multipart, lying};
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < kPieceBytes) return 0;
  const std::span<const std::uint8_t> all(data, size);
  const auto input = all.subspan(kPieceBytes);
  FUZZ_CHECK(Split(input, all.first(kPieceBytes)) == Split(input, {}));
  return 0;
}
