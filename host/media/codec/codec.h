// The operations of the media object.
#pragma once

#include "media/codec/media_table.h"

namespace oculora {

// Keeps FFmpeg from printing.
void QuietFfmpeg();

MediaResult OpenDecoder(FFmpegAttr& attr, int videoType, const unsigned char* extra, int extraSize);
MediaResult Decode(FFmpegAttr& attr, const unsigned char* unit, int size);
void CloseDecoder(FFmpegAttr& attr);  // the scaler with it

MediaResult Scale(FFmpegAttr& attr, unsigned char*& data, int& size, int& width, int& height, int pixelFormat);

MediaResult EncodeJpeg(int width, int height, const unsigned char* rgb, unsigned char* jpeg, int capacity,
                       int& jpegSize, int quality);

}  // namespace oculora
