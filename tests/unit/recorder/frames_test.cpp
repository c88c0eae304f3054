// H.264 byte streams and JPEG pictures as cameras send them, whole, odd and broken.
#include <gtest/gtest.h>

#include "recorder/frames/annexb.h"
#include "recorder/frames/jpeg_check.h"
#include "support/bytes.h"

namespace oculora {
namespace {

// SPS with id 0 ("1..." after the level) and 1 ("010..."), PPS with ids 0 and 1, an IDR and another slice, a delimiter.
const Buffer kSps0 = {0x67, 0x42, 0xc0, 0x1e, 0x95, 0xa0};
const Buffer kSps0New = {0x67, 0x42, 0xc0, 0x1f, 0x95, 0xa0};
const Buffer kSps1 = {0x67, 0x42, 0xc0, 0x1e, 0x55, 0xa0};
const Buffer kPps0 = {0x68, 0xce, 0x3c, 0x80};
const Buffer kPps1 = {0x68, 0x5e, 0x3c, 0x80};
const Buffer kSei = {0x06, 0x05, 0x01, 0xaa, 0x80};
const Buffer kIdr = {0x65, 0x88, 0x84, 0x21};
const Buffer kSlice = {0x41, 0x9a, 0x21};
const Buffer kDelimiter = {0x09, 0x10};

Buffer Stream(const std::vector<Buffer>& units) { return Join(units, {0, 0, 0, 1}); }

std::vector<Buffer> Units(Bytes stream) {
  std::vector<Buffer> units;
  NalReader reader(stream);
  for (Nal nal; reader.Next(nal);) units.emplace_back(nal.bytes.begin(), nal.bytes.end());
  return units;
}

TEST(NalReader, FindsUnitsWhateverStandsBetweenThem) {
  const std::vector<Buffer> expected = {kSps0, kSlice};
  EXPECT_EQ(Units(Join(expected, {0, 0, 1})), expected);
  const Buffer padded = Join({{9, 9}, Stream({kSps0, {}, kSlice}), {0, 0, 0, 0}});
  EXPECT_EQ(Units(padded), expected);
  EXPECT_EQ(Units(Join({padded, {0, 0, 1}})), expected);  // a start code and nothing more
  for (const Buffer& none : {Buffer{}, Buffer{0, 0, 1}, Buffer{0, 0, 2, 1}}) EXPECT_TRUE(Units(none).empty());
}

TEST(KeyUnit, CarriesTheParameterSetsExactlyOnceAfterTheDelimiter) {
  const Buffer expected = Stream({kDelimiter, kSps0, kPps0, kSei, kIdr, kIdr});
  for (const Buffer& unit : {Stream({kDelimiter, kSei, kIdr, kIdr}), expected,
                             Stream({kDelimiter, kSps0, kPps0, kSps0, kSei, kIdr, kIdr})}) {
    ParameterSets sets;
    sets.TakeAll(Stream({kSps0, kPps0}));
    const AccessUnitHead head = ReadHead(unit, sets);
    EXPECT_TRUE(head.idr);
    Buffer out(expected.size());
    EXPECT_EQ(WriteKeyUnit(unit, head, sets, out), out.size());
    EXPECT_EQ(Units(out), Units(expected));
    out.pop_back();
    EXPECT_EQ(WriteKeyUnit(unit, head, sets, out), 0U) << "no room";
  }
}

TEST(ParameterSets, FollowChangesInTheStream) {
  ParameterSets sets;
  EXPECT_TRUE(sets.TakeAll(Stream({kPps0})));
  EXPECT_FALSE(sets.IsComplete());
  EXPECT_TRUE(sets.TakeAll(Stream({kSps0})));
  EXPECT_TRUE(sets.IsComplete());
  EXPECT_FALSE(sets.TakeAll(Stream({kSps0, kPps0, kSei})));  // nothing new
  EXPECT_TRUE(sets.TakeAll(Stream({kSps1, kPps1})));         // others beside them
  EXPECT_EQ(Units(sets.Stream()), (std::vector<Buffer>{kSps0, kSps1, kPps0, kPps1}));
  EXPECT_TRUE(ReadHead(Stream({kSps0New, kIdr}), sets).setsChanged);
  EXPECT_EQ(Units(sets.Stream()), (std::vector<Buffer>{kSps0New, kSps1, kPps0, kPps1}));
  EXPECT_FALSE(ReadHead(Stream({kDelimiter, kSei}), sets).hasSlice);
  const AccessUnitHead head = ReadHead(Stream({kDelimiter, kSlice}), sets);
  EXPECT_TRUE(head.hasSlice && !head.idr);
}

const Buffer kSoi = {0xff, 0xd8};
const Buffer kThumbnail = {0xff, 0xe1, 0x00, 0x08, 0xff, 0xd8, 0x01, 0x02, 0xff, 0xd9};  // an APP1 with a JPEG in it
const Buffer kTables = {0xff, 0xc4, 0x00, 0x04, 0x00, 0x01};
const Buffer kScan = {0xff, 0xda, 0x00, 0x04, 0x01, 0x02, 0x33, 0xff, 0x00, 0x44};
const Buffer kEoi = {0xff, 0xd9};

TEST(CheckJpeg, AcceptsWholePicturesOnly) {
  const Buffer whole = Join({kSoi, kThumbnail, kTables, kScan, kEoi});
  const std::pair<Buffer, std::size_t> cases[] = {
      {Join({whole, {0, '-', '-', 'x'}}), whole.size()},  // padding and part of a boundary
      {Join({kSoi, {0xff}, kTables, kScan, kEoi}), whole.size() + 1 - kThumbnail.size()},  // fill byte
      {Join({kSoi, kThumbnail, kTables, kScan}), 0},                   // cut off: that EOI is the thumbnail's
      {Join({kSoi, kTables, kEoi}), 0},                                // no scan
      {Join({kSoi, {0xff, 0xdb, 0xff, 0xff, 1, 2}, kScan, kEoi}), 0},  // a segment longer than the picture
      {Join({{0x00}, whole}), 0},
      {{}, 0}};
  for (const auto& [data, length] : cases) EXPECT_EQ(CheckJpeg(data).length, length) << testing::PrintToString(data);
}

}  // namespace
}  // namespace oculora
