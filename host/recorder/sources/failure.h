// Why a source failed, in words for the person in front of the page. Never with a password.
#pragma once

#include <string>

#include "recorder/av/ffmpeg.h"
#include "recorder/sources/address.h"

namespace oculora {

constexpr int kAnswerTimeoutMs = 10000;  // how long a camera may take to answer, or be silent between two pictures

// For a source that could not be opened with AVERROR `code`; `timedOut`: because its time was over.
std::string OpenFailure(int code, const SourceAddress& address, bool timedOut);
// For one that ended while it ran.
std::string ReadFailure(int code, const SourceAddress& address, bool timedOut);
// For a stream whose codec is not the one the camera is set up for.
std::string WrongCodec(AVCodecID sent, AVCodecID expected);

}  // namespace oculora
