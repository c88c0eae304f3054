// A segmenter that behaves as /tmp/segmenter/mode says: "read", "slow", "unread" (opens the pipe and leaves it), "late"
// (opens it after a while), "deaf" (never comes back from its first call), or "input:N", "output:N", "transcode:N":
// that call fails with N. Notes what it was given and what it read beside the mode.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "ffmpegWrap.h"

namespace {

int g_Pipe = -1;

std::string Mode() {
  std::ifstream file("/tmp/segmenter/mode");
  return {std::istreambuf_iterator<char>(file), {}};
}

// Notes a call; the result that the mode prescribes for it.
int Enter(const std::string& call, const std::string& arguments) {
  std::ofstream("/tmp/segmenter/calls", std::ios::app) << call << " " << arguments << "\n";
  const std::string mode = Mode();
  return mode.rfind(call + ":", 0) == 0 ? std::atoi(mode.c_str() + call.size() + 1) : 0;
}

}  // namespace

int H264TS::OpenInputFile(const char* url) {
  const int result = Enter("input", url);
  if (Mode() == "deaf") pause();  // signals go to the other thread
  if (Mode() == "late") usleep(100000);
  if (result != 0) return result;
  g_Pipe = open(url, O_RDONLY | O_CLOEXEC);
  return g_Pipe < 0 ? SEGMENTER_NOT_OPENED : SEGMENTER_OK;
}

int H264TS::OpenOutputFile(const char* pattern) { return Enter("output", pattern); }

int H264TS::StartTransCode(const char* playlistPath, const char* entryPrefix, int fps) {
  if (const int result = Enter("transcode", entryPrefix + (" " + std::to_string(fps)))) return result;
  std::ofstream(playlistPath) << entryPrefix << std::string(200, '#');
  pollfd pipe{g_Pipe, 0, 0};
  if (Mode() == "unread") poll(&pipe, 1, -1);  // until the writer closes its end
  std::ofstream copy("/tmp/segmenter/bytes", std::ios::binary);
  static char buffer[65536];
  for (ssize_t got; Mode() != "unread" && (got = read(g_Pipe, buffer, sizeof(buffer))) > 0;) {
    copy.write(buffer, got).flush();
    if (Mode() == "slow") usleep(3000);
  }
  close(g_Pipe);
  std::ofstream("last.ts") << "what a segmenter writes at its end";
  return SEGMENTER_OK;
}

extern "C" void FFMPG_Init() { Enter("init", ""); }

extern "C" __attribute__((visibility("default"))) const SegmenterCalls* FFMPG_GetSegmenterCalls() {
  static const SegmenterCalls calls = {kSegmenterVersion, FFMPG_Init, &H264TS::OpenInputFile, &H264TS::OpenOutputFile,
                                       &H264TS::StartTransCode};
  return &calls;
}
