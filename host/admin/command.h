// What the commands of the admin program share: registration, opening the records, and telling what went wrong.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>

#include "records/records.h"

namespace oculora {

// What the parsed command line asks for; returns the exit code: 0, or 1 after Fail.
using Action = std::function<int()>;

// Each adds its commands below `app`; parsing stores the chosen one in `action`. A group of commands does not demand
// one of them itself: the parser would then report that instead of the unknown word it found.
void AddSiteCommands(CLI::App& app, Action& action);  // init, serve, status, doctor
void AddCameraCommands(CLI::App& app, Action& action);
void AddUserCommands(CLI::App& app, Action& action);  // user, login
void AddKeyCommands(CLI::App& app, Action& action);
void AddServerCommands(CLI::App& app, Action& action);
void AddEventCommands(CLI::App& app, Action& action);
void AddRetentionCommands(CLI::App& app, Action& action);
void AddStorageCommands(CLI::App& app, Action& action);  // mount, archive
void AddTaskCommands(CLI::App& app, Action& action);
void AddLogCommands(CLI::App& app, Action& action);

// Writes "oculora: SENTENCE" to standard error; returns 1.
int Fail(const std::string& sentence);

// The records; after a failure, which has been told, nothing.
std::optional<Database> OpenRecords(Database::Mode mode);

// The password on standard input, one line; after a failure, which has been told, nothing.
std::optional<std::string> ReadPasswordOrTell();

// The camera with that id; after a failure, which has been told, nothing.
std::optional<CameraRecord> LoadCameraOrTell(Database& records, int id);

}  // namespace oculora
