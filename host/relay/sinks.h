// What becomes of an answer from another host.
#pragma once

#include <cstddef>
#include <string>

#include "relay/http/http_table.h"

namespace oculora {

// Keeps a small answer.
class CollectingSink : public HttpSink {
 public:
  explicit CollectingSink(std::size_t mostBytes) : m_MostBytes(mostBytes) {}
  bool Begin(const HttpHead& head) override;
  bool Data(const char* bytes, std::size_t size) override;  // false for more than fits

  const HttpHead& Head() const { return m_Head; }
  const std::string& Body() const { return m_Body; }
  bool IsTooLarge() const { return m_TooLarge; }

 private:
  std::size_t m_MostBytes;
  HttpHead m_Head;
  std::string m_Body;
  bool m_TooLarge = false;
};

// Passes an answer on to standard output as it arrives, byte for byte, with its status, type, ranges and what else
// tells about the body. An answer that is none of our API is not begun: one that failed before it reached the API, one
// that leads elsewhere. The exception is the warning picture that players are sent to, which this host has as well.
class PassingSink : public HttpSink {
 public:
  // With a `header`, that goes out in place of the answer's own head, provided the answer is of the type it names;
  // another type is passed on under its own name, for it tells why.
  explicit PassingSink(std::string header = {}) : m_Header(std::move(header)) {}
  bool Begin(const HttpHead& head) override;
  bool Data(const char* bytes, std::size_t size) override;  // false when the client has gone

  bool HasBegun() const { return m_Begun; }                 // something went out
  bool IsAsAsked() const { return m_AsAsked; }              // and it is what was asked for, as far as its head tells
  const std::string& Refusal() const { return m_Refusal; }  // why the answer was not begun; for people

 private:
  std::string m_Header;
  bool m_Begun = false;
  bool m_AsAsked = false;
  std::string m_Refusal;
};

}  // namespace oculora
