// The functions of the host's own plug-in. Each serves one method; see docs/ref/webapi.md.
#pragma once

#include "velm/webapi.h"

namespace oculora {

void Login(VELM::APIRequest* request, VELM::APIResponse* response);
void Logout(VELM::APIRequest* request, VELM::APIResponse* response);
void Whoami(VELM::APIRequest* request, VELM::APIResponse* response);
void ListCameras(VELM::APIRequest* request, VELM::APIResponse* response);

}  // namespace oculora
