// Writes the answer of a request to standard output.
#include "dispatcher/answer.h"

#include <json/writer.h>

#include <cstdio>

namespace oculora {
namespace {

constexpr char kHeader[] = "Content-Type: application/json; charset=utf-8\r\nCache-Control: no-store\r\n";

std::string BodyOf(const VELM::APIResponse& response) {
  Json::StreamWriterBuilder compact;
  compact["indentation"] = "";
  return Json::writeString(compact, response.GetEnvelope()) + "\n";
}

}  // namespace

bool WriteAnswer(const VELM::APIResponse& response, bool headersOnly) {
  if (response.IsOutputEnabled()) {
    std::string text = kHeader + response.GetHeaders() + "\r\n";
    if (!headersOnly) text += BodyOf(response);
    fwrite(text.data(), 1, text.size(), stdout);
  }
  return fflush(stdout) == 0 && ferror(stdout) == 0;
}

}  // namespace oculora
