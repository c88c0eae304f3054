// H.264 byte streams: finding units, keeping parameter sets, putting key frames together.
#include "recorder/frames/annexb.h"

#include <gtest/gtest.h>

#include <string>

namespace oculora {
namespace {

using Buffer = std::vector<std::uint8_t>;

// SPS with id 0 ("1..." after the level) and 1 ("010..."), PPS with ids 0 and 1, an IDR and another slice, a delimiter.
const Buffer kSps0 = {0x67, 0x42, 0xc0, 0x1e, 0x95, 0xa0};
const Buffer kSps0New = {0x67, 0x42, 0xc0, 0x1f, 0x95, 0xa0};
const Buffer kSps1 = {0x67, 0x42, 0xc0, 0x1e, 0x55, 0xa0};
const Buffer kPps0 = {0x68, 0xce, 0x3c, 0x80};
const Buffer kPps1 = {0x68, 0x5e, 0x3c, 0x80};
const Buffer kSei = {0x06, 0x05, 0x01, 0xaa, 0x80};
const Buffer kIdr = {0x65, 0x88, 0x84, 0x21};
const Buffer kIdrSecondSlice = {0x65, 0x48, 0x84, 0x22};
const Buffer kSlice = {0x41, 0x9a, 0x21};
const Buffer kDelimiter = {0x09, 0x10};

Buffer Stream(std::initializer_list<Buffer> units, bool longCodes = true) {
  Buffer stream;
  for (const Buffer& unit : units) {
    if (longCodes) stream.push_back(0);
    stream.insert(stream.end(), {0, 0, 1});
    stream.insert(stream.end(), unit.begin(), unit.end());
  }
  return stream;
}

std::vector<Buffer> Units(Bytes stream) {
  std::vector<Buffer> units;
  NalReader reader(stream);
  for (Nal nal; reader.Next(nal);) units.emplace_back(nal.bytes.begin(), nal.bytes.end());
  return units;
}

Buffer KeyUnit(const Buffer& unit, ParameterSets& sets) {
  Buffer out(4096);
  const AccessUnitHead head = ReadHead(unit, sets);
  EXPECT_TRUE(head.idr);
  out.resize(WriteKeyUnit(unit, head, sets, out));
  return out;
}

TEST(NalReader, FindsUnitsWhateverStandsBetweenThem) {
  const std::vector<Buffer> expected = {kSps0, kSlice};
  EXPECT_EQ(Units(Stream({kSps0, kSlice}, true)), expected);
  EXPECT_EQ(Units(Stream({kSps0, kSlice}, false)), expected);
  Buffer padded = Stream({kSps0, {}, kSlice});
  padded.insert(padded.begin(), {9, 9});      // no unit yet
  padded.insert(padded.end(), {0, 0, 0, 0});  // zero bytes after the last
  EXPECT_EQ(Units(padded), expected);
  padded.insert(padded.end(), {0, 0, 1});  // a start code and nothing more
  EXPECT_EQ(Units(padded), expected);
  for (const Buffer& none : {Buffer{}, Buffer{0}, Buffer{0, 0, 1}, Buffer{1, 2, 3, 4}, Buffer{0, 0, 2, 1}}) {
    EXPECT_TRUE(Units(none).empty());
  }
}

TEST(KeyUnit, CarriesTheParameterSetsExactlyOnceAfterTheDelimiter) {
  const Buffer expected = Stream({kDelimiter, kSps0, kPps0, kSei, kIdr, kIdrSecondSlice});
  const std::pair<const char*, Buffer> cases[] = {
      {"none in the unit", Stream({kDelimiter, kSei, kIdr, kIdrSecondSlice})},
      {"in place already", expected},
      {"sent twice", Stream({kDelimiter, kSps0, kPps0, kSps0, kPps0, kSei, kIdr, kIdrSecondSlice})},
      {"in odd order", Stream({kDelimiter, kSei, kPps0, kSps0, kIdr, kIdrSecondSlice})},
      {"only one kind", Stream({kDelimiter, kSps0, kSei, kIdr, kIdrSecondSlice})},
  };
  for (const auto& [name, unit] : cases) {
    ParameterSets sets;
    sets.TakeAll(Stream({kSps0, kPps0}));
    EXPECT_EQ(Units(KeyUnit(unit, sets)), Units(expected)) << name;
  }
}

TEST(KeyUnit, IsRefusedWhenItDoesNotFit) {
  ParameterSets sets;
  const Buffer unit = Stream({kSps0, kPps0, kIdr});
  const AccessUnitHead head = ReadHead(unit, sets);
  Buffer out(unit.size());
  EXPECT_EQ(WriteKeyUnit(unit, head, sets, out), unit.size());
  out.pop_back();
  EXPECT_EQ(WriteKeyUnit(unit, head, sets, out), 0U);
}

TEST(ParameterSets, FollowChangesInTheStream) {
  ParameterSets sets;
  EXPECT_FALSE(sets.IsComplete());
  EXPECT_TRUE(sets.TakeAll(Stream({kPps0})));
  EXPECT_FALSE(sets.IsComplete());
  EXPECT_TRUE(sets.TakeAll(Stream({kSps0})));
  EXPECT_TRUE(sets.IsComplete());
  EXPECT_FALSE(sets.TakeAll(Stream({kSps0, kPps0, kSei})));  // nothing new
  EXPECT_TRUE(sets.TakeAll(Stream({kSps1, kPps1})));         // others beside them
  const Buffer both = Stream({kSps0, kSps1, kPps0, kPps1});
  EXPECT_EQ(Buffer(sets.Stream().begin(), sets.Stream().end()), both);

  EXPECT_TRUE(ReadHead(Stream({kSps0New, kIdr}), sets).setsChanged);
  const Buffer changed = Stream({kSps0New, kSps1, kPps0, kPps1});
  EXPECT_EQ(Buffer(sets.Stream().begin(), sets.Stream().end()), changed);
}

TEST(ReadHead, KnowsPicturesFromOtherUnits) {
  ParameterSets sets;
  EXPECT_FALSE(ReadHead(Stream({kDelimiter, kSei}), sets).hasSlice);
  const AccessUnitHead head = ReadHead(Stream({kDelimiter, kSlice}), sets);
  EXPECT_TRUE(head.hasSlice);
  EXPECT_FALSE(head.idr);
}

}  // namespace
}  // namespace oculora
