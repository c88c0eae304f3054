// Reads one CGI request from the process.
#include "webapi/cgi_input.h"

#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>

namespace oculora {
namespace {

constexpr int kSilenceMs = 15000;
constexpr char kFormType[] = "application/x-www-form-urlencoded";

std::string FromEnv(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : std::string();
}

// Some bytes, at least one; 0 when the client is gone or silent.
std::size_t ReadSome(int fd, char* data, std::size_t size) {
  for (;;) {
    pollfd ready{fd, POLLIN, 0};
    const int count = poll(&ready, 1, kSilenceMs);
    if (count == 0 || (count < 0 && errno != EINTR)) return 0;
    if (count < 0) continue;
    const ssize_t got = read(fd, data, size);
    if (got >= 0) return static_cast<std::size_t>(got);
    if (errno != EINTR && errno != EAGAIN) return 0;
  }
}

bool ReadExactly(int fd, std::string& body) {
  for (std::size_t done = 0; done < body.size();) {
    const std::size_t got = ReadSome(fd, body.data() + done, body.size() - done);
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
