// Writes the answer of a request to standard output.
#pragma once

#include "velm/webapi.h"

namespace oculora {

// Header, extra headers and envelope; nothing when the response's output is off. `headersOnly` leaves the body out.
// Output that others left in stdio's buffer goes out first. False when the front has gone.
bool WriteAnswer(const VELM::APIResponse& response, bool headersOnly);

}  // namespace oculora
