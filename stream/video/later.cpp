// HLS, MxPEG, decoding and forwarding come with later versions; until then their operations say so.
#include "videoStreaming.h"
#include "video_unit.h"

namespace {

constexpr char kNotAvailable[] = "HLS is not available in this version.";

}  // namespace

void VideoStreamingHandler::HandleOpen(Camera&) {
  SetErrorCode(kErrNotAvailable, "Open", kNotAvailable);
  WriteErrorResponse(Json::Value());
}

void VideoStreamingHandler::HandleClose(Camera&) {
  SetErrorCode(kErrNotAvailable, "Close", kNotAvailable);
  WriteErrorResponse(Json::Value());
}

void VideoStreamingHandler::OutputM3u8() { PrintPlainText("Unsupported format.\n\r"); }

void VideoStreamingHandler::OutputHls(const std::string&) { PrintPlainText("Unsupported format.\n\r"); }

void VideoStreamingHandler::LiveviewMxpegCam() { PrintPlainText("Format not supported.\n\r"); }

void VideoStreamingHandler::LiveviewMpeg4CamByMjpg() { PrintPlainText("Format not supported.\n\r"); }

void VideoStreamingHandler::ForwardStream() { PrintPlainText("Format not supported.\n\r"); }
