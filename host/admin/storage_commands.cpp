// oculora mount, oculora archive: recordings of other origin that this site plays, and copies of its own.
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>

#include "admin/archive_copy.h"
#include "admin/command.h"
#include "records/events.h"
#include "records/storages.h"
#include "velm/file.h"

namespace oculora {
namespace {

constexpr int kPage = 500;

struct StorageOptions {
  StorageRecord storage;
  std::vector<int> events;
};

const char* KindName(StorageKind kind) { return kind == StorageKind::kMount ? "mount" : "archive"; }

// "there is no mount 4; see "oculora mount list"".
int FailUnknown(const StorageRecord& storage) {
  const std::string kind = KindName(storage.kind);
  return Fail("there is no " + kind + " " + std::to_string(storage.number) + "; see \"oculora " + kind + " list\"");
}

// How many events it holds; false with the reason when it cannot be read. Writes nothing.
bool ReadTotals(const std::string& directory, RecordingTotals& totals, std::string& reason) {
  auto records = OpenStorageRecords(directory, &reason);
  if (!records) return false;
  totals = EventTable(*records).Totals();
  reason = records->LastError();
  return reason.empty();
}

// What is wrong with the directory of a storage to be added; empty when it is fine.
std::string CheckDirectory(const StorageRecord& storage) {
  const std::string& directory = storage.directory;
  if (!IsExistDir(directory)) return directory + " is no directory";
  if (directory == kVarDir) return directory + " holds this site's own recordings";
  std::string reason;
  RecordingTotals totals;
  if (storage.kind == StorageKind::kArchive && !MakeArchive(directory, reason)) return reason;
  if (!IsFileExist(RecordsPathIn(directory), true) || !IsExistDir(RecordingsDirIn(directory))) {
    return directory + " is no storage: it must hold the file records.db and the directory recordings";
  }
  return ReadTotals(directory, totals, reason) ? std::string() : "it cannot be used: " + reason;
}

int AddStorage(const StorageOptions& options) {
  StorageRecord storage = options.storage;
  std::error_code error;
  // Where the way there leads now: requests run elsewhere.
  storage.directory = std::filesystem::canonical(storage.directory, error).string();
  if (error) return Fail(options.storage.directory + ": " + error.message());
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  StorageTable storages(*records);
  if (const auto there = storages.Find(storage.kind, storage.number)) {
    const std::string kind = KindName(storage.kind);
    return Fail(kind + " " + std::to_string(storage.number) + " is " + there->directory + " already; \"oculora " +
                kind + " remove\" forgets it");
  }
  if (const std::string wrong = CheckDirectory(storage); !wrong.empty()) return Fail(wrong);
  return storages.Add(storage) ? 0 : Fail(records->LastError());
}

int ListStorages(const StorageOptions& options) {
  auto records = OpenRecords(Database::Mode::kReadOnly);
  if (!records) return 1;
  bool none = true;
  for (const StorageRecord& storage : StorageTable(*records).List()) {
    if (storage.kind != options.storage.kind) continue;
    none = false;
    RecordingTotals totals;
    std::string reason;
    printf("%6d  %-32s  ", storage.number, storage.directory.c_str());
    if (ReadTotals(storage.directory, totals, reason)) {
      printf("%" PRId64 " recordings, %.1f MB\n", totals.events, static_cast<double>(totals.bytes) / 1e6);
    } else {
      printf("%s\n", reason.c_str());
    }
  }
  if (records->IsUnreadable()) return Fail(records->LastError());
  if (none) printf("No %ss.\n", KindName(options.storage.kind));
  return 0;
}

// Finds the storage that the command names, or tells.
std::optional<StorageRecord> FindOrTell(Database& records, const StorageRecord& wanted) {
  auto storage = StorageTable(records).Find(wanted.kind, wanted.number);
  if (storage) return storage;
  if (records.IsUnreadable()) {
    Fail(records.LastError());
  } else {
    FailUnknown(wanted);
  }
  return std::nullopt;
}

// Forgets it; what it holds stays.
int RemoveStorage(const StorageOptions& options) {
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records || !FindOrTell(*records, options.storage)) return 1;
  const bool removed = StorageTable(*records).Remove(options.storage.kind, options.storage.number);
  return removed ? 0 : Fail(records->LastError());
}

void PrintEvent(const EventRecord& event) {
  std::array<char, 32> start{};
  const auto seconds = static_cast<time_t>(event.startUs / 1000000);
  tm local{};
  strftime(start.data(), start.size(), "%Y-%m-%d %H:%M:%S", localtime_r(&seconds, &local));
  printf("%6d  camera %-6d  %s  %6.0f s  %s%s\n", event.id, event.camId, start.data(),
         static_cast<double>(event.lengthUs) / 1e6, event.path.c_str(), event.type == 1 ? ", alert" : "");
}

int ListEvents(const StorageOptions& options) {
  auto own = OpenRecords(Database::Mode::kReadOnly);
  if (!own) return 1;
  const auto storage = FindOrTell(*own, options.storage);
  if (!storage) return 1;
  std::string reason;
  auto records = OpenStorageRecords(storage->directory, &reason);
  if (!records) return Fail(reason);
  EventQuery query{.limit = kPage};
  for (;;) {
    const auto events = EventTable(*records).List(query);
    if (events.empty()) break;
    for (const EventRecord& event : events) PrintEvent(event);
    query.afterStartUs = events.back().startUs;
    query.afterId = events.back().id;
  }
  return records->IsUnreadable() ? Fail(records->LastError()) : 0;
}

int PutEvents(const StorageOptions& options) {
  auto records = OpenRecords(Database::Mode::kReadOnly);
  if (!records) return 1;
  const auto storage = FindOrTell(*records, options.storage);
  if (!storage) return 1;
  std::string reason;
  const auto archive = ArchiveWriter::Open(storage->directory, reason);
  if (!archive) return Fail(reason);
  int code = 0;
  for (const int id : options.events) {
    switch (archive->Put(*records, id, reason)) {
      case ArchiveResult::kCopied:
        break;
      case ArchiveResult::kThereAlready:
        printf("%s\n", reason.c_str());
        break;
      case ArchiveResult::kFailed:
        code = Fail(reason);
    }
  }
  return code;
}

using Options = std::shared_ptr<StorageOptions>;
using Operation = int (*)(const StorageOptions&);

CLI::App* AddOne(CLI::App& group, Action& action, const Options& options, const char* name, const char* help,
                 Operation operation) {
  CLI::App* command = group.add_subcommand(name, help);
  command->callback([=, &action] { action = [=] { return operation(*options); }; });
  return command;
}

void AddNumber(CLI::App* command, const Options& options) {
  command->add_option("NUMBER", options->storage.number, "As requests name it")->required()->check(CLI::PositiveNumber);
}

// What mounts and archives have in common.
void AddGroup(CLI::App& group, Action& action, const Options& options, const char* addHelp) {
  CLI::App* add = AddOne(group, action, options, "add", addHelp, AddStorage);
  AddNumber(add, options);
  add->add_option("DIRECTORY", options->storage.directory, "Where it stands")->required();
  AddOne(group, action, options, "list", "List them, with what they hold", ListStorages);
  AddNumber(AddOne(group, action, options, "events", "List its recordings, the newest first", ListEvents), options);
  AddNumber(AddOne(group, action, options, "remove", "Forget it; what it holds stays", RemoveStorage), options);
}

}  // namespace

void AddStorageCommands(CLI::App& app, Action& action) {
  const auto mount = std::make_shared<StorageOptions>();
  mount->storage.kind = StorageKind::kMount;
  CLI::App* mounts = app.add_subcommand("mount", "Play recordings from disks of other hosts");
  AddGroup(*mounts, action, mount, "Add a directory with records.db and recordings; nothing is ever written there");

  const auto archive = std::make_shared<StorageOptions>();
  archive->storage.kind = StorageKind::kArchive;
  CLI::App* archives = app.add_subcommand("archive", "Keep copies of recordings elsewhere");
  AddGroup(*archives, action, archive, "Add a directory to copy to; records are made in it when there are none");
  CLI::App* put = AddOne(*archives, action, archive, "put", "Copy recordings into it", PutEvents);
  AddNumber(put, archive);
  put->add_option("EVENT", archive->events, "Event id")->required()->expected(1, 10000);
}

}  // namespace oculora
