// MxPEG, decoding and forwarding come with later versions; until then their operations say so.
#include "videoStreaming.h"
#include "video_unit.h"

void VideoStreamingHandler::LiveviewMxpegCam() { PrintPlainText("Format not supported.\n\r"); }

void VideoStreamingHandler::LiveviewMpeg4CamByMjpg() { PrintPlainText("Format not supported.\n\r"); }

void VideoStreamingHandler::ForwardStream() { PrintPlainText("Format not supported.\n\r"); }
