// Writing all of it.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

namespace oculora {

// Writes the parts one behind the other at `offset`, with as few calls as it takes; a short write is tried again with
// the rest, which tells why it was short. Changes `parts`. False with errno; some of it may be written then.
bool WriteAt(int fd, iovec* parts, int count, std::int64_t offset);
bool WriteAt(int fd, const void* data, std::size_t size, std::int64_t offset);

}  // namespace oculora
