// What the files of the recorded-event unit share.
#pragma once

namespace {
// The unit's name in log lines; moving code between files never changes a line.
[[maybe_unused]] constexpr char kLogUnit[] = "streaming";
}  // namespace

constexpr char kPlayerPidFile[] = "/tmp/player_src.pid";  // a session's: followed by "." and its id
