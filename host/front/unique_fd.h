// One owned file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace oculora {

class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : m_Fd(fd) {}
  ~UniqueFd() { Reset(); }
  UniqueFd(UniqueFd&& other) noexcept : m_Fd(std::exchange(other.m_Fd, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.m_Fd, -1));
    return *this;
  }

  bool IsValid() const { return m_Fd >= 0; }
  int Get() const { return m_Fd; }
  void Reset(int fd = -1) {
    if (m_Fd >= 0) close(m_Fd);
    m_Fd = fd;
  }

 private:
  int m_Fd = -1;
};

}  // namespace oculora
