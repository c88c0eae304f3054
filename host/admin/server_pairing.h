// Making a recording server share a secret with this host.
#pragma once

#include <optional>
#include <string>

namespace oculora {

// The address of a host, as the records keep it: http or https, a host, perhaps a port and a path, no "/" at the end.
// Nothing for anything else.
std::optional<std::string> NormaliseServerUrl(const std::string& url);

struct PairingRequest {
  std::string url;
  std::string user, password;  // of an administrator there
  std::string secret;
  bool replace = false;  // also when another host manages it
};

// Logs in there, gives the secret, logs out. Empty when the server has taken it, else a sentence. Blocks for 20 s at
// most for each of these steps.
std::string PairWithServer(const PairingRequest& request);

}  // namespace oculora
