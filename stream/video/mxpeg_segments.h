// The segments of MxPEG pictures that a live view writes: the time stamp in a picture's comment, and the sound behind
// it.
//
// An MxPEG picture is a JPEG, or only the blocks of one that changed. Its comment segment (FF FE, length, "MXF")
// carries a time stamp; sound follows the picture in an APP13 segment (FF ED). FFmpeg's demuxer "mxg" reads both at
// these places.
#pragma once

#include <cstdint>
#include <span>

// Writes `timestampUs` into the first comment segment that begins with "MXF". False when there is none, or when the
// picture ends before the place of the time stamp. Looks at bytes, not at segment lengths: those may lie.
bool StampPicture(std::span<unsigned char> picture, std::int64_t timestampUs);

// A sound block: this header, then A-law samples of one byte, 8000 a second.
constexpr int kSoundHeaderBytes = 16;
constexpr int kMaxSoundBytes = 65535 + 2 - kSoundHeaderBytes;  // the segment length has 16 bits and excludes its marker

// How many samples may follow a picture of `pictureSize` bytes in a buffer of `capacity`; 0 when not even the header
// fits.
int SoundRoom(int pictureSize, int capacity);

// Writes the header of a block of `soundBytes` samples (1 to kMaxSoundBytes). Returns its duration in microseconds.
std::uint32_t WriteSoundHeader(std::span<unsigned char, kSoundHeaderBytes> header, int soundBytes,
                               std::int64_t timestampUs);
