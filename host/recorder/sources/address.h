// What a camera's source text names, and what of it may be shown.
#pragma once

#include <string>

namespace oculora {

enum class SourceKind { kRtsp, kHttp, kFile, kTest, kUnknown };

struct SourceAddress {
  SourceKind kind = SourceKind::kUnknown;
  std::string scheme;        // lower case; empty for a file
  std::string target;        // what to open: the URL, the file's path, or the text after "test:"
  std::string display;       // safe to show: "10.0.0.5:554", the file's path; "the camera" when in doubt
  bool hasPassword = false;  // the URL carries a user name and perhaps a password
};

// Never fails: what is not understood is kUnknown.
SourceAddress ParseSource(const std::string& source);

// The size asked for by a test source: "" is 1280x720, else WIDTHxHEIGHT, even numbers from 16 to 3840. False when off.
bool ParseTestSize(const std::string& text, int& width, int& height);

}  // namespace oculora
