// Settings of analytics tasks, read from the records.
#include "velm/vexasetting.h"

#include "records/tasks.h"
#include "webapi/log_line.h"

namespace {

constexpr char kLogUnit[] = "records/vexa_setting";

#define NAME_OF(column) #column,
constexpr const char* kNames[] = {VEXA_SETTING_COLUMN_LIST(NAME_OF, NAME_OF)};
static_assert(std::size(kNames) == 81);

}  // namespace

template <>
const char* const DBWrapper<VEXA_SETTING_DB_COLUMNS>::m_szTableName = "vexa_settings";

#define ADDRESS_OF(column) &m_##column,
DBWrapperData<VEXA_SETTING_DB_COLUMNS>::DBWrapperData() : m_Members{VEXA_SETTING_COLUMN_LIST(ADDRESS_OF, ADDRESS_OF)} {}

int VexaSetting::LoadById(int id) {
  oculora::Database* database = oculora::RequestDatabase();
  std::optional<DBResult_tag> result;
  if (database != nullptr) result = oculora::TaskTable(*database).Row(id);
  if (!result) {
    if (ShouldLogOnError()) HOST_LOG_ERROR("analytics task %d cannot be loaded from table %s", id, m_szTableName);
    return -1;
  }
  for (std::size_t column = 0; column < std::size(kNames); ++column) {
    m_Members[column]->FromSqlResult(&*result, 0, kNames[column]);
  }
  return 0;
}
