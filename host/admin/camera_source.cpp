// Checking camera sources.
#include "admin/camera_source.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>

#include "velm/camera.h"

namespace oculora {
namespace {

constexpr char kTestPrefix[] = "test:";
constexpr char kKnownSources[] = "a source is rtsp://..., http://..., an existing file, or test: (a generated picture)";

// The part between "://" and the next "/".
struct Authority {
  std::size_t begin;
  std::size_t length;
};

Authority AuthorityOf(const std::string& url, std::size_t schemeEnd) {
  const std::size_t begin = schemeEnd + 3;
  return {begin, std::min(url.find_first_of("/?#", begin), url.size()) - begin};
}

bool HasHost(const std::string& url, std::size_t schemeEnd) {
  const Authority part = AuthorityOf(url, schemeEnd);
  std::string host = url.substr(part.begin, part.length);
  host = host.substr(host.rfind('@') + 1);  // npos + 1 is 0
  return !host.empty() && host.front() != ':';
}

bool HasSpaceOrControl(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c <= 0x20 || c == 0x7f; });
}

std::string CheckUrl(const std::string& source, std::size_t schemeEnd, int videoType) {
  std::string scheme = source.substr(0, schemeEnd);
  if (scheme != "rtsp" && scheme != "rtsps" && scheme != "http" && scheme != "https") {
    return "\"" + scheme + "://\" is no source this program can read; " + kKnownSources;
  }
  if (videoType == VIDEO_TYPE_MXPEG && scheme.starts_with("rtsp")) {
    return "MxPEG cameras are reached over http://, not " + scheme + "://";
  }
  if (HasSpaceOrControl(source)) return "the URL has a space or control character in it; write it as %20";
  if (!HasHost(source, schemeEnd)) return "the URL names no host, like " + scheme + "://192.168.1.20/stream";
  return {};
}

std::string CheckTest(const std::string& source) {
  const std::string size = source.substr(sizeof(kTestPrefix) - 1);
  if (size.empty()) return {};
  int width = 0;
  int height = 0;
  char after = 0;
  const bool good = sscanf(size.c_str(), "%4dx%4d%c", &width, &height, &after) == 2;
  if (!good || std::min(width, height) < 16 || std::max(width, height) > 3840 || width % 2 != 0 || height % 2 != 0) {
    return "\"" + source + "\": the size is WIDTHxHEIGHT, even numbers from 16 to 3840, like test:640x480";
  }
  return {};
}

}  // namespace

std::optional<std::string> NormaliseSource(const std::string& source, std::string* error, int videoType) {
  if (const std::size_t schemeEnd = source.find("://"); schemeEnd != std::string::npos) {
    *error = CheckUrl(source, schemeEnd, videoType);
    return error->empty() ? std::optional(source) : std::nullopt;
  }
  if (source.starts_with(kTestPrefix)) {
    *error = CheckTest(source);
    return error->empty() ? std::optional(source) : std::nullopt;
  }
  std::error_code failure;
  const std::filesystem::path file = std::filesystem::canonical(source, failure);
  if (failure) {
    *error = "there is no file \"" + source + "\" inside the site; " + kKnownSources;
    return std::nullopt;
  }
  if (!std::filesystem::is_regular_file(file, failure)) {
    *error = "\"" + source + "\" is no file that can be played";
    return std::nullopt;
  }
  return file.string();
}

std::string HidePassword(const std::string& source) {
  const std::size_t schemeEnd = source.find("://");
  if (schemeEnd == std::string::npos) return source;
  const Authority part = AuthorityOf(source, schemeEnd);
  const std::string authority = source.substr(part.begin, part.length);
  const std::size_t at = authority.rfind('@');
  const std::size_t colon = authority.find(':');
  if (at == std::string::npos || colon == std::string::npos || colon > at) return source;
  std::string shown = source;
  return shown.replace(part.begin + colon + 1, at - colon - 1, "***");
}

}  // namespace oculora
