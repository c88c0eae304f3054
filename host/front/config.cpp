// Configuration texts.
#include "front/config.h"

namespace oculora {
namespace {

// A lighttpd string literal.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "\"";
}

// Limits: a client may stall for a minute before its request process is ended; request bodies are small forms, kept in
// memory or the site's own /tmp. Each connection takes up to three descriptors (socket, pipe, file).
constexpr char kFixedPart[] = R"(
server.modules = ( "mod_alias", "mod_setenv", "mod_cgi" )
server.systemd-socket-activation = "enable"
server.tag = "oculora"
server.max-connections = 1024
server.max-fds = 4096
server.max-request-size = 1024
server.max-read-idle = 30
server.max-write-idle = 60
server.upload-dirs = ( "/tmp" )
index-file.names = ( "index.html" )
mimetype.assign = (
  ".html" => "text/html; charset=utf-8",
  ".css" => "text/css; charset=utf-8",
  ".js" => "text/javascript; charset=utf-8",
  ".mjs" => "text/javascript; charset=utf-8",
  ".json" => "application/json",
  ".map" => "application/json",
  ".webmanifest" => "application/manifest+json",
  ".txt" => "text/plain; charset=utf-8",
  ".svg" => "image/svg+xml",
  ".png" => "image/png",
  ".jpg" => "image/jpeg",
  ".ico" => "image/x-icon",
  ".woff2" => "font/woff2",
  "" => "application/octet-stream"
)

# Answers are passed on as they come; buffering them would grow without bound. The module answers ranges itself.
server.stream-response-body = 2
server.range-requests = "disable"
# Without this a request process that writes nothing never learns that its client has left.
cgi.limits = ( "tcp-fin-propagate" => "SIGTERM" )

setenv.set-response-header = (
  "Content-Security-Policy" => "default-src 'self'; img-src 'self' blob: data:; media-src 'self' blob:; )"
                              R"(object-src 'none'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'",
  "X-Content-Type-Options" => "nosniff",
  "X-Frame-Options" => "DENY",
  "Referrer-Policy" => "same-origin"
)
)";

// An address as it stands before a port.
std::string Bracketed(const std::string& address) {
  return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

std::string TlsPart(const FrontSettings& settings) {
  if (settings.tlsPort == 0) return {};
  std::string text = "\nserver.modules += ( \"mod_openssl\" )\n$SERVER[\"socket\"] == ";
  text += Quoted(Bracketed(settings.address) + ":" + std::to_string(settings.tlsPort)) + " {\n";
  text += "  ssl.engine = \"enable\"\n  ssl.pemfile = " + Quoted(settings.certificate) + "\n}\n";
  return text;
}

}  // namespace

std::string LighttpdConfig(const FrontSettings& settings) {
  std::string text = "# Written by oculora serve; changes here are lost with its next start.\n";
  text += "server.document-root = " + Quoted(settings.webDir) + "\n";
  text += "server.bind = " + Quoted(Bracketed(settings.address)) + "\n";
  text += "server.port = " + std::to_string(settings.port) + "\n";
  text += "server.pid-file = " + Quoted(settings.pidPath) + "\n";
  text += "server.errorlog = " + Quoted(settings.logPath) + "\n";
  text += "server.breakagelog = " + Quoted(settings.logPath) + "\n";
  text += kFixedPart;
  text += TlsPart(settings);
  // The exact address and nothing else: the dispatcher's directory holds other programs.
  text += "\n$HTTP[\"url\"] == \"/webapi/entry.cgi\" {\n";
  text += "  alias.url = ( \"/webapi/entry.cgi\" => " + Quoted(settings.dispatcher) + " )\n";
  text += "  cgi.assign = ( \".cgi\" => \"\" )\n";
  text += "} else {\n";
  // Browsers ask again each time, so that an update is never mixed with files of the version before.
  text += "  setenv.add-response-header = ( \"Cache-Control\" => \"no-cache\" )\n";
  text += "}\n";
  return text;
}

std::string PluginsConfig(const std::string& libDir) {
  std::string text = "# API prefix and the plug-in that serves it. Written by oculora; changes here are lost.\n";
  text += "VELM.Oculora.Stream   " + libDir + "/VELM.Oculora.Stream.so\n";
  text += "VELM.Oculora.Account  " + libDir + "/oculora-account.so\n";
  text += "VELM.Oculora.Camera   " + libDir + "/oculora-account.so\n";
  text += "VELM.Oculora.Event    " + libDir + "/oculora-events.so\n";
  text += "VELM.Oculora.Server   " + libDir + "/oculora-servers.so\n";
  return text;
}

}  // namespace oculora
