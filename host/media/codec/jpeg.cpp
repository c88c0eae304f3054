// RGB to JPEG, into the caller's room and no further.
#include <turbojpeg.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "media/codec/codec.h"

namespace oculora {
namespace {

constexpr int kDefaultQuality = 80;
constexpr int kMostSide = 65500;  // of a JPEG; the library allocates by the height before it checks
constexpr int kSubsampling = TJSAMP_420;

struct HandleDeleter {
  void operator()(void* handle) const { tjDestroy(handle); }
};
struct FreeDeleter {
  void operator()(void* memory) const { std::free(memory); }
};

}  // namespace

MediaResult EncodeJpeg(int width, int height, const unsigned char* rgb, unsigned char* jpeg, int capacity,
                       int& jpegSize, int quality) {
  jpegSize = 0;
  const bool isSize = width > 0 && height > 0 && width <= kMostSide && height <= kMostSide;
  const bool isQuality = quality == -1 || (quality >= 1 && quality <= 100);
  if (!isSize || !isQuality || rgb == nullptr || jpeg == nullptr || capacity <= 0) return kMediaFailed;
  const std::unique_ptr<void, HandleDeleter> compressor(tjInitCompress());
  const unsigned long most = tjBufSize(width, height, kSubsampling);
  if (!compressor || most == static_cast<unsigned long>(-1)) return kMediaFailed;

  // The compressor does not look at the capacity: it takes the room to be that of the largest picture possible.
  std::unique_ptr<unsigned char, FreeDeleter> own;
  if (static_cast<unsigned long>(capacity) < most) {
    own.reset(static_cast<unsigned char*>(std::malloc(most)));
    if (!own) return kMediaFailed;
  }
  unsigned char* const room = own ? own.get() : jpeg;
  unsigned char* out = room;
  unsigned long size = most;
  if (tjCompress2(compressor.get(), rgb, width, 0, height, TJPF_RGB, &out, &size, kSubsampling,
                  quality == -1 ? kDefaultQuality : quality, TJFLAG_NOREALLOC | TJFLAG_ACCURATEDCT) != 0 ||
      size > static_cast<unsigned long>(capacity)) {
    return kMediaFailed;
  }
  if (own) std::memcpy(jpeg, room, size);
  jpegSize = static_cast<int>(size);
  return kMediaDone;
}

}  // namespace oculora
