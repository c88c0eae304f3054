// Starting, watching and stopping recorder and web server.
#include "front/serve.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "front/config.h"
#include "front/listener.h"
#include "front/program_keeper.h"
#include "front/program_paths.h"
#include "front/remux_leftovers.h"
#include "front/write_file.h"
#include "media/progress_table.h"
#include "recorder/camera_rings.h"
#include "records/records.h"
#include "shm/ring_writer.h"
#include "velm/file.h"
#include "velm/process.h"

namespace oculora {
namespace {

constexpr int kStartSeconds = 15;
constexpr char kFrontConfigPath[] = "/var/packages/Oculora/etc/lighttpd.conf";
constexpr char kServeLockPath[] = "/var/packages/Oculora/var/serve.lock";

int Fail(const std::string& sentence) {
  fprintf(stderr, "oculora: %s\n", sentence.c_str());
  return 1;
}

std::string LastLine(const char* path) {
  std::ifstream file(path);
  std::string last;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty()) last = line;
  }
  return last;
}

bool WriteConfigs(const ProgramPaths& programs, const ServeOptions& options, int port) {
  const FrontSettings settings{programs.webDir, programs.dispatcher, kFrontLogPath,
                               kFrontPidPath,   options.address,     port,
                               options.tlsPort, options.certificate};
  return WritePluginsConfig() && WriteFileAtomically(kFrontConfigPath, LighttpdConfig(settings));
}

// What must be there before anything is started; an empty text when all is.
std::string Missing(const ProgramPaths& programs, const std::string& lighttpd) {
  if (lighttpd.empty()) return "lighttpd is not installed; install the package lighttpd";
  for (const std::string& program : {programs.dispatcher, programs.recorder}) {
    if (access(program.c_str(), X_OK) != 0) return program + " is missing; build it first";
  }
  std::string error;
  if (!Database::Open(Database::Mode::kReadWrite, &error)) return error;
  return {};
}

// Rings live as long as the recorder; this is for one that could not clean up itself.
void RemoveRings() {
  RemoveProgressTable();
  std::string ignored;
  auto records = Database::Open(Database::Mode::kReadOnly, &ignored);
  if (!records) return;
  for (const CameraRecord& camera : records->ListCameras()) {
    for (const RingPlan& plan : PlanRings(camera)) RemoveRing(plan.id);
  }
}

bool StartPrograms(ProgramKeeper& keeper, const ProgramPaths& programs, const std::string& lighttpd,
                   const std::string& address, const Listener& listener) {
  const bool started = keeper.Start("the recorder", {programs.recorder}) &&
                       keeper.Start("the web server", {lighttpd, "-D", "-f", kFrontConfigPath}, listener.socket.Get());
  // The socket takes connections from the beginning, so only an answer shows that the server is up.
  return started &&
         keeper.WaitUntil(
             [&] { return ProcAliveByPidFile(kRecorderPidPath) && ProbeHttp(address, listener.port, 1000) > 0; },
             kStartSeconds);
}

int RunPrograms(const ProgramPaths& programs, const std::string& lighttpd, const ServeOptions& options,
                const Listener& listener) {
  const std::string& address = options.address;
  ProgramKeeper keeper;
  if (!StartPrograms(keeper, programs, lighttpd, address, listener)) {
    if (keeper.StopRequested()) return 0;
    return Fail(std::string("recorder or web server did not start; the last lines of their logs:\n  ") +
                LastLine(kLogPath) + "\n  " + LastLine(kFrontLogPath));
  }
  if (!WriteFileAtomically(kServeAddressPath, address + " " + std::to_string(listener.port) + "\n")) {
    return Fail(std::string(kServeAddressPath) + " cannot be written: " + std::strerror(errno));
  }
  const std::string tls = options.tlsPort != 0 ? ", by HTTPS at port " + std::to_string(options.tlsPort) : "";
  printf("Serving at %s%s\n", DescribeAddresses(address, listener.port).c_str(), tls.c_str());
  fflush(stdout);
  keeper.Run();
  printf("Stopping ...\n");
  fflush(stdout);
  keeper.StopAll();
  return 0;
}

}  // namespace

bool WritePluginsConfig() { return WriteFileAtomically(kPluginsPath, PluginsConfig(FindPrograms().libDir)); }

bool ReadServeAddress(std::string* address, int* port) {
  std::ifstream file(kServeAddressPath);
  return static_cast<bool>(file >> *address >> *port);
}

int Serve(const ServeOptions& options) {
  const ProgramPaths programs = FindPrograms();
  const std::string lighttpd = FindInPath("lighttpd");
  if (const std::string missing = Missing(programs, lighttpd); !missing.empty()) return Fail(missing);
  if (options.tlsPort != 0 && access(options.certificate.c_str(), R_OK) != 0) {
    return Fail("the certificate " + options.certificate + " cannot be read: " + std::strerror(errno));
  }
  QmFlock lock(kServeLockPath);
  if (lock.LockEx(0) != 0) {
    std::string address;
    int port = 0;
    const std::string where = ReadServeAddress(&address, &port) ? " at " + DescribeAddresses(address, port) : "";
    return Fail("this site is served already" + where);
  }
  std::string error;
  const Listener listener = OpenListener(options.address, options.port, &error);
  if (!listener.socket.IsValid()) return Fail(error);
  if (!WriteConfigs(programs, options, listener.port)) {
    return Fail(std::string("the configuration in ") + kEtcDir + " cannot be written: " + std::strerror(errno));
  }
  RemoveRemuxLeftovers();  // of a power cut, or of a serve that was killed
  const int code = RunPrograms(programs, lighttpd, options, listener);
  unlink(kServeAddressPath);
  RemoveRings();
  RemoveRemuxLeftovers();
  return code;
}

}  // namespace oculora
