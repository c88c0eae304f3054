// Reads values from files of "key=value" lines.
#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "velm/file.h"

namespace {

std::string_view Trim(std::string_view text) {
  constexpr std::string_view kSpace = " \t\r\n";
  const auto first = text.find_first_not_of(kSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

std::string_view Unquote(std::string_view text) {
  const bool quoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
  return quoted ? text.substr(1, text.size() - 2) : text;
}

bool Matches(std::string_view found, const std::string& key, bool caseless) {
  if (!caseless) return found == key;
  return found.size() == key.size() && strncasecmp(found.data(), key.data(), key.size()) == 0;
}

struct LineBuffer {
  char* text = nullptr;
  std::size_t capacity = 0;
  ~LineBuffer() { free(text); }
};

}  // namespace

int QmFileGetVal(const std::string& path, const std::string& key, std::string& value, bool caseless) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "re"), fclose);
  if (file == nullptr) return -1;
  LineBuffer line;
  for (ssize_t length; (length = getline(&line.text, &line.capacity, file.get())) >= 0;) {
    const std::string_view text = Trim({line.text, static_cast<std::size_t>(length)});
    const auto equals = text.find('=');
    if (text.empty() || text.front() == '#' || equals == std::string_view::npos) continue;
    if (!Matches(Trim(text.substr(0, equals)), key, caseless)) continue;
    value = Unquote(Trim(text.substr(equals + 1)));
    return 1;
  }
  return ferror(file.get()) != 0 ? -1 : 0;
}
