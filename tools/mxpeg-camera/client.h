// One viewer of the generated camera.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "front/unique_fd.h"

namespace oculora {

// A part as it goes out to all viewers: a multipart header, the bytes, and the next boundary.
struct SharedPart {
  std::vector<std::uint8_t> text;
  std::size_t bodyAt = 0, bodySize = 0;
  bool start = false;
};

// Nothing here blocks. Every operation that returns a bool says false when the connection is over.
class Client {
 public:
  // `socket` is non-blocking.
  Client(UniqueFd socket, std::int64_t nowUs) : m_Socket(std::move(socket)), m_SinceUs(nowUs) {}

  int Socket() const { return m_Socket.Get(); }
  bool IsWatching() const { return m_State == State::kWatching; }
  bool HasOutput() const { return m_HeadSent < m_Head.size() || !m_Parts.empty(); }
  // When it connected; once it watches, since when.
  std::int64_t SinceUs() const { return m_SinceUs; }

  // Takes what has arrived: the request, later only the end of the connection.
  bool Read(std::int64_t nowUs);
  // Queues a part. A viewer that is too slow misses pictures until the next that it can begin with.
  void Offer(const std::shared_ptr<const SharedPart>& part);
  bool Write();

 private:
  enum class State { kAsking, kWatching, kRefused };

  void Answer(std::int64_t nowUs);
  void Refuse(const char* status);
  bool Send(const std::uint8_t* data, std::size_t size, std::size_t& sent);

  UniqueFd m_Socket;
  std::int64_t m_SinceUs;
  State m_State = State::kAsking;
  bool m_Multipart = true;
  bool m_Begun = false;  // has what the next delta picture changes
  std::string m_Request, m_Head;
  std::size_t m_HeadSent = 0;
  std::deque<std::shared_ptr<const SharedPart>> m_Parts;
  std::size_t m_PartSent = 0;  // of the first
};

// The part around these bytes.
std::shared_ptr<const SharedPart> MakePart(const std::vector<std::uint8_t>& bytes, bool start, bool video);

}  // namespace oculora
