// The texts of the configuration files that the front and the dispatcher read. Pure.
#pragma once

#include <string>

namespace oculora {

struct FrontSettings {
  std::string webDir;      // the page's files
  std::string dispatcher;  // path of entry.cgi
  std::string logPath;     // the server's own log
  std::string pidPath;
  std::string address;  // as it was listened on, in digits
  int port = 0;
  int tlsPort = 0;          // where the same is served by HTTPS; 0: nowhere
  std::string certificate;  // PEM file of its chain and key
};

// lighttpd's configuration. It takes the listening socket over from its parent (descriptor 3); the one of HTTPS it
// opens itself.
std::string LighttpdConfig(const FrontSettings& settings);

// Which plug-in serves which API, for plug-ins in `libDir`.
std::string PluginsConfig(const std::string& libDir);

}  // namespace oculora
