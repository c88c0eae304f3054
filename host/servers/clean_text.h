// Text that another host sent, made fit for showing and storing. Pure.
#pragma once

#include <string>

namespace oculora {

// `text` as valid UTF-8 of at most `maxBytes` bytes: control characters become spaces, what is no UTF-8 becomes "?",
// spaces around it go. No character is cut in two.
std::string CleanText(const std::string& text, std::size_t maxBytes);

// The beginning of `text`, which is valid UTF-8, of at most `maxBytes` bytes; no character is cut in two.
std::string CutText(const std::string& text, std::size_t maxBytes);

}  // namespace oculora
