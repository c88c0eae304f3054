// The FFmpeg headers the media object uses, owners for what they hand out, and what FFmpegAttr holds.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavutil/imgutils.h>
#include <libavutil/log.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <memory>

#include "velm/media.h"

namespace oculora {

struct PacketDeleter {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;

struct FilterDeleter {
  void operator()(AVBSFContext* filter) const { av_bsf_free(&filter); }
};
using FilterPtr = std::unique_ptr<AVBSFContext, FilterDeleter>;

struct MemoryDeleter {
  void operator()(void* memory) const { av_free(memory); }
};
using BytesPtr = std::unique_ptr<unsigned char, MemoryDeleter>;

inline AVCodecContext* CodecOf(const FFmpegAttr& attr) { return static_cast<AVCodecContext*>(attr.codecContext); }
inline AVFrame* FrameOf(const FFmpegAttr& attr) { return static_cast<AVFrame*>(attr.frame); }
inline SwsContext* ScalerOf(const FFmpegAttr& attr) { return static_cast<SwsContext*>(attr.scaler); }

constexpr std::int64_t kMostPixels = 64'000'000;  // of a picture decoded or scaled to

}  // namespace oculora
