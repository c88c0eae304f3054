// Removing slices that no player asks for any more.
#include "slice_files.h"

#include <unistd.h>

#include <climits>
#include <list>

#include "qmlog.h"
#include "slice_id.h"
#include "velm/file.h"
#include "video_unit.h"

namespace {

constexpr std::size_t kFilesToClean = 15;
constexpr int kSlicesKept = 5;  // before the one asked for

}  // namespace

void RemoveOldSlice(const std::string& sliceId) {
  const std::size_t slash = sliceId.find('/');
  if (slash == std::string::npos) {
    QM_LOG_ALWAYS(__func__, "Wrong strSliceId format [%s].\n", sliceId.c_str());
    return;
  }
  char current[PATH_MAX];
  if (getcwd(current, sizeof(current)) == nullptr) {
    QM_LOG_ALWAYS(__func__, "Failed to get current dir path.\n");
    return;
  }
  const std::string directory = current + ("/" + sliceId.substr(0, slash)) + "/";
  std::list<std::string> names;
  if (GetFilesInDir(directory, names) != 0) {
    QM_LOG_ALWAYS(__func__, "Failed to get slice list from dir[%s].\n", directory.c_str());
    return;
  }
  if (names.size() < kFilesToClean) return;
  const int limit = LeadingNumber(sliceId.substr(slash + 1)) - kSlicesKept;
  for (const std::string& name : names) {
    if (name.find(".ts") == std::string::npos || LeadingNumber(name) >= limit) continue;
    const std::string path = directory + name;
    if (QmRm(path) != 0) QM_LOG_ALWAYS(__func__, "Fail to remove file.[%s]\n", path.c_str());
  }
}
