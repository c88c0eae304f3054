// Where the programs, plug-ins and pages of this installation lie, found from the running program.
#pragma once

#include <string>

namespace oculora {

struct ProgramPaths {
  std::string binDir;
  std::string libDir;
  std::string webDir;
  std::string dispatcher;
  std::string recorder;
  std::string module;     // the streaming plug-in
  std::string account;    // the host's own plug-in
  std::string events;     // the plug-in of recordings
  std::string servers;    // the plug-in of recording servers
  std::string segmenter;  // the module loads it for HLS
};

ProgramPaths FindPrograms();

// The full path of a system program, looked up in PATH and in the directories of system daemons; empty when missing.
std::string FindInPath(const std::string& name);

}  // namespace oculora
