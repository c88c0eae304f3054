// Looking up programs.
#include "front/program_paths.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace oculora {

ProgramPaths FindPrograms() {
  std::error_code ignored;
  const std::filesystem::path bin = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
  const std::filesystem::path root = bin.parent_path();
  const std::filesystem::path installedPage = root / "share/oculora/web";
  ProgramPaths paths;
  paths.binDir = bin;
  paths.libDir = root / "lib";
  paths.webDir = std::filesystem::is_directory(installedPage, ignored) ? installedPage.string() : OCULORA_WEB_DIR;
  paths.dispatcher = bin / "entry.cgi";
  paths.recorder = bin / "oculora-recorder";
  paths.module = root / "lib/VELM.Oculora.Stream.so";
  paths.account = root / "lib/oculora-account.so";
  paths.events = root / "lib/oculora-events.so";
  paths.servers = root / "lib/oculora-servers.so";
  paths.segmenter = root / "lib/oculora-segmenter.so";
  return paths;
}

std::string FindInPath(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::string directories = path != nullptr ? path : "/usr/bin:/bin";
  directories += ":/usr/sbin:/sbin:/usr/local/sbin";  // ordinary users lack them
  for (std::size_t start = 0; start <= directories.size();) {
    const std::size_t end = std::min(directories.find(':', start), directories.size());
    std::string candidate = directories.substr(start, end - start) + "/" + name;
    if (candidate.front() == '/' && access(candidate.c_str(), X_OK) == 0) return candidate;
    start = end + 1;
  }
  return {};
}

}  // namespace oculora
