// What a generated camera does wrong on purpose.
#include "fault.h"

#include <algorithm>
#include <cstddef>

#include "recorder/mxpeg/bytes.h"

namespace oculora {
namespace {

// The periods have no factor in common with usual key intervals, so that key and delta pictures are hit in turn.
constexpr std::uint64_t kLies = 4, kHugeEvery = 8, kCutEvery = 7, kGapEvery = 7;
constexpr std::size_t kLongestComment = 65535;
constexpr std::size_t kHugeComments = 70;  // 4.4 MiB
constexpr std::ptrdiff_t kAfterStart = 2;  // of the image
constexpr std::size_t kStampLength = 4;    // where the length of the time stamp's segment stands

// A comment that says it is `length` bytes long (two of them the length itself) and is `real`.
std::vector<std::uint8_t> Comment(std::size_t length, std::size_t real) {
  std::vector<std::uint8_t> segment(2 + real, 'x');
  segment[0] = 0xFF;
  segment[1] = 0xFE;
  PutBigEndian16(segment.data() + 2, length);
  return segment;
}

void InsertFirst(std::vector<std::uint8_t>& picture, const std::vector<std::uint8_t>& segment) {
  picture.insert(picture.begin() + kAfterStart, segment.begin(), segment.end());
}

void Lie(std::uint64_t number, std::vector<std::uint8_t>& picture) {
  switch (number % kLies) {
    case 1:  // reaches beyond the picture's end
      return InsertFirst(picture, Comment(kLongestComment, 8));
    case 2:  // shorter than its own length field
      return InsertFirst(picture, Comment(0, 8));
    case 3:  // too short for the time stamp
      return PutBigEndian16(picture.data() + kStampLength, 8);
    default:
      return;
  }
}

void Bloat(std::vector<std::uint8_t>& picture) {
  const std::vector<std::uint8_t> comment = Comment(kLongestComment, kLongestComment);
  std::vector<std::uint8_t> comments;
  for (std::size_t i = 0; i < kHugeComments; ++i) comments.insert(comments.end(), comment.begin(), comment.end());
  // Behind the time stamp.
  const std::size_t stamp = std::size_t{picture[kStampLength]} << 8 | picture[kStampLength + 1];
  picture.insert(picture.begin() + static_cast<std::ptrdiff_t>(kStampLength + stamp), comments.begin(), comments.end());
}

}  // namespace

void Spoil(Fault fault, std::uint64_t number, std::vector<std::uint8_t>& picture) {
  if (picture.empty()) return;
  if (fault == Fault::kLyingLengths) Lie(number, picture);
  if (fault == Fault::kHuge && number % kHugeEvery == 3) Bloat(picture);
  if (fault == Fault::kTruncated && number % kCutEvery == 3) picture.resize(picture.size() / 2);
  if (fault == Fault::kGap && number % kGapEvery == 3) picture.clear();
}

}  // namespace oculora
