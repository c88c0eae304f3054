// Calls to other hosts. Nothing here speaks HTTP yet: each call says so in the log and fails, so that the caller
// answers its client as for a server that is out of reach.
#include "velm/relay.h"
#include "webapi/log_line.h"

namespace {

constexpr char kLogUnit[] = "relay";

int RefuseCall(int ndId) {
  HOST_LOG_ERROR("Recording server %d cannot be called: calls to other hosts come with a later version.\n", ndId);
  return -1;
}

}  // namespace

int SendWebAPIToRec(int ndId, const std::string& /*query*/) { return RefuseCall(ndId); }

int SendWebAPIToRecAndWriteAsHeader(int ndId, const std::string& /*query*/, const std::string& /*header*/) {
  return RefuseCall(ndId);
}

int RedirectMFStream(int ndId, const std::string& /*path*/, const std::string& /*query*/) { return RefuseCall(ndId); }

int RedirectMFStream(int ndId, const std::string& /*query*/) { return RefuseCall(ndId); }

int RedirectWebAPIEvent(int ndId, const std::string& /*query*/) { return RefuseCall(ndId); }
