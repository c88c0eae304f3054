// Chooses the source of a camera.
#include "recorder/sources/source.h"

#include "recorder/sources/file_source.h"
#include "recorder/sources/http_source.h"
#include "recorder/sources/mxpeg_source.h"
#include "recorder/sources/mxpeg_test_source.h"
#include "recorder/sources/rtsp_source.h"
#include "recorder/sources/test_source.h"

namespace oculora {

std::unique_ptr<Source> MakeSource(const std::string& source, AVCodecID expected, int fps, std::string& reason) {
  const SourceAddress address = ParseSource(source);
  const bool mxpeg = expected == AV_CODEC_ID_MXPEG;
  switch (address.kind) {
    case SourceKind::kRtsp:
      if (mxpeg) {
        reason = "MxPEG cameras are reached over http://, not " + address.scheme + "://";
        return nullptr;
      }
      return std::make_unique<RtspSource>(address);
    case SourceKind::kHttp:
      if (mxpeg) return std::make_unique<MxpegSource>(address, fps);
      return std::make_unique<HttpSource>(address, expected);
    case SourceKind::kFile:
      if (mxpeg) return std::make_unique<MxpegSource>(address, fps);
      return std::make_unique<FileSource>(address, fps);
    case SourceKind::kTest:
      if (mxpeg) return std::make_unique<MxpegTestSource>(address, fps);
      return std::make_unique<TestSource>(address, expected, fps);
    case SourceKind::kUnknown:
      break;
  }
  reason = address.scheme.empty() ? "The camera has no source"
                                  : "Sources of the kind " + address.scheme.substr(0, 16) + ":// are not supported";
  return nullptr;
}

}  // namespace oculora
