// oculora: sets up, serves and examines a site. Exit code 0: done, 1: failed, 2: called wrongly.
#include <sys/stat.h>

#include <cstdio>
#include <exception>

#include "admin/command.h"

namespace {

int Run(int argc, char** argv) {
  CLI::App app{"Sets up, serves and examines a video site", "oculora"};
  app.set_help_all_flag("--help-all", "Help for all commands");
  oculora::Action action;
  oculora::AddSiteCommands(app, action);
  oculora::AddCameraCommands(app, action);
  oculora::AddUserCommands(app, action);
  oculora::AddKeyCommands(app, action);
  oculora::AddServerCommands(app, action);
  oculora::AddEventCommands(app, action);
  oculora::AddRetentionCommands(app, action);
  oculora::AddStorageCommands(app, action);
  oculora::AddTaskCommands(app, action);
  oculora::AddLogCommands(app, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  if (action) return action();
  fputs("A command is missing.\nRun with --help or --help-all for more information.\n", stderr);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  umask(077);  // records, keys and logs concern nobody else
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "oculora: %s\n", error.what());
  } catch (...) {
    fputs("oculora: something unknown went wrong\n", stderr);
  }
  return 1;
}
