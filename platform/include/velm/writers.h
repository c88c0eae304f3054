// Writers of raw CGI answers to standard output.
#pragma once

#include <string>

// One multipart/x-mixed-replace answer. The CGI header goes out with the first part. Each part is closed at once by
// the boundary of the next, so that a browser shows it without waiting for the next picture. A whole part is written
// with one gathered write: nothing is copied, nothing allocated. Blocks while the client is slow.
//
// Constructing one ignores SIGPIPE for the process. A client that has gone turns the failed write into SIGTERM for
// the own process, so that loops leave through their clean-up.
class MultipartResponse {
 public:
  MultipartResponse();
  MultipartResponse(const MultipartResponse&) = delete;
  MultipartResponse& operator=(const MultipartResponse&) = delete;

  // Writes `size` bytes as one part. `extraName` and `extraValue`, when not null, become one more part header.
  // Returns 0, or -1 when the client has gone (SIGTERM was raised) or an argument is off. A large frame that
  // JpegExtractor::ReadFrame has just put into `data` goes out from its file, in three calls, without being copied.
  int Write(const char* contentType, const void* data, int size, const char* extraName, const char* extraValue);

 private:
  bool m_Started = false;
};

// The client of a relayed answer; only passed on by callers here.
class QmHttpClient;

// Writes bytes to standard output. 0, or -1 when the client has gone.
class WriteStdOutBase {
 public:
  virtual ~WriteStdOutBase() = default;
  virtual int WriteHeader(QmHttpClient* client) = 0;
  virtual int WriteResponse(const char* data, int length);
};

// A fixed header text, then body bytes.
class WriteWithHeader : public WriteStdOutBase {
 public:
  explicit WriteWithHeader(const std::string& header) : m_Header(header) {}
  int WriteHeader(QmHttpClient* client) override;  // writes the header text; `client` may be null

 private:
  std::string m_Header;
};
