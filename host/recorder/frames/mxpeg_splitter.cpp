// Finds pictures and sound blocks in the bytes of an MxPEG camera, as they arrive.
#include "recorder/frames/mxpeg_splitter.h"

#include <algorithm>
#include <cstring>

#include "recorder/frames/jpeg_markers.h"

namespace oculora {
namespace {

constexpr std::size_t kReadAhead = 65536;
constexpr std::size_t kLongestSegment = 2 + 65535;
constexpr std::size_t kSoundHeader = 16;
constexpr std::size_t kSampleUs = 125;  // A-law, 8000 a second
constexpr std::size_t kSoundSlackUs = 1000000;

constexpr char kLyingLength[] = "a segment is not as long as it says";
constexpr char kTruncated[] = "one ends before its end";
constexpr char kEmpty[] = "one holds no picture";

std::size_t BigEndian16(const std::uint8_t* at) { return static_cast<std::size_t>(at[0] << 8 | at[1]); }

std::size_t LittleEndian32(const std::uint8_t* at) {
  return at[0] | std::size_t{at[1]} << 8 | std::size_t{at[2]} << 16 | std::size_t{at[3]} << 24;
}

// Whether so many samples agree with how long a block says it lasts. Cameras round, so in doubt they do.
bool AgreesWithDuration(std::size_t samples, std::size_t durationUs) {
  const std::size_t lasts = samples * kSampleUs;
  return lasts <= kSoundSlackUs || (lasts - kSoundSlackUs) / 2 <= durationUs;
}

// Whether these two bytes may follow a sound block: the next item's first, text of a multipart answer, or padding.
bool MayFollowSound(std::uint8_t first, std::uint8_t second) {
  if (first == kJpegMark) return second == kJpegSoi || second == kJpegApp13 || second == kJpegMark;
  return first == 0 || first == '\r' || first == '\n' || first == '-' || first == ' ';
}

}  // namespace

MxpegSplitter::MxpegSplitter(std::size_t maxPictureBytes)
    : m_MaxPicture(maxPictureBytes),
      m_Capacity(maxPictureBytes + kLongestSegment + kReadAhead),
      m_Buffer(new std::uint8_t[m_Capacity]) {}

void MxpegSplitter::Reset() {
  m_Begin = m_At = m_End = m_DoubtUntil = 0;
  m_Place = Place::kBetween;
  m_BehindSound = false;
}

// What is left goes to the front when that costs less than what has been done with, so that small pictures stay in the
// same few pages; or when there is no other way, which happens once a picture at most.
std::span<std::uint8_t> MxpegSplitter::Space() {
  const std::size_t left = m_End - m_Begin;
  if (m_Begin > 0 && (left <= m_Begin || m_Capacity - m_End < kReadAhead)) {
    std::memmove(m_Buffer.get(), m_Buffer.get() + m_Begin, left);
    m_At -= m_Begin;
    m_Segment -= m_Begin;
    m_DoubtUntil -= std::min(m_DoubtUntil, m_Begin);
    m_End = left;
    m_Begin = 0;
  }
  return {m_Buffer.get() + m_End, m_Capacity - m_End};
}

MxpegItem MxpegSplitter::Next() {
  m_Starved = false;
  MxpegItem item;
  while (item.kind == MxpegItem::Kind::kNone && !m_Starved) {
    switch (m_Place) {
      case Place::kBetween:
        item = LookBetween();
        break;
      case Place::kMarker:
        item = LookAtMarker();
        break;
      case Place::kScan:
        item = LookIntoScan();
        break;
    }
    if (item.kind == MxpegItem::Kind::kNone) item = DiscardWhenTooLarge();
  }
  return item;
}

bool MxpegSplitter::Lacks(std::size_t count) {
  m_Starved = m_At + count > m_End;
  return m_Starved;
}

MxpegItem MxpegSplitter::LookBetween() {
  m_Begin = m_At;
  if (Lacks(m_BehindSound ? 2 : 1)) return {};
  if (m_BehindSound) {
    m_BehindSound = false;
    // The block was longer or shorter than it said, and a picture's beginning may have gone with it.
    if (!MayFollowSound(At(0), At(1))) return GiveUp(kLyingLength, m_At);
  }
  const void* mark = std::memchr(&m_Buffer[m_At], kJpegMark, m_End - m_At);
  m_At = mark == nullptr ? m_End : static_cast<std::size_t>(static_cast<const std::uint8_t*>(mark) - m_Buffer.get());
  m_Begin = m_At;
  if (Lacks(2)) return {};
  if (At(1) == kJpegApp13) return LookForSound();
  if (At(1) != kJpegSoi) {
    m_At += At(1) == kJpegMark ? 1 : 2;
  } else if (!Lacks(3)) {
    if (At(2) == kJpegMark) BeginPicture();
    m_At += 2;
  }
  return {};
}

MxpegItem MxpegSplitter::LookForSound() {
  if (Lacks(kSoundHeader)) return {};
  const std::size_t size = 2 + BigEndian16(&m_Buffer[m_At + 2]);
  if (size <= kSoundHeader || !AgreesWithDuration(size - kSoundHeader, LittleEndian32(&m_Buffer[m_At + 4]))) {
    m_At += 2;
    return {};
  }
  if (Lacks(size)) return {};
  const std::span<const std::uint8_t> samples(&m_Buffer[m_At + kSoundHeader], size - kSoundHeader);
  m_At += size;
  m_Begin = m_At;
  m_BehindSound = true;
  return {MxpegItem::Kind::kSound, samples};
}

void MxpegSplitter::BeginPicture() {
  m_Place = Place::kMarker;
  m_Segment = m_At;
  m_SawFrameHeader = m_SawComment = m_SawScan = m_Discarding = false;
}

MxpegItem MxpegSplitter::LookAtMarker() {
  if (Lacks(1)) return {};
  if (At(0) != kJpegMark) return GiveUp(kLyingLength, m_Segment + 2);
  if (Lacks(2)) return {};
  const std::uint8_t marker = At(1);
  if (marker == kJpegMark) {  // a fill byte
    m_Segment = ++m_At;
    return {};
  }
  if (marker == kJpegEoi) return FinishPicture();
  // Sound never stands in a picture, but for a picture that lost its end; before the scan it is somebody else's APP13.
  if (marker == kJpegSoi || (marker == kJpegApp13 && m_SawScan)) return GiveUp(kTruncated, m_At);
  if (IsStandaloneMarker(marker)) {
    m_Segment = m_At;
    m_At += 2;
    return {};
  }
  return LookAtSegment(marker);
}

MxpegItem MxpegSplitter::LookAtSegment(std::uint8_t marker) {
  m_Segment = m_At;
  if (marker < kJpegFirstSegment) return GiveUp(kLyingLength, m_Segment + 2);
  if (Lacks(4)) return {};
  const std::size_t length = BigEndian16(&m_Buffer[m_At + 2]);
  if (length < 2) return GiveUp(kLyingLength, m_Segment + 2);
  if (marker == kJpegSos) {
    if (Lacks(5)) return {};
    // Where coded blocks begin must be certain: nothing in them would tell.
    if (At(4) < 1 || At(4) > 4 || length != 6 + 2 * std::size_t{At(4)}) return GiveUp(kLyingLength, m_Segment + 2);
    m_SawScan = true;
    m_Place = Place::kScan;
  }
  m_SawFrameHeader = m_SawFrameHeader || IsFrameHeader(marker);
  m_SawComment = m_SawComment || marker == kJpegComment;
  m_At += 2 + length;
  return {};
}

MxpegItem MxpegSplitter::LookIntoScan() {
  if (Lacks(1)) return {};
  const void* mark = std::memchr(&m_Buffer[m_At], kJpegMark, m_End - m_At);
  m_At = mark == nullptr ? m_End : static_cast<std::size_t>(static_cast<const std::uint8_t*>(mark) - m_Buffer.get());
  if (Lacks(2)) return {};
  if (At(1) == kJpegMark) {
    ++m_At;
  } else if (At(1) == 0 || IsRestartMarker(At(1))) {
    m_At += 2;
  } else {
    m_Place = Place::kMarker;
    m_Segment = m_At;
  }
  return {};
}

MxpegItem MxpegSplitter::FinishPicture() {
  m_At += 2;
  const std::span<const std::uint8_t> picture(&m_Buffer[m_Begin], m_At - m_Begin);
  // After a lie the search goes through what was a segment, and may come upon a thumbnail.
  const bool doubtful = !m_SawComment && m_Begin < m_DoubtUntil;
  // A picture in which nothing changed may come without coded blocks.
  const bool whole = m_SawScan || (m_SawComment && !m_SawFrameHeader);
  const bool told = m_Discarding || doubtful;
  if (!told && !whole) return GiveUp(kEmpty, m_At);
  m_Place = Place::kBetween;
  m_Begin = m_At;
  if (told) return {};
  if (picture.size() > m_MaxPicture) return {MxpegItem::Kind::kTooLarge, {}};
  return {MxpegItem::Kind::kPicture, picture};
}

MxpegItem MxpegSplitter::GiveUp(const char* damage, std::size_t goOnAt) {
  if (damage == kLyingLength) m_DoubtUntil = goOnAt + 2 * kLongestSegment;
  m_Place = Place::kBetween;
  m_At = goOnAt;
  m_Begin = goOnAt;
  return {MxpegItem::Kind::kDamaged, {}, damage};
}

// Lets go of the beginning of a picture that is over the limit already, and goes on to find its end.
MxpegItem MxpegSplitter::DiscardWhenTooLarge() {
  if (m_Place == Place::kBetween) return {};
  MxpegItem item;
  if (!m_Discarding && m_At - m_Begin > m_MaxPicture) {
    m_Discarding = true;
    item.kind = MxpegItem::Kind::kTooLarge;
  }
  // A segment's bytes are kept until it has proved as long as it says.
  if (m_Discarding) m_Begin = m_Place == Place::kScan ? std::min(m_At, m_End) : m_Segment;
  return item;
}

}  // namespace oculora
