// Whether a file is a video that can be played back, and what is in it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace oculora {

struct VideoFacts {
  std::string extension;  // by content: ".avi", ".mp4"; else the file's own, in letters that suit a file name
  int videoType = 0;      // CAM_VIDEO_TYPE; 0 for a codec that no camera sends
  int frames = 0;
  std::int64_t lengthUs = 0;
  std::int64_t bytes = 0;
  std::vector<unsigned char> firstPicture;  // JPEG
};

// Opens the file as a player does and reads its first picture. False with a sentence when it cannot be played.
bool CheckVideo(const std::string& file, VideoFacts& facts, std::string& reason);

}  // namespace oculora
