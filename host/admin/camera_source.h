// Checking what a camera's pictures come from. Pure, but for a look at the file system.
#pragma once

#include <optional>
#include <string>

namespace oculora {

// `source` as the records keep it: rtsp(s) and http(s) URLs with a host as they are, "test:" with an optional size
// ("test:640x480", 16 to 3840 pixels, even), and files as absolute paths. On anything else nothing, and `error` says
// what would be right; also when cameras of type `videoType` (0: any) are not reached that way.
std::optional<std::string> NormaliseSource(const std::string& source, std::string* error, int videoType = 0);

// `source` fit for showing: a password in a URL becomes "***".
std::string HidePassword(const std::string& source);

}  // namespace oculora
