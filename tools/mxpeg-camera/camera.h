// What the generated camera sees, hears and sends.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fault.h"
#include "footage.h"
#include "recorder/mxpeg/alaw.h"
#include "recorder/mxpeg/mxpeg_encoder.h"

namespace oculora {

struct CameraSettings {
  std::string input;  // a film; empty: the test pattern
  MxpegSettings mxpeg;
  int fps = 25;
  double toneHz = 440;  // 0: no sound
  bool video = true;
  Fault fault = Fault::kNone;
};

class Camera {
 public:
  // Without a size (0) the camera has that of the film. False with a sentence in `reason`.
  bool Open(const CameraSettings& settings, std::string& reason);

  // The picture of a time (microseconds since 1970) and, behind it, the sound from where the last one ended until the
  // next picture. `bytes` is empty when there is nothing to send.
  struct Part {
    std::vector<std::uint8_t> bytes;
    bool start = false;  // a viewer may begin here
  };
  // False with a sentence in `reason` when the camera is out of order.
  bool Next(std::int64_t timestampUs, Part& part, std::string& reason);

  // A new viewer waits for a picture to begin with.
  void Greet();

  int Fps() const { return m_Settings.fps; }
  bool SendsVideo() const { return m_Settings.video; }
  Fault Failing() const { return m_Settings.fault; }

 private:
  bool Draw(std::int64_t timestampUs, std::string& reason);
  void AppendSound(std::int64_t timestampUs, std::vector<std::uint8_t>& out);

  CameraSettings m_Settings;
  MxpegEncoder m_Encoder;
  AlawTone m_Tone{0};
  std::vector<std::uint8_t> m_Samples;
  std::unique_ptr<Footage> m_Footage;
  AvPtr<AVFrame> m_Picture;
  std::uint64_t m_Number = 0;     // of the next picture
  std::int64_t m_LastUs = 0;      // time of the last picture
  std::int64_t m_SoundEndUs = 0;  // where the sound sent so far ends
};

}  // namespace oculora
