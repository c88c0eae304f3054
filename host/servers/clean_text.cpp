// Text that another host sent.
#include "servers/clean_text.h"

#include <cstdint>
#include <string_view>

namespace oculora {
namespace {

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }

// The character that `text` begins with, and its length in bytes; length 0: that is no UTF-8.
struct Character {
  std::uint32_t code = 0;
  std::size_t length = 0;
};

Character FirstOf(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.front());
  if (first < 0x80) return {first, 1};
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || text.size() < length) return {};
  std::uint32_t code = first & (0xffU >> (length + 1));
  for (const char c : text.substr(1, length - 1)) {
    if (!IsContinuation(c)) return {};
    code = code << 6 | (static_cast<unsigned char>(c) & 0x3fU);
  }
  constexpr std::uint32_t kShortest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xd800 && code <= 0xdfff;
  if (code < kShortest[length] || code > 0x10ffff || surrogate) return {};
  return {code, length};
}

bool IsControl(std::uint32_t code) { return code < 0x20 || (code >= 0x7f && code < 0xa0); }

}  // namespace

std::string CutText(const std::string& text, std::size_t maxBytes) {
  if (text.size() <= maxBytes) return text;
  std::size_t end = maxBytes;
  while (end > 0 && IsContinuation(text[end])) --end;
  return text.substr(0, end);
}

std::string CleanText(const std::string& text, std::size_t maxBytes) {
  std::string clean;
  for (std::string_view rest = text; !rest.empty() && clean.size() < maxBytes;) {
    const Character next = FirstOf(rest);
    if (next.length == 0) {
      clean += '?';
    } else if (IsControl(next.code)) {
      clean += ' ';
    } else {
      clean += rest.substr(0, next.length);
    }
    rest.remove_prefix(next.length == 0 ? 1 : next.length);
  }
  clean = CutText(clean, maxBytes);
  const std::size_t first = clean.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return clean.substr(first, clean.find_last_not_of(' ') - first + 1);
}

}  // namespace oculora
