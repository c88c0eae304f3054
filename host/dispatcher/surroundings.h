// Puts the process in order before foreign code runs in it.
#pragma once

namespace oculora {

constexpr char kWorkDir[] = "/tmp/ndcam";

// Closes what the front left open from descriptor 3 on, and lets no file of this process be read by others.
void CleanProcess();

// Makes `path` if need be (0700) and enters it. It must be a directory of this user, not a link to one: anyone may
// have made something of that name in a shared directory. False, with errno set, otherwise.
bool EnterWorkDir(const char* path);

}  // namespace oculora
