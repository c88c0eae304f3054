// Chooses the frame format of a video type.
#include "recorder/frames/frame_format.h"

#include <velm/camera.h>

#include "recorder/frames/h264_frames.h"
#include "recorder/frames/mjpeg_frames.h"
#include "recorder/frames/mpeg4_frames.h"
#include "recorder/frames/mxpeg_frames.h"

namespace oculora {

std::unique_ptr<FrameFormat> MakeFrameFormat(int videoType, std::string& reason) {
  switch (videoType) {
    case VIDEO_TYPE_MJPEG:
      return std::make_unique<MjpegFrames>();
    case VIDEO_TYPE_MPEG4:
      return std::make_unique<Mpeg4Frames>();
    case VIDEO_TYPE_H264:
    case VIDEO_TYPE_H264_PLUS:
      return std::make_unique<H264Frames>();
    case VIDEO_TYPE_MXPEG:
      return std::make_unique<MxpegFrames>();
    default:
      reason = "Cameras of video type " + std::to_string(videoType) + " are not supported by this version";
      return nullptr;
  }
}

AVCodecID CodecOfVideoType(int videoType) {
  switch (videoType) {
    case VIDEO_TYPE_MJPEG:
      return AV_CODEC_ID_MJPEG;
    case VIDEO_TYPE_MPEG4:
      return AV_CODEC_ID_MPEG4;
    case VIDEO_TYPE_MXPEG:
      return AV_CODEC_ID_MXPEG;
    case VIDEO_TYPE_H264:
    case VIDEO_TYPE_H264_PLUS:
      return AV_CODEC_ID_H264;
    default:
      return AV_CODEC_ID_NONE;
  }
}

}  // namespace oculora
