// Requests about cameras and events of recording servers, passed on to the server that has them. The rights of whoever
// asks are looked at before: the server grants this host everything.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

#include "records/records.h"
#include "relay/peer.h"
#include "velm/webapi.h"

namespace oculora {

constexpr char kSenseless[] = "its answer makes no sense";

// A camera of a recording server, and that server.
struct RemoteCamera {
  ServerRecord server;
  CameraRecord camera;
};

// The server of a camera that is not this host's. Empty, and answered, when it is not known here.
std::optional<RemoteCamera> OwnerOf(CameraRecord camera, VELM::APIResponse& response);

// The query of a call to a method of this API; `params` ("eventId=5") are encoded.
std::string EventCall(const std::string& method, const std::string& params);

// Calls a method of this API on a camera's server and waits some seconds for it. The answer's data; empty, and answered
// as the server did, when it refused or did not answer.
std::optional<Json::Value> AskOwner(const RemoteCamera& owner, const std::string& method, const std::string& params,
                                    VELM::APIResponse& response);

// Answers with the preview picture of a server's event, or like the server that there is none.
void PassThumbnail(const RemoteCamera& owner, int eventId, VELM::APIResponse& response);

// Why a server did not do what it was asked for; for people, does not name the server.
std::string WhyNot(const ServerRecord& server, const PeerAnswer& answer);

}  // namespace oculora
