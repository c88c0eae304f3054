// Logging in and out.
#include <ctime>

#include "account/account.h"
#include "admission/crypto.h"
#include "records/records.h"
#include "velm/file.h"
#include "webapi/cgi_input.h"
#include "webapi/log_line.h"

namespace oculora {
namespace {

constexpr char kLogUnit[] = "account";
constexpr char kLockPath[] = "/var/packages/Oculora/var/login.lock";
constexpr std::int64_t kSessionSeconds = 604800;  // a week
constexpr int kErrNoSession = 105;
constexpr int kErrWrongPassword = 410;
constexpr int kErrTooManyAttempts = 411;
constexpr int kLockTimeoutMs = 5000;
constexpr std::size_t kMaxPasswordBytes = 1024;

// The hash of a password nobody knows, at the cost of real ones: whether a name exists must not show in the time.
constexpr char kNobodysHash[] =
    "$argon2id$v=19$m=65536,t=2,p=1$7jyN5yg9N8l1PJ7h0YJZWg$PVgfsivX+Jj/WuqHrgxWUhuwp+MlnncPfbyCZMqHe0c";

std::optional<Database> OpenRecords(VELM::APIResponse& response) {
  std::string error;
  auto database = Database::Open(Database::Mode::kReadWrite, &error);
  if (!database) {
    HOST_LOG_ERROR("%s\n", error.c_str());
    response.SetError(kErrRecords, "the records of this system cannot be read");
  }
  return database;
}

void RefuseRecords(const Database& database, VELM::APIResponse& response) {
  HOST_LOG_ERROR("%s\n", database.LastError().c_str());
  response.SetError(kErrRecords, "the records of this system cannot be written");
}

// Whether the password is right; nothing when it cannot be checked now. One at a time on the whole host: each check
// costs 64 MiB on purpose, and a crowd must not fill the memory.
std::optional<bool> CheckPassword(Database& database, const std::string& name, const std::string& password) {
  QmFlock lock(kLockPath);
  if (lock.LockEx(kLockTimeoutMs) != 0) return std::nullopt;
  const std::optional<std::string> hash = database.PasswordHash(name);
  const bool matches = VerifyPassword(hash ? *hash : kNobodysHash, password);
  return matches && hash;
}

std::string SessionCookie(const VELM::APIRequest& request, const std::string& id, std::int64_t seconds) {
  const std::string https = request.GetEnv("HTTPS", "");
  const bool secure = !https.empty() && https != "off";
  return "Set-Cookie: oculora_sid=" + id + "; Path=/; Max-Age=" + std::to_string(seconds) + "; HttpOnly; SameSite=Lax" +
         (secure ? "; Secure" : "");
}

// What is wrong with the form of a log-in request; null when nothing is.
const char* WrongForm(const VELM::APIRequest& request, const std::string& name, const std::string& password) {
  if (request.GetEnv("REQUEST_METHOD", "") != "POST") return "log-in needs a POST request";
  if (request.GetEnv("QUERY_STRING", "").find("passwd=") != std::string::npos) {
    return "\"passwd\" belongs into the form body: addresses end up in logs";
  }
  if (name.empty() || password.empty()) return "\"account\" and \"passwd\" are required";
  if (password.size() > kMaxPasswordBytes) return "\"passwd\" is too long";
  return nullptr;
}

bool OpenSession(const VELM::APIRequest& request, VELM::APIResponse& response, Database& database,
                 const UserRecord& user) {
  const std::string id = RandomToken();
  const std::int64_t now = std::time(nullptr);
  if (id.empty()) {
    response.SetError(kErrInternal, "internal error");
    return false;
  }
  if (!database.RemoveExpiredSessions(now) || !database.AddSession(id, user.uid, now, now + kSessionSeconds)) {
    RefuseRecords(database, response);
    return false;
  }
  Json::Value data;
  data["sid"] = id;
  data["user"] = user.name;
  data["admin"] = user.admin;
  response.SetSuccess(data);
  response.AddHeader(SessionCookie(request, id, kSessionSeconds));
  return true;
}

}  // namespace

void Login(VELM::APIRequest* request, VELM::APIResponse* response) {
  const std::string name = request->GetParam("account", "").asString();
  const std::string password = request->GetParam("passwd", "").asString();
  if (const char* wrong = WrongForm(*request, name, password)) {
    response->SetError(kErrBadParameter, wrong);
    return;
  }
  std::optional<Database> database = OpenRecords(*response);
  if (!database) return;
  const std::string address = request->GetRemoteIP();
  const std::optional<int> wait = database->BeginLogin(address, std::time(nullptr));
  if (!wait) {
    RefuseRecords(*database, *response);
    return;
  }
  if (*wait > 0) {
    HOST_LOG_ERROR("Log-in of \"%s\" from %s refused: too many failures.\n", ForLog(name).c_str(),
                   ForLog(address).c_str());
    response->SetError(kErrTooManyAttempts, "too many failed attempts; try again in " + std::to_string(*wait) + " s");
    return;
  }
  const std::optional<bool> passed = CheckPassword(*database, name, password);
  if (!passed) {
    HOST_LOG_ERROR("No password can be checked: %s stays locked or cannot be made.\n", kLockPath);
    response->SetError(kErrTooManyAttempts, "too many people are logging in; try again");
    return;
  }
  const std::optional<UserRecord> user = *passed ? database->FindUser(name) : std::nullopt;
  if (!user) {
    HOST_LOG_ERROR("Log-in of \"%s\" from %s failed.\n", ForLog(name).c_str(), ForLog(address).c_str());
    response->SetError(kErrWrongPassword, "wrong name or password");
    return;
  }
  if (OpenSession(*request, *response, *database, *user)) database->ForgetLoginFailures(address);
}

void Logout(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (const std::string id = request->GetSessionID(); !id.empty()) {
    std::optional<Database> database = OpenRecords(*response);
    if (!database) return;
    // A session that has ended already is no failure.
    if (!database->RemoveSession(id) && database->IsUnreadable()) {
      RefuseRecords(*database, *response);
      return;
    }
  }
  response->SetSuccess(Json::Value());
  response->AddHeader(SessionCookie(*request, "", 0));
}

void Whoami(VELM::APIRequest* request, VELM::APIResponse* response) {
  if (!request->IsAuthorized()) {
    response->SetError(kErrNoSession, "not logged in");
    return;
  }
  Json::Value data;
  data["user"] = request->GetLoginUserName();
  data["admin"] = request->IsAdmin();
  response->SetSuccess(data);
}

}  // namespace oculora
