// Video-analytics tasks in the records: one row each of the table vexa_settings.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "records/db_result.h"
#include "records/records.h"

namespace oculora {

// Kinds of detection in the order of their numbers. The spelling is the interface's.
constexpr std::array<const char*, 8> kDetectionTypes = {"object_tracking",
                                                        "motion_detection",
                                                        "non_idle_zone",
                                                        "people_counting_wall_mount",
                                                        "foreign_object",
                                                        "missing_object",
                                                        "people_counting_ceilling_mount",
                                                        "object_detection"};

struct TaskRecord {
  int id = 0;
  int camId = 0;
  std::string name;
  int detectionType = 0;  // index into kDetectionTypes
  bool enabled = true;
};

// A view of a database, which must outlive it. Fails as Database does.
class TaskTable {
 public:
  explicit TaskTable(Database& database);

  std::optional<int> Add(const TaskRecord& task);  // the id, chosen here; empty: name taken, no such camera
  std::vector<TaskRecord> List();
  bool Remove(int id);
  // The whole row; empty when there is none, or on failure.
  std::optional<DBResult_tag> Row(int id);

 private:
  struct DatabaseImpl& m_Database;
};

}  // namespace oculora
