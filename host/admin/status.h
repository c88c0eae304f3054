// oculora status: what runs, and how the cameras are doing.
#pragma once

namespace oculora {

// Prints it, as a table or as JSON; the exit code.
int PrintStatus(bool asJson);

}  // namespace oculora
