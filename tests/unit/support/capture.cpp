// Small helpers of tests.
#include "capture.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

void WriteFile(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

std::string CaptureOutput(const std::function<void()>& body) {
  fflush(stdout);
  const int saved = dup(STDOUT_FILENO);
  FILE* file = tmpfile();
  dup2(fileno(file), STDOUT_FILENO);
  body();
  fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  std::string text;
  rewind(file);
  for (int c; (c = fgetc(file)) != EOF;) text.push_back(static_cast<char>(c));
  fclose(file);
  return text;
}

Child::Child(const std::function<void()>& body) {
  fflush(stdout);
  m_Pid = fork();
  if (m_Pid == 0) {
    body();
    fflush(stdout);
    _exit(0);
  }
}

Child::~Child() {
  if (m_Reaped) return;
  kill(m_Pid, SIGKILL);
  waitpid(m_Pid, nullptr, 0);
}

int Child::Wait(int timeoutMs) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (int status = 0; std::chrono::steady_clock::now() < until;) {
    if (waitpid(m_Pid, &status, WNOHANG) == m_Pid) {
      m_Reaped = true;
      return status;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return -1;
}
