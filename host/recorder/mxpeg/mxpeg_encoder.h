// Compresses pictures to MxPEG: now and then a whole JPEG, in between only the blocks that changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "recorder/mxpeg/block_picture.h"

namespace oculora {

struct MxpegSettings {
  int width = 0;  // both from 16 to 8192, odd ones too
  int height = 0;
  int quality = 80;      // 1 to 100
  int keyInterval = 25;  // a key picture at least every so many pictures; 1: nothing else
  int noise = 0;         // a block counts as changed when a sample moved by more than this (0 to 255)
};

// Not for several threads at once; objects are independent. After Open and the first key and delta picture it allocates
// nothing of its own per picture (the compressor behind it has its own small pools).
class MxpegEncoder {
 public:
  // `bytes` stay valid until the next call; empty when the picture could not be compressed (out of memory).
  struct Coded {
    std::span<const std::uint8_t> bytes;
    bool key = false;
  };

  // Once, before anything else. False with a sentence in `reason` when the settings are out of range.
  bool Open(const MxpegSettings& settings, std::string& reason);

  // Compresses a picture of the opened size; `timestampUs` is what its comment segment says (microseconds since 1970).
  // The first picture is a key picture, and so is one of which most has changed.
  Coded Encode(const PlanarPicture& picture, std::int64_t timestampUs);

  // The next picture is a key picture.
  void ForceKey() { m_UntilKey = 0; }

 private:
  struct Release {
    void operator()(void* compressor) const;
  };

  bool FindChanges();
  void TakeChanges();
  std::span<std::uint8_t> Compress(const BlockPicture& picture, int width, int height);
  std::span<const std::uint8_t> CodeKey(std::int64_t timestampUs);
  std::span<const std::uint8_t> CodeDelta(std::int64_t timestampUs);
  void PutMask(std::uint8_t* segment, std::size_t size) const;

  MxpegSettings m_Settings;
  int m_Columns = 0, m_Rows = 0;  // in blocks
  int m_MostChanges = 0;          // more, and the picture becomes a key picture
  int m_UntilKey = 0;
  BlockPicture m_Current;  // the picture given last
  BlockPicture m_Sent;     // what viewers have, but for the losses of compression
  BlockPicture m_Strip;    // the changed blocks side by side
  std::vector<int> m_Changed;
  std::size_t m_Room = 0;           // for our own segments
  std::vector<std::uint8_t> m_Out;  // the room, then the JPEG that was made
  std::unique_ptr<void, Release> m_Compressor;
};

}  // namespace oculora
