// Serving a site: recorder and web server under one supervising process.
#pragma once

#include <string>

namespace oculora {

struct ServeOptions {
  std::string address = "0.0.0.0";
  int port = 8080;          // 0: any free one
  int tlsPort = 0;          // HTTPS as well; 0: not
  std::string certificate;  // for it: PEM file of chain and key
};

// Where a served site's keeper notes "ADDRESS PORT" of its front.
constexpr char kServeAddressPath[] = "/var/packages/Oculora/var/serve.address";
constexpr char kFrontPidPath[] = "/var/packages/Oculora/var/front.pid";
constexpr char kFrontLogPath[] = "/var/packages/Oculora/var/front.log";
constexpr char kPluginsPath[] = "/var/packages/Oculora/etc/plugins.conf";

// Serves in the foreground until SIGINT or SIGTERM; says on standard output where. The exit code: 0 after a clean stop,
// 1 when it could not start (with a sentence on standard error).
int Serve(const ServeOptions& options);

// The address noted by a running Serve; false when the site is not served.
bool ReadServeAddress(std::string* address, int* port);

// Writes the plug-in configuration; false with errno set on failure.
bool WritePluginsConfig();

}  // namespace oculora
