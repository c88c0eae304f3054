// The stream-key files of a site.
#pragma once

#include <map>
#include <string>

#include "relay/stream_key.h"

namespace oculora {

// Gives the camera of recording server `owner` (0: this host) its two keys; readers see the old file or the new one.
// False with errno set on failure.
bool WriteStreamKeys(int owner, int camera, const std::string& first, const std::string& second);

// Takes them away, so that a later camera of the same id does not inherit them. True also when there were none.
bool RemoveStreamKeys(int owner, int camera);

// Keys by camera id here.
using StreamKeyMap = std::map<int, StreamKeys>;

// Makes `keys` the keys of all cameras of recording server `owner`; others go. False with errno set on failure.
bool ReplaceStreamKeys(int owner, const StreamKeyMap& keys);

// Whether they are that already.
bool HoldsStreamKeys(int owner, const StreamKeyMap& keys);

// Takes the keys of all cameras of recording server `owner` away. True also when there were none.
bool RemoveAllStreamKeys(int owner);

}  // namespace oculora
