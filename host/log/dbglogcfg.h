// The shared debug-log configuration as a file: made by the admin command, mapped by every process.
#pragma once

#include <cstdint>
#include <vector>

namespace oculora {

// A file, not a SysV segment, so that it survives a restart and is readable before anything runs.
constexpr char kDbgLogCfgPath[] = "/var/packages/Oculora/var/dbglog.cfg";

// Sets the threshold of the streaming module's category to `level` (0 to 7) for the processes in `pids`, or for every
// process when the list is empty. Processes that have the configuration mapped see it at once; a missing file is made.
// False, with errno set, when the file cannot be written or there are more pids than it holds.
bool WriteDbgLogCfg(std::int32_t level, const std::vector<std::int32_t>& pids);

// Whether lines go to the system log as well as to the file. False, with errno set, when the file cannot be written.
bool WriteSystemLog(bool enable);

// Reads it back; false when there is none or it is too short.
bool ReadDbgLogCfg(std::int32_t& level, std::vector<std::int32_t>& pids);

}  // namespace oculora
