// What a muxer needs to know about a camera's stream, from its frames.
#include "recorder/recording/stream_parameters.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "velm/camera.h"

namespace oculora {
namespace {

constexpr std::uint8_t kGroupOfPictures = 0xb3;
constexpr std::uint8_t kPicture = 0xb6;
constexpr std::uint8_t kFirstLayer = 0x20;  // of sixteen

struct ParserDeleter {
  void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};

bool SetExtradata(AVCodecParameters& parameters, Bytes bytes) {
  parameters.extradata = static_cast<std::uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (parameters.extradata == nullptr) return false;
  std::copy(bytes.begin(), bytes.end(), parameters.extradata);
  parameters.extradata_size = static_cast<int>(bytes.size());
  return true;
}

// Reads header and frame for the picture's size; nothing is decoded.
bool ReadSize(AVCodecParameters& parameters, Bytes keyFrame) {
  const AvPtr<AVCodecContext> context(avcodec_alloc_context3(nullptr));
  const std::unique_ptr<AVCodecParserContext, ParserDeleter> parser(av_parser_init(parameters.codec_id));
  if (!context || !parser || avcodec_parameters_to_context(context.get(), &parameters) < 0) return false;
  parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  std::vector<std::uint8_t> padded(keyFrame.size() + AV_INPUT_BUFFER_PADDING_SIZE);
  std::copy(keyFrame.begin(), keyFrame.end(), padded.begin());
  std::uint8_t* out = nullptr;
  int outSize = 0;
  av_parser_parse2(parser.get(), context.get(), &out, &outSize, padded.data(), static_cast<int>(keyFrame.size()),
                   AV_NOPTS_VALUE, AV_NOPTS_VALUE, -1);
  parameters.width = parser->width > 0 ? parser->width : context->width;
  parameters.height = parser->height > 0 ? parser->height : context->height;
  return parameters.width > 0 && parameters.height > 0;
}

}  // namespace

AVCodecID Mp4CodecOf(std::int32_t videoType) {
  switch (videoType) {
    case VIDEO_TYPE_H264:
    case VIDEO_TYPE_H264_PLUS:
      return AV_CODEC_ID_H264;
    case VIDEO_TYPE_MPEG4:
      return AV_CODEC_ID_MPEG4;
    default:
      return AV_CODEC_ID_NONE;
  }
}

Bytes Mpeg4Header(Bytes frame) {
  bool hasLayer = false;
  for (std::size_t i = 0; i + 3 < frame.size(); ++i) {
    if (frame[i] != 0 || frame[i + 1] != 0 || frame[i + 2] != 1) continue;
    const std::uint8_t code = frame[i + 3];
    hasLayer = hasLayer || (code & 0xf0) == kFirstLayer;
    if (code == kPicture || code == kGroupOfPictures) return frame.first(hasLayer ? i : 0);
  }
  return {};
}

AvPtr<AVCodecParameters> MakeStreamParameters(AVCodecID codec, Bytes header, Bytes keyFrame) {
  AvPtr<AVCodecParameters> parameters(avcodec_parameters_alloc());
  if (!parameters) return nullptr;
  parameters->codec_type = AVMEDIA_TYPE_VIDEO;
  parameters->codec_id = codec;
  if (!SetExtradata(*parameters, header) || !ReadSize(*parameters, keyFrame)) return nullptr;
  return parameters;
}

}  // namespace oculora
