// Where a camera's packets come from.
#pragma once

#include <memory>
#include <string>

#include "recorder/av/ffmpeg.h"
#include "recorder/sources/address.h"

namespace oculora {

// One connection. Open once, then Read until it fails; the destructor closes.
class Source {
 public:
  virtual ~Source() = default;

  // Connects; takes at most kAnswerTimeoutMs. False with a sentence in `reason`.
  virtual bool Open(std::string& reason) = 0;
  // Waits for the next frame, whose bytes may be the source's own, good until the next call; at most kAnswerTimeoutMs
  // for a camera, until its time has come for a file. False with a sentence in `reason`, or because StopRequested().
  virtual bool Read(AVPacket& packet, std::string& reason) = 0;

  // What the packets hold; valid after Open.
  virtual const AVCodecParameters& Parameters() const = 0;
  virtual AVRational TimeBase() const = 0;
};

// The source of a camera. `fps` 0: its own pace. `expected` is the codec the camera is set up for; generated pictures
// come in it. Null with a sentence in `reason` when the address is off.
std::unique_ptr<Source> MakeSource(const std::string& source, AVCodecID expected, int fps, std::string& reason);

}  // namespace oculora
