// Removing a camera with all that belongs to it.
#pragma once

namespace oculora {

// Removes camera and stream keys; the exit code. One that has recordings is left alone unless `withRecordings`: then
// they go first, which takes a while when there are many. Whatever an interruption leaves is removed by calling it
// again.
int RemoveCamera(int id, bool withRecordings);

}  // namespace oculora
