// The stream-key files of a site.
#pragma once

#include <string>

namespace oculora {

// Gives the camera of recording server `owner` (0: this host) its two keys; readers see the old file or the new one.
// False with errno set on failure.
bool WriteStreamKeys(int owner, int camera, const std::string& first, const std::string& second);

// Takes them away, so that a later camera of the same id does not inherit them. True also when there were none.
bool RemoveStreamKeys(int owner, int camera);

}  // namespace oculora
