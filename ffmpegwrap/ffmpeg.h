// The FFmpeg headers the segmenter uses, and owners for what it holds while it works.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/log.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

#include <memory>

struct PacketDeleter {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;

// Options by name.
class Options {
 public:
  Options() = default;
  ~Options() { av_dict_free(&m_Dict); }
  Options(const Options&) = delete;
  Options& operator=(const Options&) = delete;

  void Set(const char* name, const char* value) { av_dict_set(&m_Dict, name, value, 0); }
  // For calls that take out what they know and leave the rest.
  AVDictionary** Get() { return &m_Dict; }

 private:
  AVDictionary* m_Dict = nullptr;
};
