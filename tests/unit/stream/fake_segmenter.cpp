// A segmenter that behaves as /tmp/segmenter/mode says: "read", "slow", "unread" (opens the pipe and leaves it), "late"
// (opens it after a while), "deaf" (never comes back from its first call), or "input:N", "output:N", "transcode:N":
// that call fails with N. Notes what it was given and what it read beside the mode.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ffmpegWrap.h"

namespace {

int g_Pipe = -1;

std::string Mode() {
  std::ifstream file("/tmp/segmenter/mode");
  return {std::istreambuf_iterator<char>(file), {}};
}

// The result that the mode prescribes for `call`.
int ResultOf(const std::string& call) {
  const std::string mode = Mode();
  return mode.rfind(call + ":", 0) == 0 ? std::atoi(mode.c_str() + call.size() + 1) : 0;
}

void Note(const std::string& line) { std::ofstream("/tmp/segmenter/calls", std::ios::app) << line << "\n"; }

// What the descriptors of this process lead to.
void NoteDescriptors() {
  DIR* dir = opendir("/proc/self/fd");
  while (const dirent* entry = readdir(dir)) {
    char target[256] = "";
    if (entry->d_name[0] == '.' || std::atoi(entry->d_name) == dirfd(dir)) continue;
    if (readlinkat(dirfd(dir), entry->d_name, target, sizeof(target) - 1) > 0) Note(std::string("open ") + target);
  }
  closedir(dir);
}

void ReadAll(bool slowly) {
  const int copy = open("/tmp/segmenter/bytes", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  std::vector<char> buffer(65536);
  for (ssize_t got; (got = read(g_Pipe, buffer.data(), buffer.size())) > 0;) {
    if (write(copy, buffer.data(), static_cast<std::size_t>(got)) != got) Note("lost bytes");
    if (slowly) usleep(3000);
  }
  close(copy);
}

}  // namespace

int H264TS::OpenInputFile(const char* url) {
  Note(std::string("input ") + url);
  if (Mode() == "deaf") pause();  // signals go to the other thread
  if (Mode() == "late") usleep(100000);
  if (const int result = ResultOf("input")) return result;
  g_Pipe = open(url, O_RDONLY | O_CLOEXEC);
  return g_Pipe < 0 ? SEGMENTER_NOT_OPENED : SEGMENTER_OK;
}

int H264TS::OpenOutputFile(const char* pattern) {
  Note(std::string("output ") + pattern);
  return ResultOf("output");
}

int H264TS::StartTransCode(const char* playlistPath, const char* entryPrefix, int fps) {
  Note(std::string("transcode ") + entryPrefix + " " + std::to_string(fps));
  if (const int result = ResultOf("transcode")) return result;
  NoteDescriptors();
  std::ofstream(playlistPath) << entryPrefix << std::string(200, '#');
  pollfd pipe{g_Pipe, 0, 0};
  if (Mode() == "unread") {
    poll(&pipe, 1, -1);  // until the writer closes its end
  } else {
    ReadAll(Mode() == "slow");
  }
  close(g_Pipe);
  std::ofstream("last.ts") << "what a segmenter writes at its end";
  return SEGMENTER_OK;
}

extern "C" void FFMPG_Init() { Note("init"); }

extern "C" __attribute__((visibility("default"))) const SegmenterCalls* FFMPG_GetSegmenterCalls() {
  static const SegmenterCalls calls = {kSegmenterVersion, FFMPG_Init, &H264TS::OpenInputFile, &H264TS::OpenOutputFile,
                                       &H264TS::StartTransCode};
  return &calls;
}
