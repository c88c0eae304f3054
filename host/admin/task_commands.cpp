// oculora task: the video-analytics tasks of a site.
#include <algorithm>
#include <cstdio>
#include <memory>

#include "admin/command.h"
#include "records/tasks.h"

namespace oculora {
namespace {

int AddTask(TaskRecord task, const std::string& type) {
  const auto found = std::find(kDetectionTypes.begin(), kDetectionTypes.end(), type);
  task.detectionType = static_cast<int>(found - kDetectionTypes.begin());
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records || !LoadCameraOrTell(*records, task.camId)) return 1;
  const auto id = TaskTable(*records).Add(task);
  if (!id) return Fail(records->LastError());
  printf("%d\n", *id);
  return 0;
}

int ListTasks() {
  auto records = OpenRecords(Database::Mode::kReadOnly);
  if (!records) return 1;
  const auto tasks = TaskTable(*records).List();
  if (records->IsUnreadable()) return Fail(records->LastError());
  if (tasks.empty()) printf("No tasks.\n");
  for (const TaskRecord& task : tasks) {
    printf("%6d  camera %-6d  %-8s  %-30s  %s\n", task.id, task.camId, task.enabled ? "enabled" : "disabled",
           kDetectionTypes[static_cast<std::size_t>(task.detectionType)], task.name.c_str());
  }
  return 0;
}

int RemoveTask(int id) {
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  return TaskTable(*records).Remove(id) ? 0 : Fail(records->LastError());
}

struct TaskOptions {
  TaskRecord task;
  std::string type = kDetectionTypes[1];
};

}  // namespace

void AddTaskCommands(CLI::App& app, Action& action) {
  const auto options = std::make_shared<TaskOptions>();
  CLI::App* group = app.add_subcommand("task", "Add, list and remove video-analytics tasks");
  CLI::App* add = group->add_subcommand("add", "Add a task; prints its id");
  add->add_option("NAME", options->task.name, "What people see")->required();
  add->add_option("--camera", options->task.camId, "Whose pictures it looks at")->required();
  add->add_option("--type", options->type, "What it looks for")
      ->check(CLI::IsMember(std::vector<std::string>(kDetectionTypes.begin(), kDetectionTypes.end())))
      ->capture_default_str();
  add->callback([=, &action] { action = [=] { return AddTask(options->task, options->type); }; });
  CLI::App* list = group->add_subcommand("list", "List the tasks");
  list->callback([&action] { action = ListTasks; });
  CLI::App* remove = group->add_subcommand("remove", "Remove a task; recordings of its alerts stay");
  remove->add_option("ID", options->task.id, "Task id")->required();
  remove->callback([=, &action] { action = [=] { return RemoveTask(options->task.id); }; });
}

}  // namespace oculora
