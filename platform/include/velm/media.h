// Media helpers of the host: decoding a key frame, JPEG compression, recorded files of JPEG frames.
//
// The libraries behind them are large; the host loads them on the first call, so a request that needs none pays
// nothing. One thread per FFmpegAttr.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

// State of one decoder; zero-initialise before DoFFMpegInitVideo, release with DoFFMpegFree.
struct FFmpegAttr {
  void* codecContext;
  void* frame;
  void* scaler;
  std::int32_t width;   // decoded width in pixels, after a successful decode
  std::int32_t height;  // decoded height in pixels, after a successful decode
};

// Opens a decoder for a CAM_VIDEO_TYPE with its codec extra data (copied). 0 or -1.
int DoFFMpegInitVideo(FFmpegAttr& attr, int videoType, const unsigned char* extra, int extraSize);
// Decodes one access unit; on 0 the picture's size stands in `attr`. -1 when it gave no picture.
int DoFFMpegDecode(FFmpegAttr& attr, const unsigned char* frame, int size);
// Scales the decoded picture to `width` x `height` (0 x 0 keeps its size; both are set to the size used) in the pixel
// format `pixelFormat` (an AVPixelFormat value). `data` is allocated here and freed by DoFFMpegFree. 0 or -1.
int DoFFMpegScale(FFmpegAttr& attr, unsigned char*& data, int& size, int& width, int& height, int pixelFormat);
// Releases everything; harmless on a zeroed `attr`.
void DoFFMpegFree(FFmpegAttr& attr, unsigned char*& data);
// Compresses packed RGB24 into `jpeg` (at most `capacity` bytes). `quality` 1 to 100, -1 for the host's default.
// 0 and `jpegSize` on success, -1 otherwise (also when it does not fit).
int EncodeToJpeg(int width, int height, const unsigned char* rgb, unsigned char* jpeg, int capacity, int& jpegSize,
                 int quality);

struct __tag_JPEG_FRAME_INFO {
  float frameRate;          // frames a second
  std::int32_t frameCount;  // frames in the file
};

// Reads the JPEG frames of a recorded file. Each call blocks on the disk only.
class JpegExtractor {
 public:
  JpegExtractor();
  ~JpegExtractor();
  int Init(const std::string& path);                                     // 0 or -1
  int GetFrameInfo(__tag_JPEG_FRAME_INFO& info);                         // 0 or -1
  int ReadFrame(unsigned index, unsigned char* buffer, unsigned& size);  // `size`: capacity in, length out

 private:
  struct Impl;
  std::unique_ptr<Impl> m_Impl;
};

// An integer shared between processes, named by a key that the client chose.
class ProgressIndicator {
 public:
  ProgressIndicator(long long key, bool create, bool keep);
  ~ProgressIndicator();
  int Set(int value);  // 0 or -1
  int Get();           // -1: nothing was set

 private:
  struct Impl;
  std::unique_ptr<Impl> m_Impl;
};

// MP3 encoder of the host's FFmpeg utilities; only created and destroyed by callers here.
class EncoderMP3 {
 public:
  EncoderMP3();
  ~EncoderMP3();

 private:
  struct Impl;
  std::unique_ptr<Impl> m_Impl;
};
