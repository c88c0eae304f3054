// The request that this process serves.
#pragma once

#include "velm/webapi.h"

namespace oculora {

// The dispatcher names it before it calls a plug-in. It must outlive every question for it.
void SetCurrentRequest(const VELM::APIRequest* request);
// Null in programs that serve no request.
const VELM::APIRequest* CurrentRequest();

}  // namespace oculora
