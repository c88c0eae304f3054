// The sound of a live view.
#include "sound_track.h"

#include <cstring>

#include "mxpeg_segments.h"
#include "picture_buffer.h"
#include "videoStreaming.h"
#include "video_unit.h"

int SoundTrack::AppendTo(int size, std::int64_t pictureTimestampUs) {
  const int bytes = CopySamples(size + kSoundHeaderBytes, SoundRoom(size, kPictureBytes));
  if (bytes == 0) return size;
  m_TimestampUs = m_Resync ? pictureTimestampUs : m_TimestampUs + m_DurationUs;
  m_Resync = false;
  const std::span<unsigned char, kSoundHeaderBytes> header(&g_Picture[size], kSoundHeaderBytes);
  m_DurationUs = WriteSoundHeader(header, bytes, m_TimestampUs);
  return size + kSoundHeaderBytes + bytes;
}

// Copies waiting samples to g_Picture from `at` on, at most `room` bytes; how many.
int SoundTrack::CopySamples(int at, int room) {
  int copied = 0;
  while (g_StopFlag == 0) {
    const STREAM_ENTRY* entry = m_Ring->ReadNext(m_Seq, m_Ring.info);
    const unsigned char* data = nullptr;
    int size = 0;
    if (!m_Ring->GetValidFrame(entry, data, size)) break;
    const bool fits = size <= room - copied;
    if (fits) {
      std::memcpy(g_Picture + at + copied, data, static_cast<std::size_t>(size));
      copied += size;
    } else if (size > kMaxSoundBytes) {
      QM_LOG(LOG_LEVEL_ERROR, "Sound of %d bytes at once fits behind no picture.\n", size);
    }
    // What fits no block is passed by; what only finds no room now is read again with the next picture.
    const bool taken = fits || size > kMaxSoundBytes;
    if (taken) m_Seq = entry->seq;
    m_Ring->ReadFinish(entry, false, m_Ring.info);
    if (!taken) break;
  }
  return copied;
}
