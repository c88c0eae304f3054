// Lets a paced reading loop sleep until the next frame instead of polling for it.
//
// A loop reads with a cursor and then calls DelayTimer::Delay. Looking at the ring every few milliseconds would cost
// each viewer several wake-ups a picture, more than the picture itself; so a read remembers here which ring this thread
// reads and what it has seen, and the timer sleeps on the ring.
#pragma once

#include <cstdint>

namespace oculora {

struct Ring;

// The writer: a frame has been published. One system call, whoever waits.
void AnnounceFrame(Ring& ring);

// A reader: remembers the ring and its announcements so far. To be called before looking for a frame.
void WatchFrames(Ring& ring);

// The ring is about to be left.
void ForgetFrames(const Ring& ring);

// A reader that copies frame after frame: it is to get them all, and none at once, so it need not wake for each.
void NoteCopyingReader();

enum class FrameWait { kNoRing, kFrame, kTimeout, kSignal };

// Sleeps until a frame is announced that the last read cannot have seen, at most `timeoutUs`; a copying reader for
// `timeoutUs`. Returns early for a signal.
FrameWait WaitForFrame(std::int64_t timeoutUs);

}  // namespace oculora
