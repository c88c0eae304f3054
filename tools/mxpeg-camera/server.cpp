// Serves a generated camera over HTTP.
#include "server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "recorder/clock.h"

namespace oculora {
namespace {

constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int64_t kRequestUs = 10 * kSecondUs;  // a client must have asked by then
constexpr std::int64_t kStallUs = 5 * kSecondUs;
constexpr std::size_t kMostClients = 256;
constexpr std::size_t kFixed = 2;  // entries of m_Waiting before the clients

}  // namespace

Server::Server(Camera& camera, int listener, int stop)
    : m_Camera(camera), m_Listener(listener), m_Stop(stop), m_WallOffsetUs(WallClockUs() - MonotonicUs()) {}

bool Server::Run(std::int64_t untilUs, std::string& reason) {
  for (;;) {
    Wait(Timeout(MonotonicUs(), untilUs));
    const std::int64_t now = MonotonicUs();
    if (m_Waiting[0].revents != 0 || (untilUs != 0 && now >= untilUs)) return true;
    std::size_t index = kFixed;
    for (auto client = m_Clients.begin(); client != m_Clients.end(); ++index) {
      const bool stays = ServeClient(*client, m_Waiting[index].revents, now);
      client = stays ? std::next(client) : m_Clients.erase(client);
    }
    if (m_Waiting[1].revents != 0) Accept(now);
    if (IsWatched() && now >= m_DueUs && !SendPicture(reason)) return false;
  }
}

bool Server::IsWatched() const {
  return std::any_of(m_Clients.begin(), m_Clients.end(), [](const Client& client) { return client.IsWatching(); });
}

// Until the next picture, the end, or the next look at clients that have not asked yet.
int Server::Timeout(std::int64_t nowUs, std::int64_t untilUs) const {
  std::int64_t wake = m_Clients.empty() ? INT64_MAX : nowUs + kSecondUs;
  if (untilUs != 0) wake = std::min(wake, untilUs);
  if (IsWatched()) wake = std::min(wake, m_DueUs);
  return wake == INT64_MAX ? -1 : static_cast<int>(std::clamp<std::int64_t>((wake - nowUs + 999) / 1000, 0, 60000));
}

void Server::Wait(int timeoutMs) {
  m_Waiting.assign({{m_Stop, POLLIN, 0}, {m_Listener, POLLIN, 0}});
  for (const Client& client : m_Clients) {
    m_Waiting.push_back({client.Socket(), static_cast<short>(client.HasOutput() ? POLLIN | POLLOUT : POLLIN), 0});
  }
  if (poll(m_Waiting.data(), m_Waiting.size(), timeoutMs) >= 0) return;
  for (pollfd& waiting : m_Waiting) waiting.revents = 0;  // interrupted; nothing is known
}

void Server::Accept(std::int64_t nowUs) {
  UniqueFd socket(accept4(m_Listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!socket.IsValid() || m_Clients.size() == kMostClients) return;
  const int on = 1;  // the end of a picture goes out at once
  setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
  m_Clients.emplace_back(std::move(socket), nowUs);
}

bool Server::ServeClient(Client& client, short events, std::int64_t nowUs) {
  const bool watched = client.IsWatching();
  if (events != 0 && !client.Read(nowUs)) return false;
  if (client.IsWatching() && !watched) m_Camera.Greet();
  if (client.HasOutput() && !client.Write()) return false;
  return client.IsWatching() || nowUs - client.SinceUs() < kRequestUs;
}

bool Server::SendPicture(std::string& reason) {
  const std::int64_t now = MonotonicUs();
  if (m_DueUs < now - kSecondUs) m_DueUs = now;  // nobody watched, or this machine had no time
  if (!m_Camera.Next(m_DueUs + m_WallOffsetUs, m_Part, reason)) return false;
  m_DueUs += kSecondUs / m_Camera.Fps();
  if (m_Part.bytes.empty()) return true;
  const auto part = MakePart(m_Part.bytes, m_Part.start, m_Camera.SendsVideo());
  for (auto client = m_Clients.begin(); client != m_Clients.end();) {
    const bool stalls = m_Camera.Failing() == Fault::kStall && now - client->SinceUs() >= kStallUs;
    if (!stalls) client->Offer(part);
    client = client->Write() ? std::next(client) : m_Clients.erase(client);
  }
  return true;
}

}  // namespace oculora
