// Bytes in memory that stand in a file, too.
#include "writers/lent_bytes.h"

#include <utility>

namespace oculora {
namespace {

std::optional<LentBytes> g_Lent;

}  // namespace

void Lend(const LentBytes& bytes) { g_Lent = bytes; }

void TakeBack() { g_Lent.reset(); }

std::optional<LentBytes> Borrow(const void* copy, std::size_t size) {
  const std::optional<LentBytes> lent = std::exchange(g_Lent, std::nullopt);
  return lent && lent->copy == copy && lent->size == size ? lent : std::nullopt;
}

}  // namespace oculora
