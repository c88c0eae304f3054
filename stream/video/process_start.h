// Tells a process that a file lists from another one that got the same pid later.
#pragma once

// Whether process `pid` started after the file behind `fd` was last written. False when either cannot be told, also
// when the process is gone. Blocks on /proc only.
bool StartedAfterLastWrite(int pid, int fd);
