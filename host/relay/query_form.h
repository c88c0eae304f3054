// The forms in which requests travel to a recording server.
//
// A forwarded request runs there with the rights of the system, so it must say what this host meant and no more: what
// a client put into a value must not become a parameter of its own.
#pragma once

#include <optional>
#include <string>

namespace oculora {

enum class QueryForm {
  kEncoded,        // made by JsonToStrPair
  kLiveStream,     // raw values: pictures of a camera
  kEventPictures,  // raw values: pictures of a recorded event
  kEventFile,      // raw values: the file of a recorded event
};

// `query` ("a=1&b=2") fit for a URL. A raw form has exactly its keys in their order, and its values get encoded; "&"
// may stand in the last of them. An encoded form has keys that may travel, each once, and values that need no more
// encoding. Empty when `query` is not of that form.
std::optional<std::string> FitQuery(QueryForm form, const std::string& query);

// Whether a parameter may be passed on to another host.
bool MayTravel(const std::string& key);

// `text` with everything but unreserved characters as percent codes.
std::string PercentEncode(const std::string& text);

}  // namespace oculora
