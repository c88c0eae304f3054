// Replacing a small file as a whole.
#pragma once

#include <string>

namespace oculora {

// Writes `text` to a new file of mode 0600 beside `path`, flushes it, and renames it over `path`: readers see the old
// text or the new one, also after a power cut. False with errno set on failure; `path` is untouched then.
bool WriteFileAtomically(const std::string& path, const std::string& text);

}  // namespace oculora
