// Feeds the rings of an MxPEG and an MJPEG camera in the recorder's place, with pictures of one size at one rate.
//   mxpeg_feed MXPEG-CAMERA MJPEG-CAMERA BYTES PICTURES-PER-SECOND
// The MxPEG camera has a comment to stamp in every picture, a key picture a second and A-law sound, 8000 bytes a
// second.
#include <velm/camera.h>
#include <velm/shmstream.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "shm/ring_writer.h"

using oculora::RingKind;
using oculora::RingWriter;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kStream = 0;  // the one of a camera that was added without options
constexpr int kSamplesPerSecond = 8000;

// Made of what no decoder would show; nobody decodes it here. Bytes of 255 come as often as in coded pictures.
std::vector<unsigned char> MakePicture(std::size_t bytes, unsigned seed) {
  static constexpr unsigned char kHead[] = {0xff, 0xd8, 0xff, 0xfe, 0, 22, 'M', 'X', 'F', 0};
  std::vector<unsigned char> picture(bytes);
  std::mt19937 noise(seed);
  for (unsigned char& byte : picture) byte = static_cast<unsigned char>(noise());
  std::memcpy(picture.data(), kHead, sizeof(kHead));
  picture[bytes - 2] = 0xff;
  picture[bytes - 1] = 0xd9;
  return picture;
}

RingWriter Attach(int camera, RingKind kind) {
  for (RingWriter ring;; std::this_thread::sleep_for(std::chrono::milliseconds(20))) {
    if ((ring = RingWriter::Attach({camera, kStream, kind})).IsValid()) return ring;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  const int mxpegCamera = std::atoi(argv[1]), mjpegCamera = std::atoi(argv[2]);
  const int bytes = std::atoi(argv[3]), rate = std::atoi(argv[4]);
  if (bytes < 100 || rate < 1) return 2;
  RingWriter mxpeg = Attach(mxpegCamera, RingKind::kVideo);
  RingWriter sound = Attach(mxpegCamera, RingKind::kAudio);
  RingWriter mjpeg = Attach(mjpegCamera, RingKind::kVideo);
  std::vector<std::vector<unsigned char>> film;
  for (unsigned i = 0; i < 8; ++i) film.push_back(MakePicture(static_cast<std::size_t>(bytes), i));
  const std::vector<unsigned char> samples(static_cast<std::size_t>(kSamplesPerSecond / rate), 0xd5);

  auto next = Clock::now();
  for (unsigned number = 0;; ++number) {
    const auto& picture = film[number % film.size()];
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    const bool key = number % static_cast<unsigned>(rate) == 0;
    sound.Write(samples.data(), samples.size(), FRAME_FLAG_KEY, us, 0);
    mxpeg.Write(picture.data(), picture.size(), key ? FRAME_FLAG_KEY : 0, us, VIDEO_TYPE_MXPEG);
    mjpeg.Write(picture.data(), picture.size(), FRAME_FLAG_KEY, us, VIDEO_TYPE_MJPEG);
    next += std::chrono::microseconds(1000000 / rate);
    std::this_thread::sleep_until(next);
  }
}
