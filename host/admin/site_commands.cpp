// oculora init, serve, status, doctor: the site as a whole.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "admin/command.h"
#include "admin/doctor.h"
#include "admin/doctor_recordings.h"
#include "admin/status.h"
#include "front/serve.h"
#include "velm/file.h"

namespace oculora {
namespace {

int Init() {
  for (const char* dir : {kVarDir, kEtcDir, kStreamKeyDir}) {
    if (CreateDirP(dir, "", false) != 0) {
      return Fail(std::string(dir) + " cannot be made: " + std::strerror(errno) +
                  "; run this as root, or inside a private site");
    }
  }
  if (!OpenRecords(Database::Mode::kCreate)) return 1;
  if (!WritePluginsConfig()) return Fail(std::string(kPluginsPath) + " cannot be written: " + std::strerror(errno));
  printf("The site is ready. Next: \"oculora user add\", \"oculora camera add\", \"oculora serve\".\n");
  return 0;
}

}  // namespace

void AddSiteCommands(CLI::App& app, Action& action) {
  CLI::App* init = app.add_subcommand("init", "Make directories and records; harmless when they exist");
  init->callback([&action] { action = Init; });

  const auto serving = std::make_shared<ServeOptions>();
  CLI::App* serve = app.add_subcommand("serve", "Run recorder and web server until Ctrl-C");
  serve->add_option("--port", serving->port, "Port of the page; 0 takes a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  serve->add_option("--bind", serving->address, "Address to listen on")->capture_default_str();
  CLI::Option* tlsPort = serve->add_option("--tls-port", serving->tlsPort, "Serve by HTTPS as well, at this port");
  CLI::Option* certificate =
      serve->add_option("--certificate", serving->certificate, "PEM file of its certificate, chain and key");
  tlsPort->check(CLI::Range(1, 65535))->needs(certificate);
  certificate->needs(tlsPort);
  serve->callback([=, &action] { action = [=] { return Serve(*serving); }; });

  const auto json = std::make_shared<bool>(false);
  CLI::App* status = app.add_subcommand("status", "What runs, and how the cameras are doing");
  status->add_flag("--json", *json, "As JSON");
  status->callback([=, &action] { action = [=] { return PrintStatus(*json); }; });

  const auto port = std::make_shared<int>(8080);
  CLI::App* doctor = app.add_subcommand("doctor", "Examine the site and say what to do");
  doctor->add_option("--port", *port, "Port it shall be served on")->check(CLI::Range(1, 65535))->capture_default_str();
  const auto repair = std::make_shared<bool>(false);
  doctor->add_flag("--repair", *repair, "Bring rows and files of recordings together; the recorder must not run");
  doctor->callback([=, &action] { action = [=] { return *repair ? RepairRecordings() : RunDoctor(*port); }; });
}

}  // namespace oculora
