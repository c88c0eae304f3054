// The media object, for those parts of the host core that call it.
#pragma once

#include "media/codec/media_table.h"

namespace oculora {

// Loads the object on the first call, which waits for the disk. Null, with one line in the log, when that fails.
const MediaTable* LoadMedia();

}  // namespace oculora
