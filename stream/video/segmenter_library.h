// The segmenter's shared object, which brings the media library along.
#pragma once

#include "ffmpegWrap.h"

// Its operations, or null with a log line when it cannot be loaded. The first call loads it and takes some tens of
// milliseconds; it stays loaded. For remux processes alone: no request pays for it.
const SegmenterCalls* LoadSegmenter();
