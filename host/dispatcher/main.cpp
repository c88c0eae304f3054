// entry.cgi: serves one web-API request as a CGI program.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "dispatcher/answer.h"
#include "dispatcher/dispatch.h"
#include "dispatcher/surroundings.h"
#include "webapi/cgi_input.h"

namespace {

int ServeRequest(std::string_view method) {
  using oculora::Refuse;
  VELM::APIResponse response;
  const bool headersOnly = method == "HEAD";
  try {
    oculora::RawRequest raw;
    const oculora::InputFailure failure = oculora::ReadCgiRequest(0, raw);
    if (failure.code != 0) {
      Refuse(response, failure.code, failure.text, failure.text);
    } else if (method != "GET" && method != "POST" && !headersOnly) {
      Refuse(response, oculora::kErrBadParameter, "only GET, HEAD and POST are served", "unknown request method");
    } else {
      // What HEAD asks about may be an endless stream: it is looked up, not run.
      oculora::Dispatch(*oculora::MakeRequest(std::move(raw)), response, !headersOnly);
    }
  } catch (const std::exception& exception) {
    Refuse(response, oculora::kErrInternal, "internal error", exception.what());
  } catch (...) {
    Refuse(response, oculora::kErrInternal, "internal error", "something that is no exception was thrown");
  }
  return oculora::WriteAnswer(response, headersOnly) ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main() {
  const char* method = std::getenv("REQUEST_METHOD");
  if (std::getenv("GATEWAY_INTERFACE") == nullptr || method == nullptr) {
    fputs("This is a CGI program: a web server runs it. Start one with \"oculora serve\".\n", stderr);
    return 2;
  }
  oculora::CleanProcess();
  return ServeRequest(method);
}
