// oculora doctor: examines everything a site needs and says what to do about what is wrong.
#pragma once

#include <string>
#include <vector>

namespace oculora {

// The result of one check. `advice` is empty for kOk.
struct Finding {
  enum class Level { kOk, kWarn, kFail };
  Level level = Level::kOk;
  std::string text;
  std::string advice;
};

using Findings = std::vector<Finding>;

void NoteOk(Findings& findings, std::string text);
void NoteWarning(Findings& findings, std::string text, std::string advice);
void NoteFailure(Findings& findings, std::string text, std::string advice);

// Runs every check and prints a line each; the exit code: 1 when one failed. `port` is where the site shall be served
// when it is not being served now.
int RunDoctor(int port);

}  // namespace oculora
