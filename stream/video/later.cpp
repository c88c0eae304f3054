// Forwarding to recording servers comes with a later version; until then it says so.
#include "videoStreaming.h"
#include "video_unit.h"

void VideoStreamingHandler::ForwardStream() { PrintPlainText("Format not supported.\n\r"); }
