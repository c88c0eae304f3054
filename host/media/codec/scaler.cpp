// From the decoded picture to one of the size and pixel format asked for, packed.
#include <cstring>

#include "media/codec/codec.h"
#include "media/codec/ffmpeg.h"

namespace oculora {
namespace {

constexpr int kStrideAlignment = 64;  // the scaler writes whole vectors, beyond the end of a row too

// Averages over areas come as close to a picture as bicubic filters when it shrinks, at little more than half the work.
int ScalerFlags(const AVFrame& frame, int width, int height) {
  return width <= frame.width && height <= frame.height ? SWS_AREA : SWS_BICUBIC;
}

bool IsSizeAllowed(int width, int height) {
  return width > 0 && height > 0 && std::int64_t{width} * height <= kMostPixels;
}

bool SetUpScaler(FFmpegAttr& attr, const AVFrame& frame, int width, int height, AVPixelFormat format) {
  const auto from = static_cast<AVPixelFormat>(frame.format);
  SwsContext* scaler = sws_getCachedContext(ScalerOf(attr), frame.width, frame.height, from, width, height, format,
                                            ScalerFlags(frame, width, height), nullptr, nullptr, nullptr);
  attr.scaler = scaler;
  if (scaler == nullptr) return false;

  // The camera's matrix and range, where it says them; else those of the pixel formats and BT.601.
  int* table = nullptr;
  int fromFull = 0, toFull = 0, brightness = 0, contrast = 0, saturation = 0;
  if (sws_getColorspaceDetails(scaler, &table, &fromFull, &table, &toFull, &brightness, &contrast, &saturation) < 0) {
    return true;  // neither side has a matrix
  }
  if (frame.color_range != AVCOL_RANGE_UNSPECIFIED) fromFull = frame.color_range == AVCOL_RANGE_JPEG ? 1 : 0;
  const int* matrix = sws_getCoefficients(frame.colorspace);
  sws_setColorspaceDetails(scaler, matrix, fromFull, matrix, toFull, brightness, contrast, saturation);
  return true;
}

// Rows as the scaler wrote them.
struct Planes {
  uint8_t* data[4] = {};
  int linesize[4] = {};
};

// Moves all rows to the beginning of the buffer, without the gaps between them. Returns the bytes used.
int Pack(unsigned char* buffer, const Planes& planes, int width, int height, AVPixelFormat format) {
  const AVPixFmtDescriptor& description = *av_pix_fmt_desc_get(format);
  unsigned char* end = buffer;
  for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
    const bool isChroma = plane == 1 || plane == 2;
    const int rows = isChroma ? AV_CEIL_RSHIFT(height, description.log2_chroma_h) : height;
    const auto rowSize = static_cast<std::size_t>(av_image_get_linesize(format, width, plane));
    for (int row = 0; row < rows; ++row, end += rowSize) {
      const unsigned char* from = planes.data[plane] + static_cast<std::ptrdiff_t>(row) * planes.linesize[plane];
      if (from != end) std::memmove(end, from, rowSize);
    }
  }
  return static_cast<int>(end - buffer);
}

}  // namespace

MediaResult Scale(FFmpegAttr& attr, unsigned char*& data, int& size, int& width, int& height, int pixelFormat) {
  av_freep(&data);
  size = 0;
  if (attr.frame == nullptr || attr.width <= 0 || attr.height <= 0) return kMediaFailed;
  const AVFrame& frame = *FrameOf(attr);
  const bool keepSize = width == 0 && height == 0;
  const int toWidth = keepSize ? frame.width : width;
  const int toHeight = keepSize ? frame.height : height;
  const auto format = static_cast<AVPixelFormat>(pixelFormat);
  if (!IsSizeAllowed(toWidth, toHeight) || sws_isSupportedOutput(format) <= 0) return kMediaFailed;

  const int room = av_image_get_buffer_size(format, toWidth, toHeight, kStrideAlignment);
  if (room <= 0) return kMediaFailed;
  BytesPtr buffer(static_cast<unsigned char*>(av_malloc(static_cast<std::size_t>(room) + kStrideAlignment)));
  Planes planes;
  if (!buffer || !SetUpScaler(attr, frame, toWidth, toHeight, format) ||
      av_image_fill_arrays(planes.data, planes.linesize, buffer.get(), format, toWidth, toHeight, kStrideAlignment) <
          0 ||
      sws_scale(ScalerOf(attr), frame.data, frame.linesize, 0, frame.height, planes.data, planes.linesize) !=
          toHeight) {
    return kMediaFailed;
  }
  size = Pack(buffer.get(), planes, toWidth, toHeight, format);
  width = toWidth;
  height = toHeight;
  data = buffer.release();
  return kMediaDone;
}

}  // namespace oculora
