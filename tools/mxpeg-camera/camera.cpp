// What the generated camera sees, hears and sends.
#include "camera.h"

#include <algorithm>
#include <cstdlib>

#include "recorder/mxpeg/mxpeg_sound.h"
#include "recorder/sources/test_picture.h"

namespace oculora {
namespace {

constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int64_t kSampleUs = kSecondUs / kAlawRate;

}  // namespace

bool Camera::Open(const CameraSettings& settings, std::string& reason) {
  m_Settings = settings;
  m_Tone = AlawTone(settings.toneHz);
  if (!settings.video) return true;
  MxpegSettings& mxpeg = m_Settings.mxpeg;
  if (!settings.input.empty()) {
    m_Footage = std::make_unique<Footage>();
    if (!m_Footage->Open(settings.input, reason)) return false;
    if (mxpeg.width == 0) {
      mxpeg.width = m_Footage->Width();
      mxpeg.height = m_Footage->Height();
    }
  }
  if (!m_Encoder.Open(mxpeg, reason)) return false;
  m_Picture.reset(av_frame_alloc());
  reason = "Out of memory";
  if (!m_Picture) return false;
  m_Picture->format = AV_PIX_FMT_YUVJ420P;
  m_Picture->width = mxpeg.width;
  m_Picture->height = mxpeg.height;
  return av_frame_get_buffer(m_Picture.get(), 0) == 0;
}

void Camera::Greet() {
  if (m_Settings.fault != Fault::kDeltaFirst) m_Encoder.ForceKey();
}

bool Camera::Next(std::int64_t timestampUs, Part& part, std::string& reason) {
  part.bytes.clear();
  part.start = true;
  if (m_Settings.video) {
    if (!Draw(timestampUs, reason)) return false;
    const AVFrame& picture = *m_Picture;
    const MxpegEncoder::Coded coded =
        m_Encoder.Encode({{picture.data[0], picture.data[1], picture.data[2]},
                          {picture.linesize[0], picture.linesize[1], picture.linesize[2]}},
                         timestampUs);
    if (coded.bytes.empty()) {
      reason = "A picture could not be compressed";
      return false;
    }
    part.bytes.assign(coded.bytes.begin(), coded.bytes.end());
    part.start = coded.key != (m_Settings.fault == Fault::kDeltaFirst);
    Spoil(m_Settings.fault, m_Number++, part.bytes);
  }
  const bool missing = m_Settings.video && part.bytes.empty();
  AppendSound(timestampUs, part.bytes);
  if (missing) part.bytes.clear();
  m_LastUs = timestampUs;
  return true;
}

bool Camera::Draw(std::int64_t timestampUs, std::string& reason) {
  if (m_Footage == nullptr) {
    DrawTestPicture(*m_Picture, timestampUs);
    return true;
  }
  // The film stands still while nobody watches.
  const std::int64_t step = m_LastUs == 0 ? 0 : std::clamp<std::int64_t>(timestampUs - m_LastUs, 0, kSecondUs);
  return m_Footage->Advance(step, *m_Picture, reason);
}

void Camera::AppendSound(std::int64_t timestampUs, std::vector<std::uint8_t>& out) {
  if (m_Settings.toneHz <= 0) return;
  if (std::abs(m_SoundEndUs - timestampUs) > kSecondUs) m_SoundEndUs = timestampUs;
  const std::int64_t samples = (timestampUs + kSecondUs / m_Settings.fps - m_SoundEndUs) / kSampleUs;
  if (samples <= 0) return;
  m_Samples.resize(static_cast<std::size_t>(samples));
  m_Tone.Fill(m_Samples);
  AppendMxpegSound(m_Samples, m_SoundEndUs, out);
  m_SoundEndUs += samples * kSampleUs;
}

}  // namespace oculora
