// Bytes in memory that stand in a file, too: sent from the file they cost no copy, the kernel passes its pages on.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>

namespace oculora {

// `size` bytes at `copy` are those of `fd` from `offset` on. Both stay the lender's.
struct LentBytes {
  const void* copy;
  std::size_t size;
  int fd;
  off_t offset;
};

// Offers them to the next part that is written; whoever lends must take back before the descriptor closes. One thread.
void Lend(const LentBytes& bytes);
void TakeBack();

// What was lent, if it is just that; in any case nothing is lent afterwards.
std::optional<LentBytes> Borrow(const void* copy, std::size_t size);

}  // namespace oculora
