// Recorded files for the media object's table: any frame of any file that FFmpeg reads, as a JPEG.
#pragma once

#include <cstdint>
#include <string>

#include "media/codec/media_table.h"

namespace oculora {

// See MediaTable.
void* OpenRecording(int fd, RecordingInfo& info, std::string& reason);
MediaResult ReadRecordedFrame(void* recording, std::int32_t number, unsigned char* jpeg, int capacity, int& jpegSize);
void CloseRecording(void* recording);

}  // namespace oculora
