// oculora server: the recording servers that this host manages.
#include <cstdio>
#include <memory>

#include "admin/camera_source.h"
#include "admin/command.h"

namespace oculora {
namespace {

int AddServer(const ServerRecord& server) {
  std::string error;
  if (server.url.rfind("http", 0) != 0 || server.url.find("://") == std::string::npos ||
      !NormaliseSource(server.url, &error))
    return Fail("--url is the other host's address, like http://192.168.1.30:8080");
  if (server.secret.size() < 16)
    return Fail("--secret is too short; use at least 16 characters, the same on both hosts");
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  for (const ServerRecord& known : records->ListServers()) {
    if (known.id == server.id || known.name == server.name) {
      return Fail("server " + std::to_string(known.id) + " \"" + known.name + "\" exists already");
    }
  }
  return records->AddServer(server) ? 0 : Fail(records->LastError());
}

int ListServers() {
  auto records = OpenRecords(Database::Mode::kReadOnly);
  if (!records) return 1;
  const auto servers = records->ListServers();
  if (records->IsUnreadable()) return Fail(records->LastError());
  if (servers.empty()) printf("No recording servers.\n");
  for (const ServerRecord& server : servers) {
    printf("%6d  %-24s  %s\n", server.id, server.name.c_str(), server.url.c_str());
  }
  return 0;
}

}  // namespace

void AddServerCommands(CLI::App& app, Action& action) {
  const auto server = std::make_shared<ServerRecord>();
  CLI::App* group = app.add_subcommand("server", "Add and list recording servers managed by this host");
  CLI::App* add = group->add_subcommand("add", "Add a recording server");
  add->add_option("NAME", server->name, "What people see")->required();
  add->add_option("--id", server->id, "Its number here")->required()->check(CLI::PositiveNumber);
  add->add_option("--url", server->url, "Its address, like http://192.168.1.30:8080")->required();
  add->add_option("--secret", server->secret, "The secret both hosts share, at least 16 characters")->required();
  add->callback([=, &action] { action = [=] { return AddServer(*server); }; });
  CLI::App* list = group->add_subcommand("list", "List the recording servers");
  list->callback([&action] { action = ListServers; });
}

}  // namespace oculora
