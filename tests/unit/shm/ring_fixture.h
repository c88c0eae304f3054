// A ring for a test, removed at its end, and readers of it.
#pragma once

#include <gtest/gtest.h>
#include <sys/shm.h>
#include <velm/camera.h>
#include <velm/shmstream.h>

#include <memory>
#include <vector>

#include "picture.h"
#include "shm/ring_layout.h"
#include "shm/ring_writer.h"
#include "shm/segment.h"

constexpr std::size_t kKiB = 1024;

struct Detach {
  void operator()(ShmStreamFifo* fifo) const { shmdt(fifo); }
};
using Fifo = std::unique_ptr<ShmStreamFifo, Detach>;

// A joined reader; leaves at its end.
class Reader {
 public:
  explicit Reader(ShmStreamFifo* fifo) : m_Fifo(fifo) { EXPECT_EQ(m_Fifo->StartRead(info), 0); }
  ~Reader() { m_Fifo->StopRead(info); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  // What the reads give: the sequence number, 0 for none, -1 for a damaged picture.
  int Latest(int seq) { return Judge(m_Fifo->ReadLatest(seq, info)); }
  int LatestKey(int seq) { return Judge(m_Fifo->ReadLatestIFrame(seq, info)); }
  int Next(int seq) { return Judge(m_Fifo->ReadNext(seq, info)); }
  void Finish() { m_Fifo->ReadFinish(&info.entry, true, info); }

  static int Judge(const STREAM_ENTRY* entry) {
    if (entry == nullptr) return 0;
    return IsPictureWhole(entry->data, static_cast<std::size_t>(entry->size)) ? entry->seq : -1;
  }

  DATA_ENTRY_INFO info{};

 private:
  ShmStreamFifo* m_Fifo;
};

class RingTest : public testing::Test {
 protected:
  static constexpr oculora::RingId kId{7, 1, oculora::RingKind::kVideo};

  void TearDown() override { oculora::RemoveRing(kId); }

  void Make(std::size_t dataBytes, bool onDemand = true) {
    writer = oculora::RingWriter::Create(kId, dataBytes, onDemand);
    ASSERT_TRUE(writer.IsValid());
    fifo.reset(LiveStreamFifoAt(kId.camId, kId.streamNo));
    ASSERT_TRUE(fifo);
    ring = static_cast<oculora::Ring*>(fifo.get());
  }

  // Writes a picture that differs from every other one.
  int Write(std::size_t size, int flags = FRAME_FLAG_KEY) {
    picture.resize(size);
    FillPicture(picture, ++pictures);
    return writer.Write(picture.data(), size, flags, pictures, videoType);
  }

  oculora::RingWriter writer;
  Fifo fifo;
  oculora::Ring* ring = nullptr;  // the bytes themselves, through `fifo`
  std::vector<unsigned char> picture;
  std::uint32_t pictures = 0;
  std::int32_t videoType = VIDEO_TYPE_H264;
};
