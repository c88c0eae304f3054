// Reads one CGI request from the process.
#include "webapi/cgi_input.h"

#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>

namespace oculora {
namespace {

constexpr int kSilenceMs = 15000;
constexpr auto kWholeBody = std::chrono::seconds(60);  // for those who send a byte now and then
constexpr char kFormType[] = "application/x-www-form-urlencoded";

std::string FromEnv(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : std::string();
}

using Clock = std::chrono::steady_clock;

// Some bytes, at least one; 0 when the client is gone, silent or late.
std::size_t ReadSome(int fd, char* data, std::size_t size, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd ready{fd, POLLIN, 0};
    const int count = left > 0 ? poll(&ready, 1, static_cast<int>(std::min<std::int64_t>(left, kSilenceMs))) : 0;
    if (count == 0 || (count < 0 && errno != EINTR)) return 0;
    if (count < 0) continue;
    const ssize_t got = read(fd, data, size);
    if (got >= 0) return static_cast<std::size_t>(got);
    if (errno != EINTR && errno != EAGAIN) return 0;
  }
}

bool ReadExactly(int fd, std::string& body) {
  const Clock::time_point deadline = Clock::now() + kWholeBody;
  for (std::size_t done = 0; done < body.size();) {
    const std::size_t got = ReadSome(fd, body.data() + done, body.size() - done, deadline);
    if (got == 0) return false;
    done += got;
  }
  return true;
}

// "application/x-www-form-urlencoded; charset=utf-8" is a form, and so is a body nobody named.
bool IsForm(const std::string& contentType) {
  const std::string type = contentType.substr(0, contentType.find_first_of("; \t"));
  return type.empty() || strcasecmp(type.c_str(), kFormType) == 0;
}

InputFailure ReadBody(int fd, std::string& body) {
  const std::string text = FromEnv("CONTENT_LENGTH");
  if (text.empty()) return {kErrBadParameter, "a POST request needs a Content-Length"};
  std::size_t length = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  if (error == std::errc::result_out_of_range) return {kErrBodyTooLarge, "the request body is too large"};
  if (error != std::errc() || end != text.data() + text.size()) {
    return {kErrBadParameter, "the Content-Length is not a number"};
  }
  if (length > kMaxBodyBytes) return {kErrBodyTooLarge, "the request body is larger than 1 MiB"};
  if (length == 0) return {};
  if (!IsForm(FromEnv("CONTENT_TYPE"))) {
    return {kErrBadParameter, std::string("a request body must be of type ") + kFormType};
  }
  body.resize(length);
  if (!ReadExactly(fd, body)) return {kErrBadParameter, "the request body is shorter than its Content-Length"};
  return {};
}

}  // namespace

InputFailure ReadCgiRequest(int fd, RawRequest& raw) {
  raw.query = FromEnv("QUERY_STRING");
  raw.cookies = FromEnv("HTTP_COOKIE");
  return FromEnv("REQUEST_METHOD") == "POST" ? ReadBody(fd, raw.body) : InputFailure{};
}

}  // namespace oculora
