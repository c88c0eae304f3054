// MxPEG made by hand: what a splitter, a fuzzer or a ring needs, not what a decoder does.
#pragma once

#include "support/bytes.h"

inline const Buffer kMxpegEnd = {0xff, 0xd9};

// SOI and a comment with the time stamp 0x0807060504030201.
inline const Buffer kMxpegStart = {0xff, 0xd8, 0xff, 0xfe, 0, 18, 'M', 'X', 'F', 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8};

// A key picture has a frame header, and an APP1 segment with a small JPEG in it besides.
inline const Buffer kMxpegKeyHeader = {0xff, 0xe1, 0, 17, 0xff, 0xd8, 0xff, 0xda, 0, 8, 1, 1, 0,
                                       0,    63,   0, 17, 0xff, 0xd9, 0xff, 0xc0, 0, 5, 8, 0, 16};

// A scan's header and coded blocks with what may stand in them: stuffed bytes, restart markers and fill bytes.
inline Buffer MakeScan(int codedBytes) {
  Buffer scan = {0xff, 0xda, 0, 8, 1, 1, 0, 0, 63, 0};
  for (int i = 0; i < codedBytes; i += 3) {
    scan.push_back(static_cast<std::uint8_t>(i % 97));
    scan.push_back(0xff);
    scan.push_back(static_cast<std::uint8_t>(i % 13 == 0 ? 0xd0 + i % 8 : 0));
  }
  return scan;
}

inline Buffer MakePicture(bool key, int codedBytes) {
  return Join({kMxpegStart, key ? kMxpegKeyHeader : Buffer{}, MakeScan(codedBytes), kMxpegEnd});
}

// A block that says it has `said` samples and has `samples`.
inline Buffer MakeSound(int samples, int said) {
  const int durationUs = samples * 125;
  Buffer block = {0xff, 0xed};
  for (const int byte : {(said + 14) >> 8, said + 14, durationUs, durationUs >> 8, durationUs >> 16, 0}) {
    block.push_back(static_cast<std::uint8_t>(byte));
  }
  for (int i = 0; i < samples + 8; ++i) block.push_back(i < 8 ? 0 : 0xd5);
  return block;
}
inline Buffer MakeSound(int samples) { return MakeSound(samples, samples); }
