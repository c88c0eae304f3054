// The header of a recorded MP4 file: the muxer's, with places for what is known at the end alone.
#include "recordings/mp4/mp4_header.h"

#include <algorithm>

namespace oculora {
namespace {

constexpr std::int32_t kMostReservedSeconds = 4 * 3600;  // 170 KiB; beyond, a reference covers several fragments

void AppendEmptyBox(std::vector<std::uint8_t>& header, std::uint64_t size) {
  AppendNumber(header, size, 4);
  AppendNumber(header, BoxType("free"), 4);
  header.resize(header.size() + static_cast<std::size_t>(size - kEmptyBoxBytes));
}

void Grow(std::vector<std::uint8_t>& header, std::uint64_t boxOffset, std::uint64_t by) {
  BoxReader reader(BoxBytes(header).subspan(static_cast<std::size_t>(boxOffset)));
  const std::uint64_t grown = reader.U32() + by;
  PutNumber(&header[static_cast<std::size_t>(boxOffset)], grown, 4);
}

// Boxes within boxes: looks for the first of each type on the way. `at` is where the body begins.
struct Body {
  BoxBytes bytes;
  std::uint64_t at = 0;

  std::optional<Body> Find(std::uint32_t type) const {
    BoxWalker walker(bytes);
    const auto box = walker.Find(type);
    if (!box) return std::nullopt;
    return Body{walker.BodyOf(*box), at + box->Body()};
  }
  template <typename... Types>
  std::optional<Body> Find(std::uint32_t type, Types... below) const {
    const auto body = Find(type);
    return body ? body->Find(below...) : std::nullopt;
  }
};

// mvhd and mdhd: times of creation and change, timescale, duration; in version 1 all but the timescale have 64 bits.
Mp4DurationField ReadTimedHeader(const Body& body) {
  BoxReader reader(body.bytes);
  const bool wide = reader.U8() == 1;
  reader.Skip(wide ? 19 : 11);
  return {body.at + (wide ? 24U : 16U), wide ? 8 : 4, reader.U32()};
}

// tkhd: as above, with the track's number in place of the timescale, and four bytes more.
Mp4DurationField ReadTrackHeader(const Body& body, std::uint32_t movieTimescale, std::uint32_t& trackId) {
  BoxReader reader(body.bytes);
  const bool wide = reader.U8() == 1;
  reader.Skip(wide ? 19 : 11);
  trackId = reader.U32();
  return {body.at + (wide ? 28U : 20U), wide ? 8 : 4, movieTimescale};
}

bool Fits(const Mp4DurationField& field, const Body& body) {
  return field.timescale > 0 && field.offset + static_cast<std::uint64_t>(field.bytes) <= body.at + body.bytes.size();
}

// The first sample entry of an stsd: after 16 bytes before the box, and 24 in it, the picture's size.
bool ReadPictureSize(const Body& stsd, Mp4Track& track) {
  BoxReader reader(stsd.bytes);
  reader.Skip(40);
  track.width = static_cast<std::int32_t>(reader.U16());
  track.height = static_cast<std::int32_t>(reader.U16());
  return !reader.Failed() && track.width > 0 && track.height > 0;
}

bool IsVideo(const Body& hdlr) {
  BoxReader reader(hdlr.bytes);
  reader.Skip(8);
  return reader.U32() == BoxType("vide");
}

bool HasOneTrack(BoxBytes moov) {
  BoxWalker walker(moov);
  return walker.Find(BoxType("trak")) && !walker.Find(BoxType("trak"));
}

// The first box of an mvex, as long as a mehd of 64 bits: that, or empty.
bool FindLengthBox(const Body& mvex, Mp4Track& track) {
  BoxWalker walker(mvex.bytes);
  Mp4Box box;
  if (!walker.Next(box) || box.size != kLengthBoxBytes) return false;
  track.lengthBox = mvex.at + box.offset;
  return box.type == BoxType("free") || box.type == BoxType("mehd");
}

}  // namespace

bool AddMp4Places(std::vector<std::uint8_t>& header, std::int32_t seconds) {
  BoxWalker files(header);
  const auto moov = files.Find(BoxType("moov"));
  if (!moov || moov->header != 8 || moov->End() != header.size()) return false;
  BoxWalker parts(files.BodyOf(*moov));
  const auto mvex = parts.Find(BoxType("mvex"));
  if (!mvex || mvex->header != 8) return false;

  const std::uint64_t mvexOffset = moov->Body() + mvex->offset;
  Grow(header, mvexOffset, kLengthBoxBytes);
  Grow(header, moov->offset, kLengthBoxBytes);
  std::vector<std::uint8_t> lengthBox;
  AppendEmptyBox(lengthBox, kLengthBoxBytes);
  header.insert(header.begin() + static_cast<std::ptrdiff_t>(mvexOffset + mvex->header), lengthBox.begin(),
                lengthBox.end());

  const std::uint64_t unaligned = header.size() % 8;
  if (unaligned != 0) {
    const std::uint64_t padding = kEmptyBoxBytes + 8 - unaligned;
    AppendEmptyBox(header, padding);
    Grow(header, moov->offset, padding);
  }
  // Fragments last a second or more, the last one less.
  const auto references = static_cast<std::uint64_t>(std::clamp(seconds, 1, kMostReservedSeconds)) + 2;
  AppendEmptyBox(header, kIndexHeadBytes + references * kIndexReferenceBytes + kEmptyBoxBytes);
  return true;
}

bool ReadMp4Track(BoxBytes moov, std::uint64_t offset, Mp4Track& track) {
  const Body body{moov, offset};
  const auto mvhd = body.Find(BoxType("mvhd"));
  const auto trak = body.Find(BoxType("trak"));
  const auto mvex = body.Find(BoxType("mvex"));
  if (!mvhd || !trak || !mvex || !HasOneTrack(moov)) return false;
  const auto tkhd = trak->Find(BoxType("tkhd"));
  const auto mdia = trak->Find(BoxType("mdia"));
  if (!tkhd || !mdia) return false;
  const auto mdhd = mdia->Find(BoxType("mdhd"));
  const auto hdlr = mdia->Find(BoxType("hdlr"));
  const auto stsd = mdia->Find(BoxType("minf"), BoxType("stbl"), BoxType("stsd"));
  if (!mdhd || !hdlr || !stsd || !IsVideo(*hdlr)) return false;

  track.ofMovie = ReadTimedHeader(*mvhd);
  track.ofTrack = ReadTrackHeader(*tkhd, track.ofMovie.timescale, track.id);
  track.ofMedia = ReadTimedHeader(*mdhd);
  track.timescale = track.ofMedia.timescale;
  return Fits(track.ofMovie, *mvhd) && Fits(track.ofTrack, *tkhd) && Fits(track.ofMedia, *mdhd) &&
         ReadPictureSize(*stsd, track) && FindLengthBox(*mvex, track);
}

}  // namespace oculora
