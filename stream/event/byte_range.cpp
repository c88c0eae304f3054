// Byte ranges of HTTP requests, as this interface reads them.
#include "byte_range.h"

#include <cstdlib>
#include <cstring>

#include "velm/file.h"

namespace {

constexpr char kUnit[] = "bytes=";
constexpr unsigned kTextBytes = 256;
constexpr std::uint64_t kAllOnes = ~std::uint64_t{0};

std::uint64_t ReadNumber(const char* text) { return static_cast<std::uint64_t>(strtoll(text, nullptr, 10)); }

}  // namespace

ByteRange ParseByteRange(const std::string& text, std::uint64_t size) {
  if (text.empty()) return {0, size - 1, size};
  char buffer[kTextBytes] = {};
  Strncpy(buffer, text, kTextBytes);
  const char* unit = strstr(buffer, kUnit);
  if (unit == nullptr) return {0, kAllOnes, kAllOnes};
  const std::uint64_t start = ReadNumber(unit + strlen(kUnit));
  const char* dash = strchr(unit, '-');
  if (dash == nullptr) return {start, kAllOnes, kAllOnes};
  // The last character of the whole text: an open range at its end makes the first one open as well. On purpose.
  const bool isOpen = buffer[strlen(buffer) - 1] == '-';
  std::uint64_t end = isOpen ? size - 1 : ReadNumber(dash + 1);
  if (end >= size) end = size - 1;  // a negative number counts as a large one
  return {start, end, end - start + 1};
}
