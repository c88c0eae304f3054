// What the files of the live-video unit share.
#pragma once

#include <cstdio>

namespace {
// The unit's name in log lines; moving code between files never changes a line.
[[maybe_unused]] constexpr char kLogUnit[] = "videoStreaming";
}  // namespace

// A plain-text CGI answer.
inline void PrintPlainText(const char* text) { printf("Content-type: text/plain\r\n\r\n%s", text); }

// Whether standard output still takes bytes.
inline bool IsOutputOpen() { return feof(stdout) == 0 && ferror(stdout) == 0; }
