// Reads one CGI request from the process: environment and standard input.
#pragma once

#include <string>

#include "webapi/request_state.h"

namespace oculora {

constexpr std::size_t kMaxBodyBytes = 1048576;

// Web-API errors of the dispatcher.
enum DispatchError : int {
  kErrBadParameter = 101,
  kErrUnknownApi = 102,
  kErrUnknownMethod = 103,
  kErrUnknownVersion = 104,
  kErrPlugin = 106,
  kErrRecords = 107,
  kErrInternal = 117,
  kErrBodyTooLarge = 413,
};

struct InputFailure {
  int code = 0;  // a DispatchError, 0: none
  std::string text;
};

// Fills `raw`. `fd` is read for a POST, exactly CONTENT_LENGTH bytes; a client that sends fewer and goes, stays
// silent for 15 s or needs more than a minute is a failure.
InputFailure ReadCgiRequest(int fd, RawRequest& raw);

}  // namespace oculora
