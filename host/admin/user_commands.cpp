// oculora user, oculora login: who may watch.
#include <cstdio>
#include <ctime>
#include <memory>

#include "admin/command.h"
#include "admission/crypto.h"
#include "velm/admission.h"

namespace oculora {
namespace {

constexpr std::size_t kMinPassword = 8;
constexpr std::size_t kMaxPassword = 1024;
constexpr std::int64_t kSessionSeconds = std::int64_t{7} * 24 * 3600;  // as long as a log-in on the page

struct UserOptions {
  std::string name;
  bool admin = false;
  bool replace = false;
  bool fromStdin = false;
  std::string allow = "live,playback";
};

// "live,playback" as bits; nothing for another word.
std::optional<std::uint32_t> ParseOperations(const std::string& text) {
  if (text.empty() || text == "none") return 0;
  std::uint32_t operations = 0;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    const std::string word = text.substr(start, end - start);
    if (word == "live") {
      operations |= 1U << PRIV_OPER_LIVE;
    } else if (word == "playback") {
      operations |= 1U << PRIV_OPER_PLAYBACK;
    } else {
      return std::nullopt;
    }
    start = end + 1;
  }
  return operations;
}

int AddUser(const UserOptions& options) {
  const auto operations = ParseOperations(options.allow);
  if (!operations) return Fail("--allow takes \"live\", \"playback\", \"live,playback\" or \"none\"");
  const auto password = ReadPasswordOrTell();
  if (!password) return 1;
  if (password->size() < kMinPassword) return Fail("the password is too short; use at least 8 characters");
  if (password->size() > kMaxPassword) return Fail("the password is too long; use at most 1024 characters");
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  UserRecord user;
  if (const auto known = records->FindUser(options.name)) {
    if (!options.replace) {
      return Fail("there is a user \"" + options.name + "\" already; --replace sets a new password and rights");
    }
    user = *known;
  }
  user.name = options.name;
  user.admin = options.admin;
  user.operations = *operations;
  const std::string hash = HashPassword(*password);
  if (hash.empty()) return Fail("the password cannot be hashed; see \"oculora doctor\"");
  return records->AddUser(user, hash) ? 0 : Fail(records->LastError());
}

int ListUsers() {
  auto records = OpenRecords(Database::Mode::kReadOnly);
  if (!records) return 1;
  const auto users = records->ListUsers();
  if (records->IsUnreadable()) return Fail(records->LastError());
  if (users.empty()) printf("No users yet; add one with \"oculora user add\".\n");
  for (const UserRecord& user : users) {
    const bool live = (user.operations & 1U << PRIV_OPER_LIVE) != 0;
    const bool playback = (user.operations & 1U << PRIV_OPER_PLAYBACK) != 0;
    printf("%6d  %-24s  %s\n", user.uid, user.name.c_str(),
           user.admin         ? "administrator"
           : live && playback ? "live,playback"
           : live             ? "live"
           : playback         ? "playback"
                              : "none");
  }
  return 0;
}

int LogIn(const UserOptions& options) {
  const auto password = ReadPasswordOrTell();
  if (!password) return 1;
  auto records = OpenRecords(Database::Mode::kReadWrite);
  if (!records) return 1;
  const auto user = records->FindUser(options.name);
  const auto hash = records->PasswordHash(options.name);
  if (records->IsUnreadable()) return Fail(records->LastError());
  if (!user || !hash || !VerifyPassword(*hash, *password)) return Fail("wrong name or password");
  const std::int64_t now = time(nullptr);
  const std::string id = RandomToken();
  if (id.empty()) return Fail("no session id can be made; see \"oculora doctor\"");
  if (!records->RemoveExpiredSessions(now) || !records->AddSession(id, user->uid, now, now + kSessionSeconds)) {
    return Fail(records->LastError());
  }
  printf("%s\n", id.c_str());
  return 0;
}

void AddName(CLI::App* command, const std::shared_ptr<UserOptions>& options) {
  command->add_option("NAME", options->name, "The user's name")->required();
  command->add_flag("--password-stdin", options->fromStdin, "Read the password from standard input, one line")
      ->required();
}

}  // namespace

void AddUserCommands(CLI::App& app, Action& action) {
  const auto options = std::make_shared<UserOptions>();
  CLI::App* group = app.add_subcommand("user", "Add and list users");
  CLI::App* add = group->add_subcommand("add", "Add a user");
  AddName(add, options);
  add->add_flag("--admin", options->admin, "May do everything");
  add->add_flag("--replace", options->replace, "Set password and rights of a user that exists");
  add->add_option("--allow", options->allow, "What other users may do: live,playback (default), one of them, or none");
  add->callback([=, &action] { action = [=] { return AddUser(*options); }; });
  CLI::App* list = group->add_subcommand("list", "List the users");
  list->callback([&action] { action = ListUsers; });
  CLI::App* login = app.add_subcommand("login", "Log a user in; prints the session id");
  AddName(login, options);
  login->callback([=, &action] { action = [=] { return LogIn(*options); }; });
}

}  // namespace oculora
