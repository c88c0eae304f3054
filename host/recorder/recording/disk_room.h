// Whether there is room for recordings.
#pragma once

#include <cstdint>
#include <string>

namespace oculora {

// The reserve that stays free unless the setting says something else, in MB of a million bytes.
constexpr char kReserveSetting[] = "record_reserve_mb";
constexpr char kReserveDefault[] = "512";

// Empty when the disk of the recordings has at least `reserveMb` free; else a sentence that says why nothing can be
// recorded.
std::string LackOfRoom(std::int64_t reserveMb);
// The sentence for a write that failed with errno `code`.
std::string DiskTrouble(int code);

}  // namespace oculora
