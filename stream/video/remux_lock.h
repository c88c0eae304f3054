// The lock under which remuxes of one camera start and end.
#pragma once

// Keeps other processes from starting or ending a remux of camera `camId` while it lives. A process holds it once: an
// object made while another one lives does nothing. Of its kind it leaves no file behind: it is one byte of a lock file
// that exists anyway, and the kernel lets go of it when its holders have ended, however they end.
//
// A forked child shares it. It is free again when both have left.
class RemuxLock {
 public:
  // Waits at most five seconds for another process, which may be stopped, and then goes on without.
  explicit RemuxLock(int camId);
  ~RemuxLock();
  RemuxLock(const RemuxLock&) = delete;
  RemuxLock& operator=(const RemuxLock&) = delete;

  // Gives up this process's share while the object lives on.
  static void Leave();

 private:
  bool m_Owner;
};
