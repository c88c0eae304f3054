// The packets of a recorded file's video stream, in order or from any key packet on.
#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "media/extractor/file_input.h"
#include "media/extractor/recording_index.h"

namespace oculora {

// One thread. Every call may wait for the disk.
class DemuxedRecording {
 public:
  // `fd` stays the caller's and open as long as the object. False with a sentence in `reason` when the file holds no
  // video that can be read. Reads the whole file once when its header does not tell where its pictures are.
  bool Open(int fd, std::string& reason);

  const RecordingIndex& Index() const { return m_Index; }
  const AVStream& Stream() const { return *m_Stream; }
  // Whether the file is one of ours, whose pictures have the times at which they arrived.
  bool HasTimesOfArrival() const { return m_Layout.has_value(); }

  // The next packet. False at the end, or when nothing more can be read.
  bool Read(AVPacket& packet);
  // Packets that give a picture before the next one.
  std::int32_t Next() const { return m_Next; }
  // The next packet is the key packet of that group.
  bool GoTo(std::size_t group);

 private:
  struct ContextCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
  };
  struct PacketFree {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  };

  bool OpenDemuxer(std::string& reason);
  bool ChooseStream(std::string& reason);
  bool MakeIndex();
  bool ReadLayout();
  bool Scan();
  bool ReadRaw(AVPacket& packet);
  bool Seek(const KeyPacket& key);
  bool FindKey(const KeyPacket& key, int packets);
  bool StartOver(std::int32_t number);

  std::optional<FileInput> m_Input;
  std::unique_ptr<AVFormatContext, ContextCloser> m_Context;  // closed before its input goes
  AVStream* m_Stream = nullptr;                               // the context's
  std::optional<Mp4Layout> m_Layout;                          // of a file of our own
  RecordingIndex m_Index;
  std::unique_ptr<AVPacket, PacketFree> m_Ahead;  // read already; blank: none
  std::int32_t m_Next = 0;
};

}  // namespace oculora
