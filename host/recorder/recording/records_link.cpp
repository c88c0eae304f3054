// The records as a process that runs for months holds them: opened again after trouble.
#include "recorder/recording/records_link.h"

#include <sys/stat.h>

#include <utility>

#include "recorder/clock.h"

namespace oculora {
namespace {

constexpr std::int64_t kRetryUs = 1000000;

ino_t RecordsFile() {
  struct stat status {};
  return stat(kRecordsPath, &status) == 0 ? status.st_ino : 0;
}

}  // namespace

Database* RecordsLink::Get() {
  const ino_t file = RecordsFile();
  if (m_Records && !m_Records->IsUnreadable() && file == m_File) return &*m_Records;
  m_Records.reset();
  if (MonotonicUs() < m_RetryAtUs) return nullptr;
  m_RetryAtUs = MonotonicUs() + kRetryUs;
  m_Records = Database::Open(Database::Mode::kReadWrite, nullptr, kRecordsPath, Database::kRecorderPatienceMs);
  m_File = file;
  m_Reopened = true;
  return m_Records ? &*m_Records : nullptr;
}

bool RecordsLink::Changed() {
  Database* records = Get();
  if (records == nullptr) return false;
  const std::int64_t version = records->DataVersion();
  const bool changed = std::exchange(m_Reopened, false) || version != m_Version;
  m_Version = version;
  return changed && !records->IsUnreadable();
}

}  // namespace oculora
