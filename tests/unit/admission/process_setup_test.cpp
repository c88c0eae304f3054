// What a request sets up in its own process.
#include <gtest/gtest.h>
#include <sched.h>

#include <cstdlib>

#include "velm/admission.h"

namespace {

std::string Affinity() {
  cpu_set_t cpus;
  sched_getaffinity(0, sizeof(cpus), &cpus);
  std::string list;
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(cpu, &cpus)) list += std::to_string(cpu) + " ";
  }
  return list;
}

TEST(ProcessSetupTest, OnlyAWellFormedCpuListChangesTheAffinity) {
  const std::string before = Affinity();
  QmTaskSet::SetAffinity("");
  for (const char* broken : {"", "x", "0-", "-1", "1-0", "0,x", "99999", "0 1"}) {
    setenv("OCULORA_AFFINITY", broken, 1);
    QmTaskSet::SetAffinity("");
    EXPECT_EQ(Affinity(), before) << broken;
  }
  const std::string first = before.substr(0, before.find(' '));
  setenv("OCULORA_AFFINITY", (first + "-" + first + "," + first).c_str(), 1);
  QmTaskSet::SetAffinity("");
  EXPECT_EQ(Affinity(), first + " ");
  unsetenv("OCULORA_AFFINITY");
}

TEST(ProcessSetupTest, SecondFactorIsExportedOnlyWhenThereIsOne) {
  DualAuth::CheckToSetEnv("", "0123456789abcdef");
  EXPECT_EQ(getenv("OCULORA_DUAL_AUTH"), nullptr);
  EXPECT_EQ(getenv("OCULORA_SESSION"), nullptr);
  DualAuth::CheckToSetEnv("factor", "0123456789abcdef");
  EXPECT_STREQ(getenv("OCULORA_DUAL_AUTH"), "factor");
  EXPECT_STREQ(getenv("OCULORA_SESSION"), "0123456789abcdef");
}

}  // namespace
