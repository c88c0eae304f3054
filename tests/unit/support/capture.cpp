// Small helpers of tests.
#include "capture.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <thread>

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

std::string CaptureOutput(const std::function<void()>& body) {
  fflush(stdout);
  const int saved = dup(STDOUT_FILENO);
  FILE* file = tmpfile();
  dup2(fileno(file), STDOUT_FILENO);
  body();
  fflush(stdout);
  const std::string text = ReadFile("/proc/self/fd/1");
  dup2(saved, STDOUT_FILENO);
  close(saved);
  fclose(file);
  return text;
}

Child::Child(const std::function<void()>& body) {
  fflush(stdout);
  m_Pid = fork();
  if (m_Pid != 0) return;
  body();
  fflush(stdout);
  _exit(0);
}

Child::~Child() {
  if (m_Reaped) return;
  kill(m_Pid, SIGKILL);
  waitpid(m_Pid, nullptr, 0);
}

int Child::Wait(int timeoutMs) {
  for (int status = 0, waitedMs = 0; waitedMs < timeoutMs; waitedMs += 5) {
    if (waitpid(m_Pid, &status, WNOHANG) == m_Pid) {
      m_Reaped = true;
      return status;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // programs replace usleep
  }
  return -1;
}
