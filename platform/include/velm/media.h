// Media helpers of the host: decoding a key frame, JPEG compression, recorded files of JPEG frames.
//
// The libraries behind them are large; the host loads them on the first call, so a request that needs none pays
// nothing. The decoding and JPEG functions work on the thread that calls them and wait for nothing but, once, the disk
// that the libraries come from. One thread at a time per FFmpegAttr; different ones are independent.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

// State of one decoder; zero-initialise before DoFFMpegInitVideo, release with DoFFMpegFree.
struct FFmpegAttr {
  void* codecContext;
  void* frame;
  void* scaler;
  std::int32_t width;   // decoded width in pixels, after a successful decode; else 0
  std::int32_t height;  // decoded height in pixels, after a successful decode; else 0
};

// Opens a decoder for a CAM_VIDEO_TYPE with its codec extra data (copied; null or a size of 0 or less: none). What
// `attr` holds already is released first. H.264 extra data may be a byte stream of parameter sets or "avcC". Damaged
// extra data does no harm where the key frames carry what the decoder needs. 0 or -1; unknown types leave a line in the
// log.
int DoFFMpegInitVideo(FFmpegAttr& attr, int videoType, const unsigned char* extra, int extraSize);
// Decodes one access unit (H.264: a byte stream with start codes; MxPEG: a key picture, whose comments may stand in
// it); on 0 the picture's size stands in `attr`. The picture of this unit comes out at once, also in streams that
// reorder. -1 when it gave no picture; `attr` then takes the next unit all the same.
//
// A damaged picture of H.264 or MPEG-4 counts as one as long as something in it was decoded: a view shows it, with the
// rest as the decoder conceals it, rather than nothing until the next key frame. One that is concealment alone gives
// -1, and so do damaged JPEGs, which know no concealment, and pictures of more than 64 million pixels, the latter with
// a line in the log (once a process).
int DoFFMpegDecode(FFmpegAttr& attr, const unsigned char* frame, int size);
// Scales the decoded picture to `width` x `height` (0 x 0 keeps its size; both are set to the size used) in the pixel
// format `pixelFormat` (an AVPixelFormat value). Rows and planes follow one another without gaps. Matrix and range are
// the stream's; BT.601 where it names no matrix. `data` is null or of an earlier call for this `attr`, which is
// released; it is allocated here and freed by DoFFMpegFree. 0, or -1 (`data` is null then): nothing decoded, a size
// that is not above zero or beyond 64 million pixels, a format that cannot be made.
int DoFFMpegScale(FFmpegAttr& attr, unsigned char*& data, int& size, int& width, int& height, int pixelFormat);
// Releases everything and zeroes it; harmless on a zeroed `attr` and a null `data`.
void DoFFMpegFree(FFmpegAttr& attr, unsigned char*& data);
// Compresses packed RGB24 into `jpeg` (at most `capacity` bytes, 4:2:0). `quality` 1 to 100, -1 for the host's default
// (80). 0 and `jpegSize` on success, -1 otherwise (also when it does not fit; `jpegSize` is 0 then).
int EncodeToJpeg(int width, int height, const unsigned char* rgb, unsigned char* jpeg, int capacity, int& jpegSize,
                 int quality);

struct __tag_JPEG_FRAME_INFO {
  float frameRate;          // frames a second
  std::int32_t frameCount;  // frames in the file
};

// Reads the frames of a recorded file as JPEGs, in the order in which they are shown. Frames stored as JPEGs come byte
// for byte; those of other codecs are decoded and compressed in their own size. An AVI of JPEGs needs no library; other
// files load the media object. The next frame costs one picture to decode, any other one a group of pictures. A file
// that is still being written has the frames it had when Init was called. Blocks on the disk; one thread at a time.
class JpegExtractor {
 public:
  JpegExtractor();
  ~JpegExtractor();
  // Opens the file; another one may be opened later. Files whose header does not tell where their pictures are
  // (transport streams) are read through once. -1, with a line in the log, when it holds no pictures or cannot be read.
  int Init(const std::string& path);
  // 0, or -1 when the file's rate makes no sense. The rate may be 0: the file does not tell it.
  int GetFrameInfo(__tag_JPEG_FRAME_INFO& info);
  // `size`: capacity in, length out. In place of a frame that is damaged comes the one after it or the one before. -1
  // behind the last frame, when a stored frame exceeds the capacity, when the disk fails, or when nothing from there on
  // can be decoded. A frame that MultipartResponse::Write gets next may be sent from the file, which spares a copy:
  // what is in `buffer` must not be changed in between.
  int ReadFrame(unsigned index, unsigned char* buffer, unsigned& size);

 private:
  struct Impl;
  std::unique_ptr<Impl> m_Impl;
};

// An integer shared between processes, named by a key other than 0 that a client chose. Never waits. There is room for
// 1024; a new key may take the place of one that nobody used for long.
class ProgressIndicator {
 public:
  // `create`: makes a place for the key where it has none. `keep`: what is set stays when this object goes.
  ProgressIndicator(long long key, bool create, bool keep);
  ~ProgressIndicator();
  int Set(int value);  // 0, or -1: the key has no place, or lost it
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
