// The reader table of a ring: claiming and leaving slots, freeing those of dead processes.
//
// An owner word names a process beyond doubt (pid and start time), so every change of hands is one compare-and-swap: a
// slot never belongs to nobody in particular, whoever dies in between.
#pragma once

#include "shm/ring_layout.h"

namespace oculora {

// kQuick asks the kernel whether the pid exists, well under a microsecond a slot; kThorough also reads /proc, and so
// finds zombies and pids that now name another process.
enum class ReapDepth { kQuick, kThorough };

// Claims a slot for this process; reaps when none is free. The slot's index, -1 when all are taken by the living.
int ClaimSlot(Ring& ring);

// Gives a slot back. Does nothing when it is not this process's (a cursor inherited over fork).
void ReleaseSlot(Ring& ring, int slot);

// Frees the slots of dead processes with their pins; returns how many.
int ReapSlots(Ring& ring, ReapDepth depth);

// How many slots have an owner.
int CountSlots(const Ring& ring);

}  // namespace oculora
