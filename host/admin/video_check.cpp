// Whether a file is a video that can be played back.
#include "admin/video_check.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "recorder/av/demuxer.h"
#include "recorder/av/quiet_log.h"
#include "velm/camera.h"
#include "velm/media.h"

namespace oculora {
namespace {

constexpr int kOpenMs = 60000;
constexpr unsigned kFrameBytes = 4194304;  // a player's buffer
constexpr std::size_t kLongestExtension = 8;

int VideoTypeOf(AVCodecID codec) {
  switch (codec) {
    case AV_CODEC_ID_MJPEG:
      return VIDEO_TYPE_MJPEG;
    case AV_CODEC_ID_MPEG4:
      return VIDEO_TYPE_MPEG4;
    case AV_CODEC_ID_H264:
      return VIDEO_TYPE_H264;
    case AV_CODEC_ID_MXPEG:
      return VIDEO_TYPE_MXPEG;
    default:
      return 0;
  }
}

// A preview picture stands beside the file under ".jpg", so nothing else is called so.
std::string OwnExtension(const std::string& file) {
  std::string extension;
  for (const char c : std::filesystem::path(file).extension().string()) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0 && extension.size() < kLongestExtension) {
      extension += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  if (extension.empty()) return ".video";
  return extension == "jpg" ? ".jpeg" : "." + extension;
}

std::string ExtensionOf(const std::string& file) {
  std::array<char, 12> head{};
  std::ifstream(file, std::ios::binary).read(head.data(), head.size());
  const std::string_view text(head.data(), head.size());
  if (text.starts_with("RIFF") && text.substr(8) == "AVI ") return ".avi";
  if (text.substr(4, 4) == "ftyp") return ".mp4";
  return OwnExtension(file);
}

// Only the file itself: a list of other addresses is no video.
bool ReadCodec(const std::string& file, int& videoType, std::string& reason) {
  QuietFfmpegLog();
  Interrupt interrupt;
  interrupt.Arm(kOpenMs);
  Dictionary options;
  options.Set("protocol_whitelist", "file");
  Demuxer demuxer(interrupt);
  const int error = demuxer.Open("file:" + file, nullptr, options, true);
  if (error < 0) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(error, text.data(), text.size());
    reason = error == AVERROR_STREAM_NOT_FOUND ? "there is no video in it" : text.data();
    return false;
  }
  videoType = VideoTypeOf(demuxer.Video().codecpar->codec_id);
  return true;
}

bool ReadPictures(const std::string& file, VideoFacts& facts, std::string& reason) {
  JpegExtractor extractor;
  __tag_JPEG_FRAME_INFO info{};
  if (extractor.Init(file) != 0 || extractor.GetFrameInfo(info) != 0) {
    reason = "its pictures cannot be read; see the log";
  } else if (info.frameCount <= 0 || !(info.frameRate > 0)) {
    reason = "it says nothing of its pictures or of their rate";
  } else {
    facts.frames = info.frameCount;
    facts.lengthUs = std::llround(1e6 * info.frameCount / info.frameRate);
    facts.firstPicture.resize(kFrameBytes);
    unsigned size = kFrameBytes;
    if (extractor.ReadFrame(0, facts.firstPicture.data(), size) == 0) {
      facts.firstPicture.resize(size);
      return true;
    }
    reason = "its first picture cannot be decoded";
  }
  return false;
}

}  // namespace

bool CheckVideo(const std::string& file, VideoFacts& facts, std::string& reason) {
  struct stat info {};
  if (stat(file.c_str(), &info) != 0) {
    reason = file + ": " + std::strerror(errno);
    return false;
  }
  facts.bytes = info.st_size;
  facts.extension = ExtensionOf(file);
  std::string cause;
  if (!S_ISREG(info.st_mode)) {
    cause = "it is no file";
  } else if (ReadCodec(file, facts.videoType, cause) && ReadPictures(file, facts, cause)) {
    return true;
  }
  reason = file + " cannot be played: " + cause;
  return false;
}

}  // namespace oculora
