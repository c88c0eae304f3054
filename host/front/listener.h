// The TCP socket of the front, opened before anything is started so that a port in use is known at once.
#pragma once

#include <string>

#include "front/unique_fd.h"

namespace oculora {

struct Listener {
  UniqueFd socket;  // listening, close-on-exec
  int port = 0;     // the port it got
};

// Listens on `address` (an IPv4 or IPv6 address in digits) and `port` (0: any free one). On failure the socket is
// invalid and `error` holds a sentence that says what to do.
Listener OpenListener(const std::string& address, int port, std::string* error);

// The addresses under which a browser reaches a listener bound to `address`, best one first, as "http://HOST:PORT/".
// For the any-address: this machine's name for itself, then its addresses on the network.
std::string DescribeAddresses(const std::string& address, int port);

// Asks the server at 127.0.0.1 or `address` for its start page. The status code of the answer; 0 when nothing answered
// like a web server within `timeoutMs`, -1 when nothing listens there.
int ProbeHttp(const std::string& address, int port, int timeoutMs);

}  // namespace oculora
