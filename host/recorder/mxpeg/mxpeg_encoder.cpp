// Compresses pictures to MxPEG.
//
// A delta picture is the scan of a JPEG without its tables: the changed blocks, row by row, each DC coefficient coded
// as the difference to the block before it in the scan. Compressing a picture that has just these blocks side by side,
// with the same tables as a key picture, gives exactly that scan.
#include "recorder/mxpeg/mxpeg_encoder.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "recorder/mxpeg/bytes.h"

namespace oculora {
namespace {

constexpr int kSmallest = 16, kLargest = 8192;
constexpr int kWidestStrip = 4093;  // blocks; libjpeg takes no picture wider than 65500 pixels
constexpr int kMostChangedPercent = 60;

constexpr std::size_t kMarker = 2;
constexpr std::size_t kStampSegment = 20;  // marker, length, "MXF\0", 4 unused bytes, time stamp
constexpr std::size_t kMaskHeader = 16;    // marker, length, "MXM\0", columns, rows, 4 unused bytes

constexpr std::uint8_t kStartOfImage = 0xD8, kComment = 0xFE, kApp0 = 0xE0, kBaseline = 0xC0, kScan = 0xDA;

struct Headers {
  std::size_t tables = 0;  // where the tables begin
  std::size_t scan = 0;    // where the scan's header begins
};

// What the compressor wrote in front of the coded blocks. It writes APP0 first if at all; anything but a baseline JPEG
// (its environment can ask for others) is refused.
std::optional<Headers> FindHeaders(std::span<const std::uint8_t> jpeg) {
  Headers found;
  bool baseline = false;
  for (std::size_t at = kMarker; at + 4 <= jpeg.size() && jpeg[at] == 0xFF;) {
    const std::uint8_t marker = jpeg[at + 1];
    if (marker == kBaseline) baseline = true;
    if (marker != kApp0 && found.tables == 0) found.tables = at;
    if (marker == kScan) {
      found.scan = at;
      return baseline ? std::optional(found) : std::nullopt;
    }
    at += kMarker + (std::size_t{jpeg[at + 2]} << 8 | jpeg[at + 3]);
  }
  return std::nullopt;
}

std::size_t MaskSegment(int blocks) { return kMaskHeader + static_cast<std::size_t>(blocks + 7) / 8; }

void PutComment(std::uint8_t* at, const char (&name)[4], std::size_t size) {
  std::memset(at, 0, size);
  at[0] = 0xFF;
  at[1] = kComment;
  PutBigEndian16(at + 2, size - kMarker);
  std::memcpy(at + 4, name, sizeof(name));
}

// What every picture begins with: the start of the image and its time.
void PutStart(std::uint8_t* at, std::int64_t timestampUs) {
  at[0] = 0xFF;
  at[1] = kStartOfImage;
  PutComment(at + kMarker, "MXF", kStampSegment);
  PutLittleEndian(at + kMarker + 12, static_cast<std::uint64_t>(timestampUs), 8);
}

}  // namespace

void MxpegEncoder::Release::operator()(void* compressor) const { tjDestroy(compressor); }

bool MxpegEncoder::Open(const MxpegSettings& settings, std::string& reason) {
  const auto within = [](int value, int least, int most) { return value >= least && value <= most; };
  if (!within(settings.width, kSmallest, kLargest) || !within(settings.height, kSmallest, kLargest)) {
    reason = "MxPEG pictures are from 16x16 to 8192x8192 pixels";
    return false;
  }
  if (!within(settings.quality, 1, 100) || settings.keyInterval < 1 || !within(settings.noise, 0, 255)) {
    reason = "MxPEG wants a quality from 1 to 100, a key interval of 1 or more and a noise level from 0 to 255";
    return false;
  }
  m_Compressor.reset(tjInitCompress());
  if (m_Compressor == nullptr) {
    reason = "Out of memory";
    return false;
  }
  m_Settings = settings;
  m_Columns = (settings.width + kBlockSize - 1) / kBlockSize;
  m_Rows = (settings.height + kBlockSize - 1) / kBlockSize;
  const int blocks = m_Columns * m_Rows;
  m_MostChanges = std::clamp(blocks * kMostChangedPercent / 100, 1, kWidestStrip);
  m_Current = BlockPicture(m_Columns, m_Rows);
  m_Sent = BlockPicture(m_Columns, m_Rows);
  m_Strip = BlockPicture(m_MostChanges, 1);
  m_Changed.reserve(static_cast<std::size_t>(m_MostChanges));
  m_Room = kMarker + kStampSegment + MaskSegment(blocks);
  m_Out.resize(m_Room + std::max(tjBufSize(settings.width, settings.height, TJSAMP_420),
                                 tjBufSize(m_MostChanges * kBlockSize, kBlockSize, TJSAMP_420)));
  m_UntilKey = 0;
  return true;
}

MxpegEncoder::Coded MxpegEncoder::Encode(const PlanarPicture& picture, std::int64_t timestampUs) {
  m_Current.Assign(picture, m_Settings.width, m_Settings.height);
  const bool key = m_UntilKey == 0 || !FindChanges();
  if (key) {
    std::swap(m_Current, m_Sent);
    m_UntilKey = m_Settings.keyInterval;
  }
  --m_UntilKey;
  const auto bytes = key ? CodeKey(timestampUs) : CodeDelta(timestampUs);
  if (bytes.empty()) ForceKey();  // viewers do not have what stands in m_Sent
  return {bytes, key};
}

// False when so much has changed that a key picture is better.
bool MxpegEncoder::FindChanges() {
  m_Changed.clear();
  for (int block = 0; block < m_Columns * m_Rows; ++block) {
    if (!m_Current.Differs(m_Sent, block, m_Settings.noise)) continue;
    if (static_cast<int>(m_Changed.size()) == m_MostChanges) return false;
    m_Changed.push_back(block);
  }
  if (m_Changed.empty()) m_Changed.push_back(0);  // a scan has at least one block
  return true;
}

void MxpegEncoder::TakeChanges() {
  for (std::size_t i = 0; i < m_Changed.size(); ++i) {
    m_Current.CopyBlock(m_Changed[i], m_Sent, m_Changed[i]);
    m_Current.CopyBlock(m_Changed[i], m_Strip, static_cast<int>(i));
  }
}

// The JPEG, in front of which m_Room bytes are free. Empty on failure.
std::span<std::uint8_t> MxpegEncoder::Compress(const BlockPicture& picture, int width, int height) {
  PlanarPicture view = picture.View();
  unsigned char* jpeg = m_Out.data() + m_Room;
  unsigned long size = m_Out.size() - m_Room;
  const int rc = tjCompressFromYUVPlanes(m_Compressor.get(), view.planes.data(), width, view.strides.data(), height,
                                         TJSAMP_420, &jpeg, &size, m_Settings.quality, TJFLAG_NOREALLOC);
  return {jpeg, rc == 0 ? size : 0};
}

std::span<const std::uint8_t> MxpegEncoder::CodeKey(std::int64_t timestampUs) {
  const auto jpeg = Compress(m_Sent, m_Settings.width, m_Settings.height);
  const auto headers = FindHeaders(jpeg);
  if (!headers) return {};
  std::uint8_t* begin = jpeg.data() + headers->tables - kStampSegment - kMarker;
  PutStart(begin, timestampUs);
  return {begin, jpeg.data() + jpeg.size()};
}

std::span<const std::uint8_t> MxpegEncoder::CodeDelta(std::int64_t timestampUs) {
  TakeChanges();
  const auto jpeg = Compress(m_Strip, static_cast<int>(m_Changed.size()) * kBlockSize, kBlockSize);
  const auto headers = FindHeaders(jpeg);
  if (!headers) return {};
  const std::size_t maskSize = MaskSegment(m_Columns * m_Rows);
  std::uint8_t* mask = jpeg.data() + headers->scan - maskSize;
  PutMask(mask, maskSize);
  std::uint8_t* begin = mask - kStampSegment - kMarker;
  PutStart(begin, timestampUs);
  return {begin, jpeg.data() + jpeg.size()};
}

// Which blocks the scan holds: a bit each, row by row, the highest bit of a byte first.
void MxpegEncoder::PutMask(std::uint8_t* segment, std::size_t size) const {
  PutComment(segment, "MXM", size);
  PutLittleEndian(segment + 8, static_cast<unsigned>(m_Columns), 2);
  PutLittleEndian(segment + 10, static_cast<unsigned>(m_Rows), 2);
  for (const int block : m_Changed) {
    segment[kMaskHeader + static_cast<std::size_t>(block / 8)] |= static_cast<std::uint8_t>(0x80 >> block % 8);
  }
}

}  // namespace oculora
