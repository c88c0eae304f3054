// Pictures out of a film, looped.
#pragma once

#include <cstdint>
#include <string>

#include "recorder/av/ffmpeg.h"

struct SwsContext;

namespace oculora {

class Footage {
 public:
  Footage() = default;
  ~Footage();
  Footage(const Footage&) = delete;
  Footage& operator=(const Footage&) = delete;

  // False with a sentence in `reason` when there are no pictures in the file.
  bool Open(const std::string& path, std::string& reason);
  int Width() const { return m_Codec->width; }
  int Height() const { return m_Codec->height; }

  // Goes on by `stepUs` microseconds and draws what the film shows then, scaled to the picture. False with a sentence
  // in `reason` when the file cannot be read any more.
  bool Advance(std::int64_t stepUs, AVFrame& picture, std::string& reason);

 private:
  int OpenCodec(const std::string& path);
  bool ReadFrame(std::string& reason);
  int Receive();
  int Rewind();
  bool Scale(AVFrame& picture, std::string& reason);

  AvPtr<AVFormatContext> m_Input;
  AvPtr<AVCodecContext> m_Codec;
  AvPtr<AVPacket> m_Packet;
  AvPtr<AVFrame> m_Shown, m_Next;
  SwsContext* m_Scaler = nullptr;
  int m_Stream = -1;
  std::int64_t m_NowUs = 0;        // on the time line of all loops
  std::int64_t m_NextUs = 0;       // when m_Next is shown
  std::int64_t m_FrameUs = 40000;  // how long a frame is shown
  std::int64_t m_LoopStartUs = 0;  // when this loop began
  bool m_LoopHasFrames = false;
};

}  // namespace oculora
