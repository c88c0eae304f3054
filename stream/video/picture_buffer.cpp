// The buffers of a process that shows pictures it cannot send from the ring.
#include "picture_buffer.h"

unsigned char g_Picture[kPictureBytes];
unsigned char g_RawFrame[kPictureBytes];
