// Video-analytics tasks in the records.
#include <algorithm>

#include "records/database_impl.h"
#include "records/statement.h"
#include "records/tasks.h"
#include "velm/vexacolumns.h"

namespace oculora {
namespace {

#define NAME_OF(column) #column,
constexpr const char* kColumns[] = {VEXA_SETTING_COLUMN_LIST(NAME_OF, NAME_OF)};

// A literal to begin with, because each column brings its comma along.
#define AND_COLUMN(column) ", " #column
constexpr char kSelect[] =
    "SELECT ''" VEXA_SETTING_COLUMN_LIST(AND_COLUMN, AND_COLUMN) " FROM vexa_settings WHERE id = ?";

bool IsName(const std::string& name) {
  const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
  return !name.empty() && name.size() <= 128 && std::none_of(name.begin(), name.end(), isControl);
}

}  // namespace

TaskTable::TaskTable(Database& database) : m_Database(*database.m_Impl) {}

std::optional<int> TaskTable::Add(const TaskRecord& task) {
  if (!IsName(task.name)) {
    m_Database.lastError = "a task's name has 1 to 128 characters, none of them a control character";
    return std::nullopt;
  }
  {
    Statement taken(m_Database, "SELECT id FROM vexa_settings WHERE name = ?");
    if (taken.Bind(task.name).Row()) {
      m_Database.lastError = "task " + std::to_string(taken.Int(0)) + " \"" + task.name + "\" exists already";
      return std::nullopt;
    }
  }
  Statement insert(m_Database,
                   "INSERT INTO vexa_settings (camera_id, name, enabled, detection_type) VALUES (?, ?, ?, ?)");
  insert.Bind(task.camId).Bind(task.name).Bind(task.enabled).Bind(task.detectionType);
  if (!insert.Run()) return std::nullopt;
  return static_cast<int>(sqlite3_last_insert_rowid(m_Database.connection));
}

std::vector<TaskRecord> TaskTable::List() {
  std::vector<TaskRecord> tasks;
  Statement select(m_Database, "SELECT id, camera_id, name, detection_type, enabled FROM vexa_settings ORDER BY id");
  while (select.Row()) {
    tasks.push_back({select.Int(0), select.Int(1), select.Text(2), select.Int(3), select.Bool(4)});
  }
  return tasks;
}

bool TaskTable::Remove(int id) {
  Statement remove(m_Database, "DELETE FROM vexa_settings WHERE id = ?");
  return remove.Bind(id).Run() && m_Database.ChangedSomething("task " + std::to_string(id));
}

std::optional<DBResult_tag> TaskTable::Row(int id) {
  Statement select(m_Database, kSelect);
  if (!select.Bind(id).Row()) return std::nullopt;
  DBResult_tag result;
  result.columns.assign(std::begin(kColumns), std::end(kColumns));
  std::vector<std::string>& fields = result.rows.emplace_back();
  for (int column = 1; column <= static_cast<int>(std::size(kColumns)); ++column) fields.push_back(select.Text(column));
  return result;
}

}  // namespace oculora
