// How cameras are asked over HTTP, and which answers may hold pictures.
#include "recorder/sources/http_asking.h"

#include "recorder/sources/failure.h"

namespace oculora {

void SetHttpOptions(Dictionary& options) {
  options.Set("timeout", kAnswerTimeoutMs * 1000LL);
  options.Set("user_agent", "oculora-recorder");
}

bool MayBePictures(const std::string& mime) {
  if (mime.empty() || mime == "application/octet-stream") return true;
  for (const char* kind : {"multipart/", "image/", "video/"}) {
    if (mime.rfind(kind, 0) == 0) return true;
  }
  return false;
}

}  // namespace oculora
