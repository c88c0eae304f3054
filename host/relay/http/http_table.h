// HTTP calls to other hosts, made by an object of its own that holds libcurl and is loaded on first use. The object
// exports its table of functions under the name "OculoraHttpTable".
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace oculora {

constexpr std::uint32_t kHttpTableVersion = 1;

// A POST of a form. Redirects are not followed, compressed answers not asked for.
struct HttpCall {
  std::string url;                  // http or https; the query included, encoded
  std::string form;                 // the body, encoded
  std::vector<std::string> fields;  // header lines, without line ends
  std::string trusted;              // PEM file of certificates trusted for https; empty: the system's
  int totalSeconds = 0;             // the whole call takes no longer; 0: as long as data comes
};

// The beginning of an answer: status and header fields as they came, without line ends. At most 64 fields, 16 KiB.
struct HttpHead {
  int status = 0;
  std::vector<std::pair<std::string, std::string>> fields;

  const std::string* Find(const char* name) const;  // in whatever case; null: not there
};

// Takes an answer as it arrives. False from either ends the call.
class HttpSink {
 public:
  virtual ~HttpSink() = default;
  virtual bool Begin(const HttpHead& head) = 0;                // once, before all data; also when no data follows
  virtual bool Data(const char* bytes, std::size_t size) = 0;  // in order; `bytes` are the caller's
};

struct HttpTable {
  std::uint32_t version;
  // Makes all calls side by side, the answer to calls[i] going to sinks[i]; returns when all have ended. errors[i] is
  // empty when the whole answer came, else a reason for people. A connection may take 5 s, silence 35 s.
  void (*send)(const HttpCall* calls, HttpSink* const* sinks, std::string* errors, std::size_t count);
};

}  // namespace oculora
