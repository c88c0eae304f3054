// Moves this process into a site of its own: empty /tmp and /var/packages/Oculora, own SysV IPC.
#pragma once

// Call before any thread starts. False, with a message on standard error, when the kernel does not allow it. Leaves
// nothing behind: the mounts end with the process.
bool EnterPrivateSite();
