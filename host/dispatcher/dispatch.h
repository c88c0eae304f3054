// Finds the plug-in function for a request and runs it.
#pragma once

#include "velm/webapi.h"

namespace oculora {

// Serves the request; every failure ends up in the response as an error, with one log line. Nothing is thrown.
// `call` false finds the function without calling it.
void Dispatch(VELM::APIRequest& request, VELM::APIResponse& response, bool call);

// Sets an error that the dispatcher found, and logs it.
void Refuse(VELM::APIResponse& response, int code, const std::string& clientText, const std::string& logText);

}  // namespace oculora
