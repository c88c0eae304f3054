// The functions of the servers' plug-in. Each serves one method; see docs/ref/webapi.md.
#pragma once

#include "velm/webapi.h"

namespace oculora {

enum ServersError : int { kErrFailed = 100, kErrNotAllowed = 105 };

void DescribeServer(VELM::APIRequest* request, VELM::APIResponse* response);
void ListServers(VELM::APIRequest* request, VELM::APIResponse* response);
void PairServer(VELM::APIRequest* request, VELM::APIResponse* response);

}  // namespace oculora
