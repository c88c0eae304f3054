// Reads parameters and cookies with cgicc, which expects well-formed input: everything is put in order first.
#include "webapi/form.h"

#include <cgicc/CgiInput.h>
#include <cgicc/CgiUtils.h>
#include <cgicc/Cgicc.h>

#include <algorithm>
#include <cctype>
#include <string_view>

namespace oculora {
namespace {

// Feeds cgicc from memory instead of the process's environment and standard input. It is asked for a GET only: query
// and body are one text by then, so the body's length and type are not cgicc's business.
class MemoryInput : public cgicc::CgiInput {
 public:
  MemoryInput(const char* variable, const std::string& value) : m_Variable(variable), m_Value(value) {}
  size_t read(char*, size_t) override { return 0; }
  std::string getenv(const char* name) override { return m_Variable == name ? m_Value : std::string(); }

 private:
  std::string_view m_Variable;
  const std::string& m_Value;
};

bool IsPercentCode(std::string_view text, std::size_t at) {
  return at + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[at + 1])) != 0 &&
         std::isxdigit(static_cast<unsigned char>(text[at + 2])) != 0;
}

// Appends `text` with every "%" that is no percent code written as "%25": cgicc reads two digits after each one, beyond
// the end of the text if need be. In cookies, unlike in forms, "+" stands for itself.
void AppendSafely(std::string_view text, bool plusIsSpace, std::string& out) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && !IsPercentCode(text, i)) {
      out += "%25";
    } else if (text[i] == '+' && !plusIsSpace) {
      out += "%2B";
    } else {
      out += text[i];
    }
  }
}

// Calls `use` with each piece of `text` between separators.
template <typename Use>
void ForEachPiece(std::string_view text, char separator, Use use) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(separator), text.size());
    use(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Appends the pairs of `text` in order, each with its "=" (cgicc drops a last pair without one). Returns how many.
std::size_t AppendPairs(std::string_view text, std::string& out) {
  std::size_t count = 0;
  ForEachPiece(text, '&', [&](std::string_view pair) {
    if (pair.empty()) return;
    if (!out.empty()) out += '&';
    AppendSafely(pair, true, out);
    if (pair.find('=') == std::string_view::npos) out += '=';
    ++count;
  });
  return count;
}

}  // namespace

bool ParseParameters(const std::string& query, const std::string& body, Fields& fields) {
  fields.clear();
  std::string text;
  text.reserve(query.size() + body.size() + 16);
  if (AppendPairs(query, text) + AppendPairs(body, text) > kMaxParameters) return false;
  if (text.empty()) return true;
  MemoryInput input("QUERY_STRING", text);
  const cgicc::Cgicc cgi(&input);
  fields.reserve(cgi.getElements().size());
  for (const cgicc::FormEntry& entry : cgi.getElements()) fields.emplace_back(entry.getName(), entry.getValue());
  return true;
}

Fields ParseCookies(const std::string& header) {
  Fields cookies;
  ForEachPiece(header, ';', [&](std::string_view piece) {
    const std::size_t equals = piece.find('=');
    if (equals == std::string_view::npos || cookies.size() >= kMaxParameters) return;
    const std::string_view name = Trim(piece.substr(0, equals));
    if (name.empty()) return;
    std::string value;
    AppendSafely(Trim(piece.substr(equals + 1)), false, value);
    cookies.emplace_back(name, cgicc::form_urldecode(value));
  });
  return cookies;
}

const std::string* FindField(const Fields& fields, const std::string& name) {
  const auto found = std::find_if(fields.begin(), fields.end(), [&](const auto& field) { return field.first == name; });
  return found == fields.end() ? nullptr : &found->second;
}

}  // namespace oculora
