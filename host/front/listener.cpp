// Sockets of the front.
#include "front/listener.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace oculora {
namespace {

// More than the front accepts in one go; the kernel cuts it to its own limit.
constexpr int kBacklog = 1024;

using AddressList = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;

AddressList Resolve(const std::string& address, int port) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  addrinfo* found = nullptr;
  if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) found = nullptr;
  return {found, freeaddrinfo};
}

std::string ExplainBind(const std::string& address, int port, int code) {
  const std::string number = std::to_string(port);
  switch (code) {
    case EADDRINUSE:
      return "port " + number + " is in use by another program; choose another one with --port";
    case EACCES:
      return "port " + number + " needs root; choose one above 1023 with --port";
    case EADDRNOTAVAIL:
      return address + " is no address of this machine; leave --bind out to listen on all of them";
    default:
      return "port " + number + " cannot be opened: " + std::strerror(code);
  }
}

int PortOf(int fd) {
  sockaddr_storage bound{};
  socklen_t length = sizeof(bound);
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length) != 0) return 0;
  if (bound.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6*>(&bound)->sin6_port);
  return ntohs(reinterpret_cast<const sockaddr_in*>(&bound)->sin_port);
}

bool IsAny(const std::string& address) { return address == "0.0.0.0" || address == "::"; }

std::string HttpAddress(const std::string& host, int port) {
  const bool v6 = host.find(':') != std::string::npos;
  return "http://" + (v6 ? "[" + host + "]" : host) + ":" + std::to_string(port) + "/";
}

// Waits for `events` on the socket; false when the time is over.
bool WaitFor(int fd, short events, int timeoutMs) {
  pollfd waiting{fd, events, 0};
  return poll(&waiting, 1, timeoutMs) == 1;
}

}  // namespace

Listener OpenListener(const std::string& address, int port, std::string* error) {
  const AddressList resolved = Resolve(address, port);
  if (resolved == nullptr) {
    *error = "\"" + address + "\" is no IP address; --bind takes one like 127.0.0.1 or 0.0.0.0";
    return {};
  }
  Listener listener;
  listener.socket.Reset(socket(resolved->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int fd = listener.socket.Get();
  const int on = 1;
  if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
      bind(fd, resolved->ai_addr, resolved->ai_addrlen) != 0 || listen(fd, kBacklog) != 0) {
    *error = ExplainBind(address, port, errno);
    return {};
  }
  listener.port = PortOf(fd);
  return listener;
}

std::string DescribeAddresses(const std::string& address, int port) {
  if (!IsAny(address)) return HttpAddress(address, port);
  std::string text = HttpAddress("localhost", port);
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return text;
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    const in_addr ip = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr;
    char digits[INET_ADDRSTRLEN];
    if ((ntohl(ip.s_addr) >> 24) == 127 || inet_ntop(AF_INET, &ip, digits, sizeof(digits)) == nullptr) continue;
    text += " and " + HttpAddress(digits, port);
  }
  return text;
}

int ProbeHttp(const std::string& address, int port, int timeoutMs) {
  const std::string target = address == "0.0.0.0" ? "127.0.0.1" : address == "::" ? "::1" : address;
  const AddressList resolved = Resolve(target, port);
  if (resolved == nullptr) return -1;
  const UniqueFd fd(socket(resolved->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.IsValid()) return -1;
  if (connect(fd.Get(), resolved->ai_addr, resolved->ai_addrlen) != 0 && errno != EINPROGRESS) return -1;
  int failure = 0;
  socklen_t length = sizeof(failure);
  if (!WaitFor(fd.Get(), POLLOUT, timeoutMs)) return 0;
  if (getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &failure, &length) != 0 || failure != 0) return -1;
  constexpr char kRequest[] = "HEAD / HTTP/1.0\r\n\r\n";
  if (send(fd.Get(), kRequest, sizeof(kRequest) - 1, MSG_NOSIGNAL) < 0) return 0;
  char answer[32] = {};
  if (!WaitFor(fd.Get(), POLLIN, timeoutMs) || recv(fd.Get(), answer, sizeof(answer) - 1, 0) <= 0) return 0;
  int status = 0;
  return sscanf(answer, "HTTP/%*d.%*d %d", &status) == 1 ? status : 0;
}

}  // namespace oculora
