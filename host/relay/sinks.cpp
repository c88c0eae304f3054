// Keeping answers, and passing them on.
#include "relay/sinks.h"

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <string_view>

#include "writers/write_all.h"

namespace oculora {
namespace {

constexpr int kOk = 200;
constexpr int kPartial = 206;
constexpr int kFound = 302;
constexpr char kWarningPicture[] = "../images/warning.png";
constexpr int kPipeBytes = 256 * 1024;  // as for live views: one wake-up of each side for a whole picture

// What tells about the body; everything else is between that host and this one.
constexpr const char* kPassedFields[] = {"Content-Type",  "Content-Length", "Content-Range", "Accept-Ranges",
                                         "Cache-Control", "Last-Modified",  "ETag",          "Content-Disposition"};

bool WriteBytes(const char* bytes, std::size_t size) {
  iovec part{const_cast<char*>(bytes), size};
  return WriteAll(&part, 1);
}

std::string HeadText(const HttpHead& head) {
  std::string text = "Status: " + std::to_string(head.status) + "\r\n";
  for (const char* name : kPassedFields) {
    if (const std::string* value = head.Find(name)) text += std::string(name) + ": " + *value + "\r\n";
  }
  return text + "\r\n";
}

// The type without its parameters.
std::string_view TypeOf(std::string_view value) { return value.substr(0, value.find_first_of("; \r\n")); }

bool IsOfType(const HttpHead& head, std::string_view header) {
  constexpr std::string_view kName = "Content-Type: ";
  const std::string* type = head.Find("Content-Type");
  if (type == nullptr || !header.starts_with(kName)) return false;
  const std::string wanted(TypeOf(header.substr(kName.size())));
  return strcasecmp(std::string(TypeOf(*type)).c_str(), wanted.c_str()) == 0;
}

}  // namespace

bool CollectingSink::Begin(const HttpHead& head) {
  m_Head = head;
  return true;
}

bool CollectingSink::Data(const char* bytes, std::size_t size) {
  m_TooLarge = size > m_MostBytes - m_Body.size();
  if (!m_TooLarge) m_Body.append(bytes, size);
  return !m_TooLarge;
}

bool PassingSink::Begin(const HttpHead& head) {
  const std::string* location = head.Find("Location");
  const bool warns = head.status == kFound && location != nullptr && *location == kWarningPicture;
  if (!warns && head.status != kOk && head.status != kPartial) {
    m_Refusal = "its web server answers " + std::to_string(head.status);
    return false;
  }
  m_Begun = true;
  if (warns) {
    const std::string text = std::string("Location: ") + kWarningPicture + "\r\n\r\n";
    return m_Header.empty() && WriteBytes(text.data(), text.size());
  }
  fcntl(STDOUT_FILENO, F_SETPIPE_SZ, kPipeBytes);  // no pipe, or no more allowed: works as well, only slower
  m_AsAsked = m_Header.empty() || IsOfType(head, m_Header);
  const std::string text = m_AsAsked && !m_Header.empty() ? m_Header : HeadText(head);
  return WriteBytes(text.data(), text.size());
}

bool PassingSink::Data(const char* bytes, std::size_t size) { return WriteBytes(bytes, size); }

}  // namespace oculora
