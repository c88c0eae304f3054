// Processes found again through pid files.
//
// A pid file holds one decimal pid. The process it names counts as alive when the pid is above 1, belongs to this
// user, is no zombie, and started no later than the file was written (so a reused pid is not taken for it).
#pragma once

#include <string>

// Whether the pid file names a live process.
bool ProcAliveByPidFile(const std::string& path);
// Sends `signal` to the live process named by the pid file. 0 when sent, -1 otherwise.
int ProcSignalByPidFile(const std::string& path, int signal);
// Writes the caller's pid, replacing what was there. 0 or -1.
int CreatePidFile(const std::string& path);
int ProcPidFileCreate(const char* path);
// Sends `signal` to the process named by the pid file, if it is alive and not the caller. Never waits for it.
void ClearOldProcess(const std::string& pidFile, int signal);
