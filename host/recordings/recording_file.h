// What the files of recordings share, whatever their container.
#pragma once

#include <cstdint>

namespace oculora {

// What finishing a file finds in it.
struct RecordingFacts {
  std::int64_t bytes = 0;     // the whole file
  std::int32_t frames = 0;    // whole pictures
  std::int64_t lengthUs = 0;  // from the first picture to the end of the last
  // Set when finishing failed because the file holds no whole picture and never will: the caller removes it. Clear
  // after any other failure (a full disk, a file that cannot be opened): the file is kept, and finished another time.
  bool worthless = false;
};

}  // namespace oculora
