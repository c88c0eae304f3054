// Checks of the machine.
#include "admin/doctor_machine.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>

#include "front/listener.h"
#include "front/program_paths.h"
#include "front/serve.h"
#include "recorder/camera_rings.h"
#include "velm/process.h"

namespace oculora {
namespace {

constexpr unsigned long long kMiB = 1ULL << 20;

// What the loader misses for `program`, one name; empty when it can be started.
std::string MissingLibrary(const std::string& program) {
  const int resolving = setenv("LD_TRACE_LOADED_OBJECTS", "1", 1);
  std::string quoted = "'";
  for (const char c : program) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  FILE* list = resolving == 0 ? popen(("exec " + quoted + "' 2>&1").c_str(), "re") : nullptr;
  std::string missing;
  std::array<char, 512> line{};
  while (list != nullptr && fgets(line.data(), static_cast<int>(line.size()), list) != nullptr) {
    const std::string text = line.data();
    if (missing.empty() && text.find("not found") != std::string::npos) {
      const std::size_t begin = text.find_first_not_of(" \t");
      missing = text.substr(begin, text.find(' ', begin) - begin);
    }
  }
  if (list != nullptr) pclose(list);
  unsetenv("LD_TRACE_LOADED_OBJECTS");
  return missing;
}

void CheckProgram(Findings& findings, const std::string& path) {
  if (access(path.c_str(), X_OK) != 0) {
    NoteFailure(findings, path + " is missing", "build it first");
  } else if (const std::string library = MissingLibrary(path); !library.empty()) {
    NoteFailure(findings, path + " cannot start, it misses " + library, "install the package that has it");
  } else {
    NoteOk(findings, path);
  }
}

// `symbol` is what its users look for in it.
void CheckPlugin(Findings& findings, const std::string& path, const char* symbol) {
  void* plugin = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) {
    const std::string reason = dlerror();  // begins with the path
    NoteFailure(findings, "a plug-in cannot be loaded", reason + "; build it again");
    return;
  }
  if (dlsym(plugin, symbol) == nullptr) {
    NoteFailure(findings, path + " has no " + symbol, "it is no plug-in; build it again");
  } else {
    NoteOk(findings, path);
  }
  dlclose(plugin);
}

unsigned long long ReadNumber(const char* path) {
  unsigned long long number = 0;
  std::ifstream(path) >> number;
  return number;
}

std::string InMiB(unsigned long long bytes) { return std::to_string(bytes / kMiB) + " MiB"; }

unsigned long long AvailableMemory() {
  std::ifstream info("/proc/meminfo");
  for (std::string name; info >> name;) {
    unsigned long long kibibytes = 0;
    if (name == "MemAvailable:" && info >> kibibytes) return kibibytes * 1024;
  }
  return 0;
}

// Slices of HLS streams and the locks of viewers.
void CheckTmp(Findings& findings) {
  struct statvfs disk {};
  if (statvfs("/tmp", &disk) != 0 || disk.f_blocks == 0) return;
  const unsigned long long free = static_cast<unsigned long long>(disk.f_bavail) * disk.f_frsize;
  if (free >= 50 * kMiB) return;
  NoteWarning(findings, "only " + InMiB(free) + " of /tmp are free",
              "HLS needs about 10 MiB a camera there; make room");
}

}  // namespace

void CheckPrograms(Findings& findings) {
  const ProgramPaths programs = FindPrograms();
  if (const std::string lighttpd = FindInPath("lighttpd"); lighttpd.empty()) {
    NoteFailure(findings, "lighttpd is not installed", "install the package lighttpd");
  } else {
    NoteOk(findings, lighttpd);
  }
  CheckProgram(findings, programs.dispatcher);
  CheckProgram(findings, programs.recorder);
  CheckPlugin(findings, programs.module, "GetAPITable");
  CheckPlugin(findings, programs.account, "GetAPITable");
  CheckPlugin(findings, programs.events, "GetAPITable");
  CheckPlugin(findings, programs.servers, "GetAPITable");
  CheckPlugin(findings, programs.segmenter, "FFMPG_GetSegmenterCalls");
  if (access((programs.webDir + "/index.html").c_str(), R_OK) != 0) {
    NoteFailure(findings, "the page in " + programs.webDir + " is missing", "install it again");
  } else {
    NoteOk(findings, programs.webDir);
  }
}

void CheckSharedMemory(Findings& findings, const std::vector<CameraRecord>& cameras) {
  unsigned long long total = 0;
  unsigned long long largest = 0;
  unsigned long long count = 0;
  for (const CameraRecord& camera : cameras) {
    if (!camera.enabled) continue;
    for (const RingPlan& plan : PlanRings(camera)) {
      total += plan.bytes;
      largest = std::max<unsigned long long>(largest, plan.bytes);
      ++count;
    }
  }
  const unsigned long long pages = total / static_cast<unsigned long long>(sysconf(_SC_PAGESIZE)) + count * 32;
  const std::string need = "the cameras need " + std::to_string(count) + " frame rings, " + InMiB(total);
  if (ReadNumber("/proc/sys/kernel/shmmni") < count) {
    NoteFailure(findings, need, "raise the limit: sysctl kernel.shmmni=" + std::to_string(count * 2));
  } else if (ReadNumber("/proc/sys/kernel/shmmax") < largest + kMiB) {
    NoteFailure(findings, need, "raise the limit: sysctl kernel.shmmax=" + std::to_string(2 * largest + kMiB));
  } else if (ReadNumber("/proc/sys/kernel/shmall") < pages) {
    NoteFailure(findings, need, "raise the limit: sysctl kernel.shmall=" + std::to_string(2 * pages));
  } else if (!ProcAliveByPidFile(kRecorderPidPath) && AvailableMemory() < total) {
    NoteWarning(findings, need, "only " + InMiB(AvailableMemory()) + " of memory are free; disable some cameras");
  } else {
    NoteOk(findings, need);
  }
}

void CheckDisk(Findings& findings) {
  struct statvfs disk {};
  if (statvfs(kVarDir, &disk) != 0) return;  // told by the check of directories
  const unsigned long long free = static_cast<unsigned long long>(disk.f_bavail) * disk.f_frsize;
  const std::string text = InMiB(free) + " of disk are free";
  if (free < 64 * kMiB) {
    NoteFailure(findings, text, "records and logs cannot be written soon; make room");
  } else if (free < 512 * kMiB) {
    NoteWarning(findings, text, "make room");
  } else {
    NoteOk(findings, text);
  }
  CheckTmp(findings);
}

void CheckClock(Findings& findings) {
  const time_t now = time(nullptr);
  struct stat self {};
  std::array<char, 32> text{};
  struct tm local {};
  strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", localtime_r(&now, &local));
  const std::string clock = std::string("the clock says ") + text.data();
  constexpr time_t kSlack = 86400;
  if (stat("/proc/self/exe", &self) == 0 && now + kSlack < self.st_mtime) {
    NoteFailure(findings, clock + ", which was before this program was built", "set it, or sessions will not last");
  } else if (struct stat records{}; stat(kRecordsPath, &records) == 0 && now + kSlack < records.st_mtime) {
    NoteWarning(findings, clock + ", but the records were changed later than that", "check the clock");
  } else {
    NoteOk(findings, clock);
  }
}

void CheckPort(Findings& findings, int port) {
  std::string address;
  int servedPort = 0;
  std::string error;
  if (ProcAliveByPidFile(kFrontPidPath) && ReadServeAddress(&address, &servedPort)) {
    const std::string where = DescribeAddresses(address, servedPort);
    if (ProbeHttp(address, servedPort, 2000) == 200) {
      NoteOk(findings, "served at " + where);
    } else {
      NoteFailure(findings, "the web server at " + where + " does not answer with its page",
                  std::string("see ") + kFrontLogPath);
    }
  } else if (const Listener probe = OpenListener("0.0.0.0", port, &error); probe.socket.IsValid()) {
    NoteOk(findings, "port " + std::to_string(port) + " is free; the site is not being served");
  } else {
    NoteFailure(findings, "the site cannot be served on port " + std::to_string(port), error);
  }
}

}  // namespace oculora
