// Editing stream-key lines.
#include "admin/key_lines.h"

#include <sstream>

namespace oculora {
namespace {

// Whether `line` gives `camera` its keys, by the rules of the reader: spaces around name and "=" do not count.
bool IsLineOf(const std::string& line, const std::string& camera) {
  const std::size_t equals = line.find('=');
  const std::size_t begin = line.find_first_not_of(" \t\r");
  if (equals == std::string::npos || begin >= equals) return false;
  const std::size_t end = line.find_last_not_of(" \t\r", equals - 1);
  return line.compare(begin, end + 1 - begin, camera) == 0;
}

// Replaces the first line of `camera` by `line` and drops further ones; an empty `line` drops all.
std::string Edit(const std::string& text, int camera, std::string line) {
  const std::string id = std::to_string(camera);
  std::istringstream lines(text);
  std::string edited;
  for (std::string old; std::getline(lines, old);) {
    if (IsLineOf(old, id)) {
      edited += line;
      line.clear();
    } else {
      edited += old + "\n";
    }
  }
  return edited + line;
}

}  // namespace

std::string KeyLine(int camera, const std::string& first, const std::string& second) {
  return std::to_string(camera) + "=" + first + "/" + second + "\n";
}

std::string SetKeyLine(const std::string& text, int camera, const std::string& first, const std::string& second) {
  return Edit(text, camera, KeyLine(camera, first, second));
}

std::string RemoveKeyLine(const std::string& text, int camera) { return Edit(text, camera, {}); }

}  // namespace oculora
