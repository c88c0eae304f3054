// Serves a generated camera over HTTP, to any number of viewers at once, in one thread.
#pragma once

#include <poll.h>

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "camera.h"
#include "client.h"

namespace oculora {

class Server {
 public:
  // Both must outlive the server. `listener` listens; `stop` becomes readable when the server shall end.
  Server(Camera& camera, int listener, int stop);

  // Serves until told to stop or, when `untilUs` (CLOCK_MONOTONIC microseconds) is not 0, until then. False with a
  // sentence in `reason` when the camera is out of order.
  bool Run(std::int64_t untilUs, std::string& reason);

 private:
  int Timeout(std::int64_t nowUs, std::int64_t untilUs) const;
  void Wait(int timeoutMs);
  void Accept(std::int64_t nowUs);
  bool ServeClient(Client& client, short events, std::int64_t nowUs);
  bool SendPicture(std::string& reason);
  bool IsWatched() const;

  Camera& m_Camera;
  int m_Listener;
  int m_Stop;
  std::int64_t m_WallOffsetUs;  // from the monotonic clock to the time of day; steps of the latter are not followed
  std::int64_t m_DueUs = 0;     // the next picture
  std::list<Client> m_Clients;
  std::vector<pollfd> m_Waiting;  // stop, listener, the clients in their order
  Camera::Part m_Part;
};

}  // namespace oculora
