// The buffers of a process that shows pictures it cannot send from the ring: fixed, so that nothing is allocated per
// picture, and without cost until they are used.
#pragma once

constexpr int kPictureBytes = 4194304;

extern unsigned char g_Picture[kPictureBytes];   // the picture about to be written
extern unsigned char g_RawFrame[kPictureBytes];  // the key frame about to be decoded
