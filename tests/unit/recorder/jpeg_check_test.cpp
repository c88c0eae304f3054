// Whole pictures are told from broken ones.
#include "recorder/frames/jpeg_check.h"

#include <gtest/gtest.h>

#include <vector>

namespace oculora {
namespace {

using Buffer = std::vector<std::uint8_t>;

const Buffer kSoi = {0xff, 0xd8};
const Buffer kThumbnail = {0xff, 0xe1, 0x00, 0x08, 0xff, 0xd8, 0x01, 0x02, 0xff, 0xd9};  // an APP1 with a JPEG in it
const Buffer kTables = {0xff, 0xc4, 0x00, 0x04, 0x00, 0x01};
const Buffer kScan = {0xff, 0xda, 0x00, 0x04, 0x01, 0x02, 0x33, 0xff, 0x00, 0x44};
const Buffer kEoi = {0xff, 0xd9};

Buffer Join(std::initializer_list<Buffer> parts) {
  Buffer all;
  for (const Buffer& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

TEST(CheckJpeg, AcceptsWholePicturesOnly) {
  const Buffer whole = Join({kSoi, kThumbnail, kTables, kScan, kEoi});
  const std::pair<Buffer, std::size_t> cases[] = {
      {whole, whole.size()},
      {Join({whole, {0, 0, 0}}), whole.size()},                                            // padding
      {Join({whole, {'\r', '\n', '-', '-', 'x'}}), whole.size()},                          // part of a boundary
      {Join({kSoi, {0xff}, kTables, kScan, kEoi}), whole.size() + 1 - kThumbnail.size()},  // fill byte
      {Join({kSoi, kThumbnail, kTables, kScan}), 0},                   // cut off: that EOI is the thumbnail's
      {Join({kSoi, kTables, kEoi}), 0},                                // no scan
      {Join({kSoi, {0xff, 0xdb, 0xff, 0xff, 1, 2}, kScan, kEoi}), 0},  // a segment longer than the picture
      {Join({kSoi, {0xff, 0xdb, 0x00, 0x01}, kScan, kEoi}), 0},        // an impossible length
      {Join({{0x00}, whole}), 0},
      {kSoi, 0},
      {{}, 0},
  };
  for (const auto& [data, length] : cases) EXPECT_EQ(CheckJpeg(data).length, length) << testing::PrintToString(data);
}

TEST(CheckJpeg, SeesMissingHuffmanTables) {
  EXPECT_TRUE(CheckJpeg(Join({kSoi, kTables, kScan, kEoi})).hasHuffmanTables);
  EXPECT_FALSE(CheckJpeg(Join({kSoi, kScan, kEoi})).hasHuffmanTables);
}

}  // namespace
}  // namespace oculora
