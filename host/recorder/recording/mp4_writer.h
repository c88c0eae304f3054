// Writes H.264 and MPEG-4 frames to an MP4 file that plays while it grows.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "recorder/frames/annexb.h"

namespace oculora {

enum class Mp4Write {
  kWritten,
  kNewFile,  // the camera's parameters changed: the frame was not taken, it begins the next file
  kFailed,   // see Error(); nothing more is written to this file
};

// One file from Open to Close; FinishMp4 then completes it, whatever had happened. Frames are copied into a fragment in
// memory, which goes to the file with the first key frame after a second, after ten seconds or at 8 MiB. Not
// thread-safe.
class Mp4Writer {
 public:
  Mp4Writer();
  ~Mp4Writer();  // closes
  Mp4Writer(const Mp4Writer&) = delete;
  Mp4Writer& operator=(const Mp4Writer&) = delete;

  // Makes the file at `path` (which must not exist) and writes its header. `videoType` is a CAM_VIDEO_TYPE of H.264 or
  // MPEG-4, `keyFrame` the frame that the recording begins with (it is not written; H.264: a byte stream with SPS and
  // PPS) and `extra` the ring's extra data, which may be empty. `secondsReserved` is how long the file gets at most: so
  // much place is kept for its index. False with a sentence in `reason`, and Error() when it was the disk; no file is
  // left.
  bool Open(const std::string& path, std::int32_t videoType, Bytes keyFrame, Bytes extra, std::int32_t secondsReserved,
            std::string& reason);

  // Takes a frame, the first one a key frame. `timestampUs` is when it arrived; see FrameTimes. Blocks while the disk
  // takes a fragment.
  Mp4Write Write(Bytes frame, bool key, std::int64_t timestampUs);

  // Whether extra data that the ring tells now calls for a new file. To be asked before key frames of MPEG-4, whose
  // parameters need not stand in the frames; never true for H.264.
  bool IsOtherExtra(Bytes extra) const;

  // Has what is in the file so far put on the disk (fdatasync). False: see Error().
  bool Sync();
  // Writes the fragment in memory and closes the file. False when that, or anything before it, failed; see Error().
  // Repeated it does nothing and returns the same.
  bool Close();

  // Size of the file, were it closed now.
  std::int64_t BytesWritten() const;
  // The errno of what failed first; 0: nothing did.
  int Error() const;

 private:
  class Impl;
  std::unique_ptr<Impl> m_Impl;
};

}  // namespace oculora
