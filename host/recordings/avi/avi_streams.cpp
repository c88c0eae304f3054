// What the header of an AVI file says about its pictures.
#include "recordings/avi/avi_streams.h"

#include <strings.h>

#include <algorithm>

#include "recordings/avi/avi_format.h"
#include "recordings/avi/avi_walk.h"

namespace oculora {
namespace {

constexpr std::uint32_t kMaxSide = 65535;  // what JPEG can say

bool IsJpeg(std::uint32_t id) {
  char text[4];
  for (int i = 0; i < 4; ++i) text[i] = static_cast<char>(id >> 8 * i);
  return strncasecmp(text, "MJPG", 4) == 0 || strncasecmp(text, "JPEG", 4) == 0;
}

// Takes chunks as they come.
class HeaderReader {
 public:
  HeaderReader(AviWalk& walk, AviStreams& streams) : m_Walk(walk), m_Streams(streams) {}

  void TakeList() {
    ++m_Stream;
    m_IsVideo = false;
  }
  void TakeFileHeader() {
    std::uint8_t bytes[40];
    if (m_Walk.Read(bytes, sizeof(bytes))) TakeSize(bytes + 32);
  }
  void TakeStreamHeader() {
    std::uint8_t bytes[28];
    m_IsVideo = m_Walk.Read(bytes, sizeof(bytes)) && GetAvi32(bytes) == AviId("vids");
    if (!m_IsVideo) return;
    const std::uint32_t scale = GetAvi32(bytes + 20);
    m_Rate = scale == 0 ? 0 : static_cast<double>(GetAvi32(bytes + 24)) / scale;
    if (IsJpeg(GetAvi32(bytes + 4))) Choose();
  }
  void TakeStreamFormat() {
    std::uint8_t bytes[20];
    if (!m_IsVideo || !m_Walk.Read(bytes, sizeof(bytes))) return;
    if (IsJpeg(GetAvi32(bytes + 16))) Choose();
    if (m_Streams.stream == m_Stream) TakeSize(bytes + 4);
  }

 private:
  // Width and height; a negative height tells that the top line comes first.
  void TakeSize(const std::uint8_t* at) {
    const std::uint32_t height = GetAvi32(at + 4);
    m_Streams.width = static_cast<int>(std::min(GetAvi32(at), kMaxSide));
    m_Streams.height = static_cast<int>(std::min(height > INT32_MAX ? 0U - height : height, kMaxSide));
  }
  void Choose() {
    if (m_Streams.stream >= 0) return;
    m_Streams.stream = m_Stream;
    m_Streams.rate = m_Rate;
  }

  AviWalk& m_Walk;
  AviStreams& m_Streams;
  int m_Stream = -1;
  bool m_IsVideo = false;
  double m_Rate = 0;
};

}  // namespace

bool ReadAviStreams(ChunkReader& reader, AviStreams& streams) {
  AviWalk walk(reader, 0);
  HeaderReader header(walk, streams);
  while (walk.Next()) {
    if (walk.Type() == AviId("strl")) header.TakeList();
    if (walk.Id() == AviId("avih")) header.TakeFileHeader();
    if (walk.Id() == AviId("strh")) header.TakeStreamHeader();
    if (walk.Id() == AviId("strf")) header.TakeStreamFormat();
    if (walk.Type() != AviId("movi")) continue;
    streams.movi = walk.Data() - kAviChunkHead;
    streams.moviSize = walk.Size();
    return true;
  }
  return false;
}

bool IsPictureOf(int stream, std::uint32_t id) {
  const auto letter = [id](int place) { return static_cast<char>(id >> 8 * place); };
  return letter(0) == '0' + stream / 10 && letter(1) == '0' + stream % 10 && letter(2) == 'd' &&
         (letter(3) == 'c' || letter(3) == 'b');
}

}  // namespace oculora
