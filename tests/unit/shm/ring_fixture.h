// A ring for a test, removed at its end, readers of it, and pictures that tell when a byte of them is wrong.
#pragma once

#include <gtest/gtest.h>
#include <sys/shm.h>
#include <velm/camera.h>
#include <velm/shmstream.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "shm/ring_layout.h"
#include "shm/ring_writer.h"
#include "shm/segment.h"

constexpr int kKey = FRAME_FLAG_KEY;

// A picture is its size and then numbers that go up from a start of its own.
inline std::vector<unsigned char> MakePicture(std::size_t size, std::uint32_t seed) {
  std::vector<unsigned char> picture(size);
  const auto words = reinterpret_cast<std::uint32_t*>(picture.data());
  std::iota(words, words + size / 4, seed * 2654435761U);
  words[0] = static_cast<std::uint32_t>(size);
  return picture;
}

inline bool IsPictureWhole(const unsigned char* data, int size) {
  const auto words = reinterpret_cast<const std::uint32_t*>(data);
  const auto isGap = [](std::uint32_t a, std::uint32_t b) { return b != a + 1; };
  return size >= 8 && words[0] == static_cast<std::uint32_t>(size) &&
         std::adjacent_find(words + 1, words + size / 4, isGap) == words + size / 4;
}

// A joined reader; leaves at its end. Reads give the sequence number, 0 for none, -1 for a damaged picture.
class Reader {
 public:
  explicit Reader(ShmStreamFifo& fifo) : m_Fifo(fifo) { EXPECT_EQ(m_Fifo.StartRead(info), 0); }
  ~Reader() { m_Fifo.StopRead(info); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  int Latest(int seq = kSeqNone) { return Judge(m_Fifo.ReadLatest(seq, info)); }
  int LatestKey(int seq = kSeqNone) { return Judge(m_Fifo.ReadLatestIFrame(seq, info)); }
  int Next(int seq) { return Judge(m_Fifo.ReadNext(seq, info)); }
  int Held() const { return Judge(&info.entry); }
  void Finish() { m_Fifo.ReadFinish(&info.entry, true, info); }

  DATA_ENTRY_INFO info{};

 private:
  static int Judge(const STREAM_ENTRY* entry) {
    if (entry == nullptr) return 0;
    return IsPictureWhole(entry->data, entry->size) ? entry->seq : -1;
  }

  ShmStreamFifo& m_Fifo;
};

// A reader with a buffer of its own; its reads give the same.
struct Copier {
  int Next(ShmStreamFifo& fifo, bool keepOrder = true) {
    unsigned char* data = buffer.data();
    int size = static_cast<int>(buffer.size());
    fifo.ReadNext(cursor, data, size, timestamp, media, flags, keepOrder);
    if (size == 0) return 0;
    return IsPictureWhole(data, size) ? cursor : -1;
  }

  std::vector<unsigned char> buffer = std::vector<unsigned char>(65536);
  int cursor = kSeqNone;
  long long timestamp = 0;
  MediaES media{};
  int flags = 0;
};

class RingTest : public testing::Test {
 protected:
  static constexpr oculora::RingId kId{7, 1};

  void TearDown() override { oculora::RemoveRing(kId); }

  static ShmStreamFifo* Find() { return LiveStreamFifoAt(kId.camId, kId.streamNo); }

  void Make(std::size_t dataBytes, bool onDemand = true) {
    writer = oculora::RingWriter::Create(kId, dataBytes, onDemand);
    ASSERT_TRUE(writer.IsValid());
    ring = oculora::RingMapping(static_cast<oculora::Ring*>(Find()));
    ASSERT_TRUE(ring);
  }

  // Writes a picture that differs from every other one.
  int Write(std::size_t size, int flags = kKey) {
    const auto picture = MakePicture(size, ++pictures);
    return writer.Write(picture.data(), size, flags, pictures, videoType);
  }

  oculora::RingWriter writer;
  oculora::RingMapping ring;
  std::uint32_t pictures = 0;
  std::int32_t videoType = VIDEO_TYPE_H264;
};
