// Keeps FFmpeg from printing, and remembers the one thing only its log tells.
#include "recorder/av/quiet_log.h"

#include <atomic>
#include <cstring>

#include "recorder/av/ffmpeg.h"

namespace oculora {
namespace {

std::atomic<bool> g_NameLookupFailed{false};  // FFmpeg logs from threads of its own

void OnLine(void*, int level, const char* format, va_list) {
  if (level <= AV_LOG_ERROR && std::strstr(format, "resolve hostname") != nullptr) g_NameLookupFailed = true;
}

}  // namespace

void QuietFfmpegLog() { av_log_set_callback(OnLine); }

bool TakeNameLookupFailed() { return g_NameLookupFailed.exchange(false); }

}  // namespace oculora
