// Small helpers of tests: what a function wrote to standard output, files as strings, children that end.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

std::string ReadFile(const std::string& path);  // empty when it cannot be read
void WriteFile(const std::string& path, const std::string& text);

// What `body` wrote to descriptor 1, through stdio or directly.
std::string CaptureOutput(const std::function<void()>& body);

// A child process that runs `body` and exits 0; ended by SIGKILL and reaped with its object.
class Child {
 public:
  explicit Child(const std::function<void()>& body);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t pid() const { return m_Pid; }
  // The wait status once the child has ended, or -1 when it still runs after `timeoutMs`.
  int Wait(int timeoutMs);

 private:
  pid_t m_Pid;
  bool m_Reaped = false;
};
