// Finds the plug-in function for a request and runs it.
#include "dispatcher/dispatch.h"

#include <cxxabi.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "dispatcher/plugins.h"
#include "dispatcher/surroundings.h"
#include "records/records.h"
#include "webapi/cgi_input.h"
#include "webapi/current_request.h"
#include "webapi/log_line.h"
#include "webapi/request_state.h"

namespace oculora {
namespace {

constexpr char kLogUnit[] = "dispatcher";

// The plug-in's table; null when the response already carries the error.
const VELM::APITableRow* TableFor(const std::string& api, VELM::APIResponse& response) {
  std::string plugin;
  switch (FindPlugin(kPluginsConf, api, plugin)) {
    case PluginLookup::kNoConfiguration:
      Refuse(response, kErrPlugin, "no plug-ins are configured",
             std::string(kPluginsConf) + " cannot be read: " + std::strerror(errno));
      return nullptr;
    case PluginLookup::kUnknown:
      Refuse(response, kErrUnknownApi, "unknown API", "unknown API \"" + ForLog(api) + "\"");
      return nullptr;
    case PluginLookup::kFound:
      break;
  }
  std::string reason;
  const VELM::APITableRow* table = LoadTable(plugin, reason);
  if (table == nullptr) {
    Refuse(response, kErrPlugin, "the plug-in of this API cannot be loaded", "plug-in cannot be loaded: " + reason);
  }
  return table;
}

const VELM::APITableRow* RowFor(const VELM::APIRequest& request, VELM::APIResponse& response) {
  const std::string api = request.GetAPIClass();
  if (api.empty()) {
    Refuse(response, kErrBadParameter, "the parameter \"api\" is missing", "request without an API name");
    return nullptr;
  }
  const VELM::APITableRow* table = TableFor(api, response);
  if (table == nullptr) return nullptr;
  const std::string method = request.GetAPIMethod();
  const int version = request.GetAPIVersion();
  const VELM::APITableRow* row = nullptr;
  const std::string name = "\"" + ForLog(api) + "\"";
  switch (FindRow(table, api, version, method, row)) {
    case RowLookup::kFound:
      return row;
    case RowLookup::kUnknownApi:
      Refuse(response, kErrUnknownApi, "unknown API", "unknown API " + name);
      return nullptr;
    case RowLookup::kUnknownVersion:
      Refuse(response, kErrUnknownVersion, "unknown version", name + " has no version " + std::to_string(version));
      return nullptr;
    case RowLookup::kUnknownMethod:
      Refuse(response, kErrUnknownMethod, "unknown method", name + " has no method \"" + ForLog(method) + "\"");
      return nullptr;
  }
  return nullptr;
}

void Call(const VELM::APITableRow& row, VELM::APIRequest& request, VELM::APIResponse& response) {
  std::string thrown;
  try {
    row.entry(&request, &response);
    return;
  } catch (const abi::__forced_unwind&) {
    throw;  // a thread being cancelled, not an error
  } catch (const std::exception& exception) {
    thrown = exception.what();
  } catch (...) {
    thrown = "something that is no exception";
  }
  Refuse(response, kErrInternal, "internal error",
         std::string(row.apiName) + "." + row.methodName + " threw: " + ForLog(thrown));
}

}  // namespace

void Refuse(VELM::APIResponse& response, int code, const std::string& clientText, const std::string& logText) {
  response.SetError(code, clientText);
  HOST_LOG_ERROR("%d: %s\n", code, logText.c_str());
}

void Dispatch(VELM::APIRequest& request, VELM::APIResponse& response, bool call) {
  if (const std::string& wrong = request.state().InputError(); !wrong.empty()) {
    Refuse(response, kErrBadParameter, wrong, wrong);
    return;
  }
  const VELM::APITableRow* row = RowFor(request, response);
  if (row == nullptr) return;
  if (!call) {
    response.SetSuccess(Json::Value());
    return;
  }
  if (!EnterWorkDir(kWorkDir)) {
    Refuse(response, kErrInternal, "internal error", std::string(kWorkDir) + ": " + std::strerror(errno));
    return;
  }
  SetCurrentRequest(&request);
  Call(*row, request, response);
  // A plug-in that cannot ask who the user is refuses him. The true reason helps more.
  if (!response.IsOutputEnabled() || response.GetEnvelope()["success"].asBool()) return;
  const std::string unreadable = RequestDatabaseError();
  if (!unreadable.empty()) {
    Refuse(response, kErrRecords, "the records of this system cannot be read", unreadable);
  } else if (response.GetEnvelope().isNull()) {
    Refuse(response, kErrInternal, "internal error", std::string(row->apiName) + " gave no answer");
  }
}

}  // namespace oculora
