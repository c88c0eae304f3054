// Finds pictures and sound blocks in the bytes of an MxPEG camera, as they arrive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "shm/ring_writer.h"

namespace oculora {

struct MxpegItem {
  enum class Kind {
    kNone,      // more bytes are needed
    kPicture,   // a whole one, from SOI to EOI
    kSound,     // the A-law samples of a block
    kTooLarge,  // a picture over the limit; it is left out
    kDamaged,   // a picture, or what may have been one, is left out
  };
  Kind kind = Kind::kNone;
  std::span<const std::uint8_t> bytes;  // in the splitter's buffer; good until the next call of Space() or Reset()
  const char* damage = "";              // kDamaged: what is wrong, to go on after "the camera's pictures are damaged: "
};

// Takes the stream raw or as a multipart answer: what stands between the items is skipped. A picture is handed out the
// moment its last byte is there. Segment lengths are not trusted: where one proves wrong, the search for the next
// picture goes on behind the marker that carried it. Pictures inside segments (thumbnails) are no pictures.
//
//   for (;;) {
//     while ((item = splitter.Next()).kind != MxpegItem::Kind::kNone) Use(item);
//     splitter.Added(ReadInto(splitter.Space()));
//   }
//
// One buffer of fixed size, nothing allocated per item, and each byte looked at a bounded number of times however small
// the pieces are in which it comes.
class MxpegSplitter {
 public:
  explicit MxpegSplitter(std::size_t maxPictureBytes = kMaxFrameBytes);

  // Where the next bytes go; at least 64 KiB after Next() asked for more.
  std::span<std::uint8_t> Space();
  // The first `count` bytes of Space() were filled.
  void Added(std::size_t count) { m_End += count; }
  MxpegItem Next();
  // The bytes that come next have nothing to do with those before.
  void Reset();

 private:
  enum class Place { kBetween, kMarker, kScan };  // where the byte at m_At stands

  // Each looks at what is at m_At: an item when that completes one, kNone with `m_Starved` set when bytes lack.
  MxpegItem LookBetween();
  MxpegItem LookForSound();
  MxpegItem LookAtMarker();
  MxpegItem LookAtSegment(std::uint8_t marker);
  MxpegItem LookIntoScan();

  void BeginPicture();
  MxpegItem FinishPicture();
  MxpegItem GiveUp(const char* damage, std::size_t goOnAt);
  MxpegItem DiscardWhenTooLarge();
  bool Lacks(std::size_t count);
  std::uint8_t At(std::size_t offset) const { return m_Buffer[m_At + offset]; }

  std::size_t m_MaxPicture;
  std::size_t m_Capacity;
  std::unique_ptr<std::uint8_t[]> m_Buffer;
  std::size_t m_Begin = 0;  // bytes before are done with
  std::size_t m_At = 0;     // where to look next; beyond m_End while a segment has not arrived entirely
  std::size_t m_End = 0;
  Place m_Place = Place::kBetween;
  bool m_Starved = false;
  bool m_BehindSound = false;
  std::size_t m_DoubtUntil = 0;  // up to there a picture without a comment may be part of a damaged one

  // The picture at hand.
  std::size_t m_Segment = 0;  // the marker whose length led to m_At
  bool m_SawFrameHeader = false;
  bool m_SawComment = false;
  bool m_SawScan = false;
  bool m_Discarding = false;  // it is too large already
};

}  // namespace oculora
