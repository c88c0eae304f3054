// What a request sets up in its own process before it works.
#include <sched.h>

#include <charconv>
#include <cstdlib>
#include <string_view>

#include "velm/admission.h"

void DualAuth::CheckToSetEnv(const std::string& cookie, const std::string& sessionId) {
  if (cookie.empty()) return;
  setenv("OCULORA_DUAL_AUTH", cookie.c_str(), 1);
  setenv("OCULORA_SESSION", sessionId.c_str(), 1);
}

namespace {

// "0,2-3" as a CPU set; false when it is written otherwise or empty.
bool ParseCpuList(std::string_view text, cpu_set_t& cpus) {
  CPU_ZERO(&cpus);
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    unsigned first = 0;
    auto number = std::from_chars(at, end, first);
    if (number.ec != std::errc()) return false;
    unsigned last = first;
    if (number.ptr != end && *number.ptr == '-') number = std::from_chars(number.ptr + 1, end, last);
    if (number.ec != std::errc() || last < first || last >= CPU_SETSIZE) return false;
    for (unsigned cpu = first; cpu <= last; ++cpu) CPU_SET(cpu, &cpus);
    if (number.ptr != end && *number.ptr++ != ',') return false;
    at = number.ptr;
  }
  return CPU_COUNT(&cpus) > 0;
}

}  // namespace

// The setting is an environment variable of the front ("0,2-3"), so that a request without one pays nothing. The tasks
// of this host share it: `task` does not select.
void QmTaskSet::SetAffinity(const std::string& /*task*/) {
  const char* list = std::getenv("OCULORA_AFFINITY");
  if (list == nullptr) return;
  cpu_set_t cpus;
  if (ParseCpuList(list, cpus)) sched_setaffinity(0, sizeof(cpus), &cpus);
}
