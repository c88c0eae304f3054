// The MPEG-TS segmenter: turns raw H.264 from a pipe into two-second slices and a live playlist, without decoding.
//
// Every live-video handler holds an H264TS. Its state is plain pointers and numbers, so holding an idle one loads no
// media library: the operations stand in a shared object of their own (oculora-segmenter.so), which only a remux
// process loads and calls through SegmenterCalls.
#pragma once

#include <cstdint>

struct AVFormatContext;
struct AVPacket;
struct AVStream;
class EncoderMP3;

// Results of the operations.
enum SEGMENTER_RESULT : std::int32_t {
  SEGMENTER_OK = 0,
  SEGMENTER_NO_HEADER = 1,         // the output header could not be written
  SEGMENTER_NOT_OPENED = 2,        // input, output context or output file could not be opened
  SEGMENTER_NO_STREAM = 3,         // no stream information, or no video stream could be added
  SEGMENTER_NOT_VIDEO = 4,         // the input stream is not video
  SEGMENTER_NO_INPUT = 5,          // the output was to be opened before an input
  SEGMENTER_NOT_H264 = 6,          // the input is not raw H.264
  SEGMENTER_BEFORE_KEY_FRAME = 7,  // the packet was dropped: no key frame came yet
  SEGMENTER_NO_MEMORY = 8,
};

// One transcode: OpenInputFile, OpenOutputFile, StartTransCode, in this order and once. One thread, except
// StopTransCode. A failed open closes what it opened.
class __attribute__((visibility("default"))) H264TS {
 public:
  H264TS() = default;
  ~H264TS() { StopTransCode(); }
  H264TS(const H264TS&) = delete;
  H264TS& operator=(const H264TS&) = delete;

  // Opens raw H.264, a pipe as a rule, and reads about a tenth of a second to learn about it. Blocks until the other
  // end of a pipe is open and so much has come; data that is no video is given up after 1 MiB or at its end.
  // SEGMENTER_OK, _NOT_OPENED, _NO_STREAM or _NOT_H264.
  int OpenInputFile(const char* url);
  // Prepares slices named by `pattern` ("DIR/%d.ts"). SEGMENTER_OK, _NOT_OPENED, _NO_STREAM or _NO_INPUT.
  int OpenOutputFile(const char* pattern);
  // Adds the video stream of the output; called by OpenOutputFile. SEGMENTER_OK or _NO_MEMORY.
  int AddVideoStream(int codecId);
  // Copies what the slices must know about the video from input to output; called by StartTransCode. SEGMENTER_OK,
  // _NOT_VIDEO or _NO_MEMORY.
  int InitParam();
  // Writes slices and the playlist at `playlistPath`, its entries being `entryPrefix` and the slice's file name, until
  // the input ends or StopTransCode was called; blocks as long. `fps` paces the time stamps; below 1 means 10. Closes
  // everything. SEGMENTER_OK, _NO_HEADER or _NO_MEMORY.
  int StartTransCode(const char* playlistPath, const char* entryPrefix, int fps);
  // Stamps a packet and writes it. SEGMENTER_OK or _BEFORE_KEY_FRAME.
  int DoStreamCopy(AVPacket* packet);
  // Asks a running transcode, in another thread, to end before its next read. Always 0. Never blocks. Not looked at by
  // ThreadSanitizer: the flag is plain on purpose.
  __attribute__((no_sanitize("thread"))) int StopTransCode() {
    m_Running = false;
    return 0;
  }
  // Closes and frees input and output. Harmless when repeated.
  void CleanResource();

 private:
  [[maybe_unused]] AVFormatContext* m_Input = nullptr;
  [[maybe_unused]] AVFormatContext* m_Output = nullptr;
  [[maybe_unused]] AVStream* m_OutputStream = nullptr;
  [[maybe_unused]] void* m_Reserved1 = nullptr;
  [[maybe_unused]] AVStream* m_InputStream = nullptr;
  [[maybe_unused]] void* m_Reserved2 = nullptr;
  [[maybe_unused]] std::int64_t m_BytesWritten = 0;
  [[maybe_unused]] std::int32_t m_FrameCount = 0;
  [[maybe_unused]] std::int32_t m_FrameDuration = 0;
  bool m_Running = false;  // one thread clears it, the other looks at it between reads
};

// How a process that loaded the object reaches it.
struct SegmenterCalls {
  std::int32_t version;  // kSegmenterVersion
  void (*init)();        // FFMPG_Init
  int (H264TS::*openInputFile)(const char* url);
  int (H264TS::*openOutputFile)(const char* pattern);
  int (H264TS::*startTransCode)(const char* playlistPath, const char* entryPrefix, int fps);
};
constexpr std::int32_t kSegmenterVersion = 1;
using SegmenterCallsFunction = const SegmenterCalls* (*)();

extern "C" {
// Readies the media library: it prints nothing from now on. Forgets an MP3 encoder (it is not destroyed).
void FFMPG_Init();
// The process's one MP3 encoder, made on first use, and its end. For other users of the object. Not thread-safe.
EncoderMP3* FFMPG_GetEncoderMp3Instance();
void FFMPG_FreeEncoderMp3Instance();
const SegmenterCalls* FFMPG_GetSegmenterCalls();
}
