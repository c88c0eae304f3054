// The request that this process serves: request processes serve one, on one thread.
#include "webapi/current_request.h"

namespace oculora {
namespace {

const VELM::APIRequest* gCurrentRequest = nullptr;

}  // namespace

void SetCurrentRequest(const VELM::APIRequest* request) { gCurrentRequest = request; }
const VELM::APIRequest* CurrentRequest() { return gCurrentRequest; }

}  // namespace oculora
