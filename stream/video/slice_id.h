// The names by which clients ask for slices: "CAMERA/NUMBER.ts", a path below the directory of all remuxes.
#pragma once

#include <string>

// Whether `sliceId` names a slice of camera `camId`, or of none ("NUMBER.ts"). Everything else is no slice: other
// cameras, other files of a remux, absolute paths and paths that climb.
bool IsSliceOf(const std::string& sliceId, int camId);

// The decimal number that a text begins with; 0 without one, the largest int when it is larger.
int LeadingNumber(const std::string& text);
