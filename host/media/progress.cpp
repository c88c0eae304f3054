// Integers that processes share by a client's key.
#include <sys/shm.h>

#include "media/progress_table.h"
#include "velm/media.h"

struct ProgressIndicator::Impl {
  Impl(long long number, bool create, bool isKept)
      : key(static_cast<std::uint64_t>(number)),
        keep(isKept),
        table(key != 0 ? oculora::MapProgressTable(create) : nullptr) {
    if (table != nullptr && create) oculora::ClaimCell(*table, key);
  }
  ~Impl() {
    if (table == nullptr) return;
    if (!keep) oculora::ClearCell(*table, key);
    shmdt(table);
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  const std::uint64_t key;
  const bool keep;
  oculora::ProgressTable* const table;  // null: none
};

ProgressIndicator::ProgressIndicator(long long key, bool create, bool keep)
    : m_Impl(std::make_unique<Impl>(key, create, keep)) {}

ProgressIndicator::~ProgressIndicator() = default;

int ProgressIndicator::Set(int value) {
  return m_Impl->table != nullptr && oculora::WriteCell(*m_Impl->table, m_Impl->key, value) ? 0 : -1;
}

int ProgressIndicator::Get() {
  return m_Impl->table != nullptr ? oculora::ReadCell(*m_Impl->table, m_Impl->key) : oculora::kNoProgress;
}
