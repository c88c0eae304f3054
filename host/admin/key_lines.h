// Changing one camera's line in the text of a stream-key file. Pure.
#pragma once

#include <string>

namespace oculora {

// A stream key is 1 to 35 characters of [A-Za-z0-9_-]: readers hold so much, and "/" and "=" structure the file.
bool IsStreamKey(const std::string& key);

// `text` with the lines of `camera` replaced by one with both keys, in the place of the first or at the end. Other
// lines and comments stay.
std::string SetKeyLine(const std::string& text, int camera, const std::string& first, const std::string& second);

// `text` without the lines of `camera`.
std::string RemoveKeyLine(const std::string& text, int camera);

}  // namespace oculora
