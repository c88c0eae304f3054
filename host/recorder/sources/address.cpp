// What a camera's source text names, and what of it may be shown.
#include "recorder/sources/address.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>

namespace oculora {
namespace {

constexpr char kInDoubt[] = "the camera";

struct Scheme {
  SourceKind kind;
  const char* port;
};

const std::map<std::string, Scheme>& Schemes() {
  static const std::map<std::string, Scheme> schemes = {
      {"rtsp", {SourceKind::kRtsp, "554"}},
      {"rtsps", {SourceKind::kRtsp, "322"}},
      {"http", {SourceKind::kHttp, "80"}},
      {"https", {SourceKind::kHttp, "443"}},
  };
  return schemes;
}

bool IsPort(const std::string& text) {
  return !text.empty() && text.size() <= 5 && std::all_of(text.begin(), text.end(), ::isdigit);
}

// The authority of a URL as "host:port", without user name and password. A password with an unescaped slash cuts the
// authority short and leaves its '@' behind; then nothing of it may be shown.
std::string DisplayHost(const std::string& authority, const std::string& rest, const char* defaultPort) {
  const std::size_t at = authority.rfind('@');
  if (at == std::string::npos && rest.find('@') != std::string::npos) return kInDoubt;
  const std::string host = at == std::string::npos ? authority : authority.substr(at + 1);
  if (host.empty()) return kInDoubt;
  const std::size_t colon = host.rfind(':');
  const bool inBrackets = host.back() == ']';
  if (colon == std::string::npos || inBrackets) return host + ":" + defaultPort;
  return IsPort(host.substr(colon + 1)) ? host : kInDoubt;
}

}  // namespace

SourceAddress ParseSource(const std::string& source) {
  SourceAddress address;
  address.target = source;
  if (source.rfind("test:", 0) == 0) {
    address.kind = SourceKind::kTest;
    address.scheme = "test";
    address.target = source.substr(5);
    address.display = "the test pattern";
    return address;
  }
  const std::size_t mark = source.find("://");
  if (mark == std::string::npos) {
    address.kind = source.empty() ? SourceKind::kUnknown : SourceKind::kFile;
    address.display = source;
    return address;
  }
  address.scheme = source.substr(0, mark);
  std::transform(address.scheme.begin(), address.scheme.end(), address.scheme.begin(), ::tolower);
  if (address.scheme == "file") {
    address.kind = SourceKind::kFile;
    address.target = source.substr(mark + 3);
    address.display = address.target;
    return address;
  }
  address.display = kInDoubt;
  const auto known = Schemes().find(address.scheme);
  if (known == Schemes().end()) return address;
  address.kind = known->second.kind;
  const std::size_t begin = mark + 3;
  const std::size_t end = std::min(source.find_first_of("/?#", begin), source.size());
  const std::string authority = source.substr(begin, end - begin);
  address.display = DisplayHost(authority, source.substr(end), known->second.port);
  address.hasPassword = authority.find('@') != std::string::npos;
  return address;
}

bool ParseTestSize(const std::string& text, int& width, int& height) {
  width = 1280;
  height = 720;
  if (text.empty()) return true;
  const char* end = text.data() + text.size();
  const auto first = std::from_chars(text.data(), end, width);
  if (first.ec != std::errc() || first.ptr == end || *first.ptr != 'x') return false;
  const auto second = std::from_chars(first.ptr + 1, end, height);
  if (second.ec != std::errc() || second.ptr != end) return false;
  const auto good = [](int side) { return side >= 16 && side <= 3840 && side % 2 == 0; };
  return good(width) && good(height);
}

}  // namespace oculora
