// Times as people write them on the command line. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace oculora {

// Seconds since 1970 of "2026-11-21T15:42:10" (a space for the T, a Z behind it, and no seconds are fine), or of a
// plain number of seconds; UTC. Nothing for anything else, and for times before 1970.
std::optional<std::int64_t> ParseUtcTime(const std::string& text);

}  // namespace oculora
