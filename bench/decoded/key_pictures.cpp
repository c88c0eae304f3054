// Converts the key pictures of a file as the live view does, one decoder a picture. The file holds each unit behind its
// size (32-bit, little-endian).
//
//     bench_key_pictures FILE COUNT [JPEG]    prints CPU seconds, bytes of JPEG and proportional memory (KB); JPEG:
//     where
//                                             all pictures go, one behind the other
#include <sys/resource.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "velm/camera.h"
#include "velm/media.h"

namespace {

constexpr int kRgb24 = 2;  // AV_PIX_FMT_RGB24
constexpr int kWidth = 640, kHeight = 360;

std::vector<std::vector<unsigned char>> ReadUnits(const char* path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<std::vector<unsigned char>> units;
  for (std::uint32_t size; file.read(reinterpret_cast<char*>(&size), sizeof(size));) {
    units.emplace_back(size);
    file.read(reinterpret_cast<char*>(units.back().data()), size);
  }
  return units;
}

int Convert(const std::vector<unsigned char>& unit, std::vector<unsigned char>& jpeg) {
  FFmpegAttr attr{};
  unsigned char* rgb = nullptr;
  int rgbSize = 0, jpegSize = 0, width = kWidth, height = kHeight;
  const bool done = DoFFMpegInitVideo(attr, VIDEO_TYPE_H264, nullptr, 0) == 0 &&
                    DoFFMpegDecode(attr, unit.data(), static_cast<int>(unit.size())) == 0 &&
                    DoFFMpegScale(attr, rgb, rgbSize, width, height, kRgb24) == 0 &&
                    EncodeToJpeg(width, height, rgb, jpeg.data(), static_cast<int>(jpeg.size()), jpegSize, -1) == 0;
  DoFFMpegFree(attr, rgb);
  return done ? jpegSize : -1;
}

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int ProportionalKb() {
  std::ifstream rollup("/proc/self/smaps_rollup");
  for (std::string word; rollup >> word;) {
    if (word == "Pss:" && rollup >> word) return std::stoi(word);
  }
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const auto units = ReadUnits(argv[1]);
  const int count = std::atoi(argv[2]);
  if (units.empty() || count <= 0) return 2;
  std::ofstream out;
  if (argc > 3) out.open(argv[3], std::ios::binary);
  std::vector<unsigned char> jpeg(1 << 20);
  long long bytes = 0;
  for (int i = 0; i < count; ++i) {
    const int size = Convert(units[static_cast<std::size_t>(i) % units.size()], jpeg);
    if (size <= 0) return 1;
    bytes += size;
    out.write(reinterpret_cast<const char*>(jpeg.data()), out.is_open() ? size : 0);
  }
  std::printf("%.6f %lld %d\n", CpuSeconds(), bytes, ProportionalKb());
  return 0;
}
