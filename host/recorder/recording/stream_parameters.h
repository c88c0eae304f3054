// What a muxer needs to know about a camera's stream, from its frames.
#pragma once

#include <cstdint>

#include "recorder/av/ffmpeg.h"
#include "recorder/frames/annexb.h"

namespace oculora {

// The codec of a CAM_VIDEO_TYPE that MP4 files are written for; AV_CODEC_ID_NONE for others.
AVCodecID Mp4CodecOf(std::int32_t videoType);

// What an MPEG-4 frame begins with before its picture: the stream's header, empty when it does not stand in the frame.
Bytes Mpeg4Header(Bytes frame);

// Parameters of a stream of `codec` with that header (H.264: SPS and PPS as a byte stream), which contains `keyFrame`.
// Null when they tell no picture size, or without memory.
AvPtr<AVCodecParameters> MakeStreamParameters(AVCodecID codec, Bytes header, Bytes keyFrame);

}  // namespace oculora
