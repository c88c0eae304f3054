// A generated MxPEG camera, with sound.
#include "recorder/sources/mxpeg_test_source.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "recorder/clock.h"
#include "recorder/frames/mxpeg_frames.h"
#include "recorder/sources/test_picture.h"
#include "recorder/sources/test_source.h"
#include "recorder/sources/wait.h"

namespace oculora {
namespace {

constexpr double kLoudness = 1000;  // of 32767

void Hand(std::span<const std::uint8_t> bytes, int kind, AVPacket& packet) {
  packet.stream_index = kind;
  packet.data = const_cast<std::uint8_t*>(bytes.data());  // FFmpeg knows no packets that are only read
  packet.size = static_cast<int>(bytes.size());
}

}  // namespace

MxpegTestSource::MxpegTestSource(SourceAddress address, int fps)
    : m_Address(std::move(address)),
      m_Fps(fps > 0 ? std::min(fps, kMaxTestFps) : kTestFps),
      m_Pacer(m_Fps),
      m_Parameters(avcodec_parameters_alloc()),
      m_Picture(av_frame_alloc()) {
  for (std::size_t i = 0; i < m_Wave.size(); ++i) {
    const double turns = static_cast<double>(i) / static_cast<double>(m_Wave.size());
    m_Wave[i] = AlawFromLinear(static_cast<std::int16_t>(kLoudness * std::sin(2 * std::numbers::pi * turns)));
  }
}

bool MxpegTestSource::Open(std::string& reason) {
  MxpegSettings settings;
  if (!ParseTestSize(m_Address.target, settings.width, settings.height)) {
    reason = kTestSizes;
    return false;
  }
  settings.keyInterval = m_Fps;
  if (!m_Encoder.Open(settings, reason)) return false;
  reason = "Out of memory";
  if (!m_Parameters || !m_Picture) return false;
  m_Parameters->codec_type = AVMEDIA_TYPE_VIDEO;
  m_Parameters->codec_id = AV_CODEC_ID_MXPEG;
  m_Picture->format = AV_PIX_FMT_YUVJ420P;
  m_Picture->width = settings.width;
  m_Picture->height = settings.height;
  return av_frame_get_buffer(m_Picture.get(), 0) == 0;
}

bool MxpegTestSource::Read(AVPacket& packet, std::string& reason) {
  av_packet_unref(&packet);
  if (!m_SoundNext) return ReadPicture(packet, reason);
  ReadSound(packet);
  return true;
}

bool MxpegTestSource::ReadPicture(AVPacket& packet, std::string& reason) {
  if (!WaitUntilUs(m_Pacer.NextDueUs(MonotonicUs(), std::nullopt, 0))) return false;
  const std::int64_t nowUs = WallClockUs();
  DrawTestPicture(*m_Picture, nowUs);
  const AVFrame& picture = *m_Picture;
  const auto coded = m_Encoder.Encode({{picture.data[0], picture.data[1], picture.data[2]},
                                       {picture.linesize[0], picture.linesize[1], picture.linesize[2]}},
                                      nowUs);
  if (coded.bytes.empty()) {
    reason = "The test pattern could not be compressed";
    return false;
  }
  Hand(coded.bytes, kMxpegPicture, packet);
  ++m_Pictures;
  m_SoundNext = true;
  return true;
}

void MxpegTestSource::ReadSound(AVPacket& packet) {
  m_SoundNext = false;
  const std::int64_t end = m_Pictures * kAlawRate / m_Fps;
  m_Sound.clear();
  for (; m_Samples < end; ++m_Samples) m_Sound.push_back(m_Wave[static_cast<std::size_t>(m_Samples) % m_Wave.size()]);
  Hand(m_Sound, kMxpegSound, packet);
}

}  // namespace oculora
