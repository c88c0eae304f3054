// Rings as SysV shared-memory segments: finding, making, attaching, retiring.
#pragma once

#include <sys/ipc.h>

#include <cstddef>
#include <optional>
#include <utility>

#include "shm/ring_layout.h"

namespace oculora {

// An attached ring; detaches when it goes. The ring outlives it.
class RingMapping {
 public:
  RingMapping() = default;
  explicit RingMapping(Ring* ring) : m_Ring(ring) {}
  ~RingMapping();
  RingMapping(RingMapping&& other) noexcept : m_Ring(other.Release()) {}
  RingMapping& operator=(RingMapping&& other) noexcept {
    std::swap(m_Ring, other.m_Ring);
    return *this;
  }

  explicit operator bool() const { return m_Ring != nullptr; }
  Ring& operator*() const { return *m_Ring; }
  Ring* operator->() const { return m_Ring; }
  // Hands the attachment over to the caller, who detaches it with shmdt(2).
  Ring* Release() { return std::exchange(m_Ring, nullptr); }

 private:
  Ring* m_Ring = nullptr;
};

// The key of a ring: 0x4F in the top byte, then camera id (18 bits at bit 5), stream (4 bits at bit 1), kind (bit 0).
// Empty when the id is out of range.
std::optional<key_t> RingKey(const RingId& id);

// Whose rings to attach: those of this user and of root (as root: all), or of this user alone. A writer goes on only
// with a ring of its own user; in another's, that user could read along.
enum class Maker { kTrusted, kSelf };

// Attaches a ring that is complete and of this layout. Else empty, with errno: ENOENT there is none, EACCES not
// permitted or made by a stranger, EPROTO no ring of this layout, EINVAL no such id.
RingMapping MapRing(const RingId& id, Maker maker = Maker::kTrusted);

// Makes a ring where none is. Empty with errno on failure (EEXIST: there is one).
RingMapping MakeRing(const RingId& id, std::size_t dataBytes, bool onDemand);

// Marks the ring as retired and removes its segment; processes that are attached keep the memory until they detach.
// False with errno: ENOENT there is none; EEXIST the segment under the key is no ring (it is left alone).
bool RetireRing(const RingId& id);

}  // namespace oculora
