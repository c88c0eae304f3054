// What a generated camera does wrong on purpose.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace oculora {

enum class Fault {
  kNone,
  kLyingLengths,  // comment segments longer or shorter than they say
  kDeltaFirst,    // a viewer's first picture is a delta picture
  kHuge,          // now and then a picture of more than 4 MiB, most of it comments
  kTruncated,     // now and then half a picture
  kStall,         // nothing more after five seconds, the connection stays open
  kGap,           // now and then a picture and its sound are missing
};

// As the command line names them.
inline const std::map<std::string, Fault> kFaultNames = {{"lying-lengths", Fault::kLyingLengths},
                                                         {"delta-first", Fault::kDeltaFirst},
                                                         {"huge", Fault::kHuge},
                                                         {"truncated", Fault::kTruncated},
                                                         {"stall", Fault::kStall},
                                                         {"gap", Fault::kGap}};

// Does to picture `number` (from 0) what the fault does to it; a missing picture becomes empty.
void Spoil(Fault fault, std::uint64_t number, std::vector<std::uint8_t>& picture);

}  // namespace oculora
