// Stream keys of cameras, as the key files hold them.
#pragma once

#include <string>

namespace oculora {

// The two keys of a camera; either may be empty.
struct StreamKeys {
  std::string first;
  std::string second;
};

// A stream key is 1 to 35 characters of [A-Za-z0-9_-]: readers hold so much, and "/" and "=" structure the files.
bool IsStreamKey(const std::string& key);

// Reads the keys of this host's camera `camId` from the key file of recording server `ownerNdId` (0: this host's own
// cameras). False when the file or the camera's line is missing.
bool LoadStreamKeys(int ownerNdId, int camId, StreamKeys& keys);

// Whether `key` is one of the camera's keys. An empty key never is.
bool IsStreamKeyOf(int ownerNdId, int camId, const std::string& key);

}  // namespace oculora
