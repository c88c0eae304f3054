// Running the checks and printing what they found.
#include "admin/doctor.h"

#include <algorithm>
#include <cstdio>

#include "admin/doctor_machine.h"
#include "admin/doctor_recordings.h"
#include "admin/doctor_servers.h"
#include "admin/doctor_site.h"

namespace oculora {
namespace {

const char* LevelName(Finding::Level level) {
  switch (level) {
    case Finding::Level::kOk:
      return "ok  ";
    case Finding::Level::kWarn:
      return "warn";
    case Finding::Level::kFail:
      return "FAIL";
  }
  return "FAIL";
}

}  // namespace

void NoteOk(Findings& findings, std::string text) { findings.push_back({Finding::Level::kOk, std::move(text), {}}); }

void NoteWarning(Findings& findings, std::string text, std::string advice) {
  findings.push_back({Finding::Level::kWarn, std::move(text), std::move(advice)});
}

void NoteFailure(Findings& findings, std::string text, std::string advice) {
  findings.push_back({Finding::Level::kFail, std::move(text), std::move(advice)});
}

int RunDoctor(int port) {
  Findings findings;
  CheckPrograms(findings);
  CheckDirectories(findings);
  const auto cameras = CheckRecords(findings);
  CheckPort(findings, port);
  if (cameras) {
    CheckSharedMemory(findings, *cameras);
    CheckCameras(findings, *cameras);
    CheckRecordings(findings, *cameras);
    CheckServers(findings, *cameras);
  }
  CheckDisk(findings);
  CheckClock(findings);
  for (const Finding& finding : findings) {
    printf("%s  %s%s%s\n", LevelName(finding.level), finding.text.c_str(), finding.advice.empty() ? "" : ": ",
           finding.advice.c_str());
  }
  const bool failed = std::any_of(findings.begin(), findings.end(),
                                  [](const Finding& finding) { return finding.level == Finding::Level::kFail; });
  return failed ? 1 : 0;
}

}  // namespace oculora
