// oculora log: how much the streaming module writes to the log.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "admin/command.h"
#include "log/dbglogcfg.h"
#include "velm/log.h"

namespace oculora {
namespace {

constexpr int kNotGiven = -1;
constexpr char kLevels[] = "1 fatal, 2 alert, 3 error (the default), 4 warning, 5 info, 6 debug; 0 nothing";

struct LogOptions {
  int level = kNotGiven;
  std::vector<std::int32_t> pids;
};

int ShowLevel() {
  std::int32_t level = LOG_LEVEL_ERROR;
  std::vector<std::int32_t> pids;
  if (!ReadDbgLogCfg(level, pids)) {
    printf("3 (the default)\n");
    return 0;
  }
  printf("%d%s", level, pids.empty() ? "" : " for processes");
  for (const std::int32_t pid : pids) printf(" %d", pid);
  printf("\n");
  return 0;
}

int FailToWrite() {
  return Fail(std::string(kDbgLogCfgPath) + " cannot be written: " + std::strerror(errno) +
              "; has \"oculora init\" been run?");
}

int SetLevel(const LogOptions& options) {
  if (options.level == kNotGiven) return ShowLevel();
  if (options.pids.size() > DbgLogCfg::kMaxPids) {
    return Fail("at most " + std::to_string(DbgLogCfg::kMaxPids) + " processes can be named");
  }
  if (WriteDbgLogCfg(options.level, options.pids)) return 0;
  return FailToWrite();
}

int SetSystemLog(const std::string& choice) {
  if (WriteSystemLog(choice == "on")) return 0;
  return FailToWrite();
}

}  // namespace

void AddLogCommands(CLI::App& app, Action& action) {
  const auto options = std::make_shared<LogOptions>();
  CLI::App* group = app.add_subcommand("log", "How much the streaming module logs");
  CLI::App* level = group->add_subcommand("level", "Show or set the log level");
  level->add_option("N", options->level, kLevels)->check(CLI::Range(0, 7));
  level->add_option("--pid", options->pids, "Only for this process; may be repeated")
      ->check(CLI::PositiveNumber)
      ->allow_extra_args(false);
  level->callback([=, &action] { action = [=] { return SetLevel(*options); }; });

  const auto choice = std::make_shared<std::string>();
  CLI::App* system = group->add_subcommand("system", "Write lines to the system log as well as to the file");
  system->add_option("CHOICE", *choice, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
  system->callback([=, &action] { action = [=] { return SetSystemLog(*choice); }; });
}

}  // namespace oculora
