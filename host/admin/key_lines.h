// Changing one camera's line in the text of a stream-key file. Pure.
#pragma once

#include <string>

namespace oculora {

// The line that gives a camera its keys.
std::string KeyLine(int camera, const std::string& first, const std::string& second);

// `text` with the lines of `camera` replaced by one with both keys, in the place of the first or at the end. Other
// lines and comments stay.
std::string SetKeyLine(const std::string& text, int camera, const std::string& first, const std::string& second);

// `text` without the lines of `camera`.
std::string RemoveKeyLine(const std::string& text, int camera);

}  // namespace oculora
