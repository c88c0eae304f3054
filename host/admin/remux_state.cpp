// Whether a camera is being turned into HLS, from the files of its remux.
#include "admin/remux_state.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <fstream>

#include "front/remux_files.h"
#include "velm/process.h"

namespace oculora {

std::optional<RemuxState> LookAtRemux(int camId) {
  const std::string pidFile = RemuxPidFile(camId);
  struct stat info {};
  if (!ProcAliveByPidFile(pidFile) || stat(pidFile.c_str(), &info) != 0) return std::nullopt;
  RemuxState remux;
  std::ifstream(pidFile) >> remux.pid;
  std::ifstream(RemuxDir(camId) + "/cnt") >> remux.viewers;
  remux.untouchedSeconds = std::max<long>(0, static_cast<long>(std::time(nullptr) - info.st_mtime));
  return remux;
}

}  // namespace oculora
