// Whether a camera is being turned into HLS, from the files of its remux.
#pragma once

#include <optional>

namespace oculora {

struct RemuxState {
  int pid = 0;
  int viewers = 0;            // who opened the stream and has not closed it
  long untouchedSeconds = 0;  // since somebody fetched a slice
};

// The live remux of a camera; empty when there is none. Reads two small files.
std::optional<RemuxState> LookAtRemux(int camId);

}  // namespace oculora
