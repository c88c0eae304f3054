// One viewer of the generated camera.
#include "client.h"

#include <sys/socket.h>

#include <cerrno>

namespace oculora {
namespace {

constexpr std::size_t kLongestRequest = 8192;
constexpr std::size_t kMostParts = 8;  // a viewer that is further behind misses pictures
constexpr char kBoundary[] = "--mxpeg-part\r\n";
constexpr char kMultipartHead[] =
    "HTTP/1.1 200 OK\r\nConnection: close\r\nCache-Control: no-store\r\n"
    "Content-Type: multipart/x-mixed-replace; boundary=mxpeg-part\r\n\r\n";
constexpr char kRawHead[] =
    "HTTP/1.1 200 OK\r\nConnection: close\r\nCache-Control: no-store\r\nContent-Type: video/x-mxg\r\n\r\n";

}  // namespace

std::shared_ptr<const SharedPart> MakePart(const std::vector<std::uint8_t>& bytes, bool start, bool video) {
  // Browsers show a part when the next one's boundary has come, so it goes along.
  const std::string header = std::string("Content-Type: ") + (video ? "image/jpeg" : "application/octet-stream") +
                             "\r\nContent-Length: " + std::to_string(bytes.size()) + "\r\n\r\n";
  const std::string trailer = std::string("\r\n") + kBoundary;
  auto part = std::make_shared<SharedPart>();
  part->text.reserve(header.size() + bytes.size() + trailer.size());
  part->text.assign(header.begin(), header.end());
  part->text.insert(part->text.end(), bytes.begin(), bytes.end());
  part->text.insert(part->text.end(), trailer.begin(), trailer.end());
  part->bodyAt = header.size();
  part->bodySize = bytes.size();
  part->start = start;
  return part;
}

bool Client::Read(std::int64_t nowUs) {
  char buffer[2048];
  for (;;) {
    const ssize_t got = recv(m_Socket.Get(), buffer, sizeof(buffer), 0);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno == EAGAIN || errno == EWOULDBLOCK;
    if (got == 0) return false;
    if (m_State != State::kAsking) continue;  // nothing else is expected
    m_Request.append(buffer, static_cast<std::size_t>(got));
    if (m_Request.find("\r\n\r\n") != std::string::npos) {
      Answer(nowUs);
    } else if (m_Request.size() > kLongestRequest) {
      Refuse("431 Request Header Fields Too Large");
    }
  }
}

void Client::Answer(std::int64_t nowUs) {
  const std::string line = m_Request.substr(0, m_Request.find("\r\n"));
  const std::size_t path = line.find(' ') + 1;
  const std::string target = line.substr(path, line.find_first_of(" ?", path) - path);
  if (line.compare(0, path, "GET ") != 0) return Refuse("405 Method Not Allowed");
  if (target != "/" && target != "/video" && target != "/raw") return Refuse("404 Not Found");
  m_Multipart = target != "/raw";
  m_Head = m_Multipart ? std::string(kMultipartHead) + kBoundary : kRawHead;
  m_State = State::kWatching;
  m_SinceUs = nowUs;
}

void Client::Refuse(const char* status) {
  const std::string text = std::string(status) + "\n";
  m_Head = std::string("HTTP/1.1 ") + status +
           "\r\nConnection: close\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(text.size()) +
           "\r\n\r\n" + text;
  m_State = State::kRefused;
}

void Client::Offer(const std::shared_ptr<const SharedPart>& part) {
  if (m_State != State::kWatching) return;
  m_Begun = m_Parts.size() < kMostParts && (m_Begun || part->start);
  if (m_Begun) m_Parts.push_back(part);
}

bool Client::Write() {
  if (!Send(reinterpret_cast<const std::uint8_t*>(m_Head.data()), m_Head.size(), m_HeadSent)) return false;
  if (m_HeadSent < m_Head.size()) return true;
  if (m_State == State::kRefused) return false;
  while (!m_Parts.empty()) {
    const SharedPart& part = *m_Parts.front();
    const std::uint8_t* data = part.text.data() + (m_Multipart ? 0 : part.bodyAt);
    const std::size_t size = m_Multipart ? part.text.size() : part.bodySize;
    if (!Send(data, size, m_PartSent)) return false;
    if (m_PartSent < size) return true;
    m_Parts.pop_front();
    m_PartSent = 0;
  }
  return true;
}

// Sends on from `sent`, as much as the connection takes now.
bool Client::Send(const std::uint8_t* data, std::size_t size, std::size_t& sent) {
  while (sent < size) {
    const ssize_t put = send(m_Socket.Get(), data + sent, size - sent, MSG_NOSIGNAL);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return errno == EAGAIN || errno == EWOULDBLOCK;
    sent += static_cast<std::size_t>(put);
  }
  return true;
}

}  // namespace oculora
