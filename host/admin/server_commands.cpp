// oculora server: the recording servers that this host manages, and the host that manages this one.
#include <json/json.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

#include "admin/command.h"
#include "admin/key_file.h"
#include "admin/server_pairing.h"
#include "admin/server_sync.h"
#include "admission/crypto.h"
#include "records/servers.h"

namespace oculora {
namespace {

constexpr char kShortSecret[] =
    "--secret is no good secret; use 16 to 256 letters, digits and signs, the same on both hosts";

struct ServerOptions {
  ServerRecord server;
  std::string user;
  bool fromStdin = false;
  bool replace = false;
  bool none = false;
  bool json = false;
};

// Nothing, and told, when there is no such server.
std::optional<ServerRecord> FindServerOrTell(Database& records, int id) {
  auto server = ServerTable(records).Find(id);
  if (!server) {
    Fail(records.IsUnreadable() ? records.LastError()
                                : "there is no server " + std::to_string(id) + "; see \"oculora server list\"");
  }
  return server;
}

// What speaks against the server before anybody is called; empty when nothing does.
std::string Obstacle(Database& records, const ServerOptions& options) {
  if (options.server.name.size() > kMaxServerName) return "the name is too long; use at most 64 characters";
  for (const ServerRecord& known : records.ListServers()) {
    const bool same = known.id == options.server.id;
    if (!(same && options.replace) && (same || known.name == options.server.name)) {
      return "server " + std::to_string(known.id) + " \"" + known.name + "\" exists already" +
             (same ? "; --replace pairs it anew" : "");
    }
  }
  return records.IsUnreadable() ? records.LastError() : std::string();
}

// Makes the server take a new secret, which goes into its record. A sentence when it does not.
std::string Pair(Database& records, ServerRecord& server, const ServerOptions& options, const std::string& password) {
  server.secret = RandomToken();
  if (server.secret.empty()) return "no secret can be made; see \"oculora doctor\"";
  ServerTable table(records);
  const CentralRecord before = table.Central();
  std::string sentence = PairWithServer({server.url, options.user, password, server.secret, options.replace});
  if (table.Central().secret != server.secret) return sentence;
  table.SetCentral(before, true);
  return "--url leads to this host itself; a host does not manage itself";
}

int AddServer(const ServerOptions& options) {
  ServerRecord server = options.server;
  const auto url = NormaliseServerUrl(server.url);
  if (!url) return Fail("--url is the other host's address, like http://192.168.1.30:8080");
  server.url = *url;
  if (options.user.empty() && !IsPairSecret(server.secret)) return Fail(kShortSecret);
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  if (const std::string obstacle = Obstacle(*records, options); !obstacle.empty()) return Fail(obstacle);
  if (!options.user.empty()) {
    const auto password = ReadPasswordOrTell();
    if (!password) return 1;
    const std::string sentence = Pair(*records, server, options, *password);
    if (!sentence.empty()) return Fail(sentence);
  }
  if (!ServerTable(*records).Store(server, options.replace)) return Fail(records->LastError());
  if (options.user.empty()) {
    printf("Next: \"oculora server accept --secret SECRET\" on that server, then \"oculora server sync %d\" here.\n",
           server.id);
    return 0;
  }
  const std::string sentence = SyncServer(*records, server);
  return sentence.empty() ? 0 : Fail(sentence + "; the server is added, run \"oculora server sync\" for its cameras");
}

int AcceptCentral(const ServerOptions& options) {
  if (!options.none && !IsPairSecret(options.server.secret)) return Fail(kShortSecret);
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  const CentralRecord central{"", options.none ? "" : options.server.secret};
  return ServerTable(*records).SetCentral(central, true) ? 0 : Fail(records->LastError());
}

int Sync(int id) {
  auto records = OpenRecords(Database::Mode::kReadWrite);
  const auto server = records ? FindServerOrTell(*records, id) : std::nullopt;
  if (!server) return 1;
  const std::string sentence = SyncServer(*records, *server);
  return sentence.empty() ? 0 : Fail(sentence);
}

int RemoveServer(int id) {
  auto records = OpenRecords(Database::Mode::kReadWrite);
  const auto server = records ? FindServerOrTell(*records, id) : std::nullopt;
  if (!server) return 1;
  if (!ServerTable(*records).Remove(id)) return Fail(records->LastError());
  // A new server of that number would not see them: its keys take the place of all in the file.
  if (!RemoveAllStreamKeys(id)) {
    return Fail(std::string("it is removed, but its stream keys in ") + kStreamKeyDir +
                " cannot be removed: " + std::strerror(errno));
  }
  printf("Removed. \"oculora server accept --none\" on that server makes it forget this host.\n");
  return 0;
}

int ListServers(bool asJson) {
  auto records = OpenRecords(Database::Mode::kReadOnly);
  if (!records) return 1;
  const auto servers = records->ListServers();
  std::map<int, int> cameras;  // by server
  for (const CameraRecord& camera : records->ListCameras()) ++cameras[camera.ownerNdId];
  if (records->IsUnreadable()) return Fail(records->LastError());
  if (asJson) {
    Json::Value list(Json::arrayValue);
    for (const ServerRecord& server : servers) {
      Json::Value entry;
      entry["id"] = server.id;
      entry["name"] = server.name;
      entry["url"] = server.url;
      entry["cameras"] = cameras[server.id];
      list.append(entry);
    }
    printf("%s\n", list.toStyledString().c_str());
    return 0;
  }
  if (servers.empty()) printf("No recording servers.\n");
  for (const ServerRecord& server : servers) {
    printf("%6d  %-24s  %4d cameras  %s\n", server.id, server.name.c_str(), cameras[server.id], server.url.c_str());
  }
  return 0;
}

using Options = std::shared_ptr<ServerOptions>;

void AddAdd(CLI::App& group, Action& action, const Options& options) {
  CLI::App* add = group.add_subcommand("add", "Add a recording server and pair it with this host");
  add->add_option("NAME", options->server.name, "What people see")->required();
  add->add_option("--id", options->server.id, "Its number here")->required()->check(CLI::PositiveNumber);
  add->add_option("--url", options->server.url, "Its address, like http://192.168.1.30:8080")->required();
  CLI::Option* secret = add->add_option("--secret", options->server.secret,
                                        "The secret both hosts share; give it to the server with \"server accept\"");
  CLI::Option* login =
      add->add_option("--login", options->user, "An administrator of the server; pairs both and reads its cameras");
  CLI::Option* fromStdin =
      add->add_flag("--password-stdin", options->fromStdin, "Read his password from standard input, one line");
  login->excludes(secret)->needs(fromStdin);
  fromStdin->needs(login);
  add->add_flag("--replace", options->replace, "Pair a server anew, also one that another host manages");
  add->callback([=, &action] {
    if (options->server.secret.empty() && options->user.empty()) throw CLI::RequiredError("--login or --secret");
    action = [=] { return AddServer(*options); };
  });
}

void AddAccept(CLI::App& group, Action& action, const Options& options) {
  CLI::App* accept = group.add_subcommand("accept", "Let another host manage this one, or no longer");
  CLI::Option* secret = accept->add_option("--secret", options->server.secret, "The secret both hosts share");
  accept->add_flag("--none", options->none, "No host manages this one any more")->excludes(secret);
  accept->callback([=, &action] {
    if (options->server.secret.empty() && !options->none) throw CLI::RequiredError("--secret or --none");
    action = [=] { return AcceptCentral(*options); };
  });
}

void AddById(CLI::App& group, Action& action, const Options& options, const char* name, const char* help,
             int (*run)(int)) {
  CLI::App* command = group.add_subcommand(name, help);
  command->add_option("ID", options->server.id, "Server id")->required();
  command->callback([=, &action] { action = [=] { return run(options->server.id); }; });
}

}  // namespace

void AddServerCommands(CLI::App& app, Action& action) {
  const auto options = std::make_shared<ServerOptions>();
  CLI::App* group = app.add_subcommand("server", "Add, sync, list and remove recording servers managed by this host");
  AddAdd(*group, action, options);
  AddAccept(*group, action, options);
  AddById(*group, action, options, "sync", "Read the server's cameras and stream keys", Sync);
  AddById(*group, action, options, "remove", "Remove a server and its cameras", RemoveServer);
  CLI::App* list = group->add_subcommand("list", "List the recording servers");
  list->add_flag("--json", options->json, "As JSON");
  list->callback([=, &action] { action = [=] { return ListServers(options->json); }; });
}

}  // namespace oculora
