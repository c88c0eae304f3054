// Removing slices that no player asks for any more.
#pragma once

#include <string>

// Removes slices of the same directory that are more than five older than `sliceId` ("CAMERA/NUMBER.ts", found from the
// working directory), once 15 files have piled up there: the segmenter removes none.
void RemoveOldSlice(const std::string& sliceId);
