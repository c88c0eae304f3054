// Taking a central host on: it and this host share a secret from then on.
#include "records/servers.h"
#include "servers/clean_text.h"
#include "servers/servers.h"
#include "webapi/cgi_input.h"
#include "webapi/log_line.h"

namespace oculora {
namespace {

constexpr char kLogUnit[] = "servers";

// What is wrong with the form of the request; null when nothing is.
const char* WrongForm(const VELM::APIRequest& request, const std::string& secret) {
  if (request.GetEnv("REQUEST_METHOD", "") != "POST") return "Pair needs a POST request";
  if (request.GetEnv("QUERY_STRING", "").find("secret=") != std::string::npos) {
    return "\"secret\" belongs into the form body: addresses end up in logs";
  }
  if (!IsPairSecret(secret)) return "\"secret\" is required: 16 to 256 letters, digits and signs";
  return nullptr;
}

void Refuse(const Database& records, VELM::APIResponse& response) {
  if (!records.IsUnreadable()) {
    response.SetError(kErrFailed, records.LastError());
    return;
  }
  HOST_LOG_ERROR("%s\n", records.LastError().c_str());
  response.SetError(kErrRecords, "the records of this system cannot be written");
}

}  // namespace

void PairServer(VELM::APIRequest* request, VELM::APIResponse* response) {
  const std::string secret = request->GetParam("secret", "").asString();
  const std::string name = CleanText(request->GetParam("name", "").asString(), kMaxServerName);
  const bool replace = request->GetParam("replace", false).asBool();
  if (!request->IsAuthorized() || !request->IsAdmin()) {
    response->SetError(kErrNotAllowed, request->IsAuthorized() ? "not allowed" : "not logged in");
    return;
  }
  if (const char* wrong = WrongForm(*request, secret)) {
    response->SetError(kErrBadParameter, wrong);
    return;
  }
  std::string error;
  auto records = Database::Open(Database::Mode::kReadWrite, &error);
  if (!records) {
    HOST_LOG_ERROR("%s\n", error.c_str());
    response->SetError(kErrRecords, "the records of this system cannot be read");
  } else if (!ServerTable(*records).SetCentral({name, secret}, replace)) {
    Refuse(*records, *response);
  } else {
    response->SetSuccess(Json::Value());
  }
}

}  // namespace oculora
