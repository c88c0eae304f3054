// Progress cells between processes that come, go and are killed.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>

#include "capture.h"
#include "media/progress_table.h"
#include "velm/media.h"

namespace {

constexpr long long kKey = 1'760'000'000'123;

int ValueOf(long long key) { return ProgressIndicator(key, false, true).Get(); }

TEST(Progress, IsSharedByKeyAndStaysWhenKept) {
  EXPECT_EQ(ProgressIndicator(kKey, false, true).Set(1), -1) << "no table";
  ProgressIndicator ours(kKey, true, false);
  EXPECT_EQ(ours.Get(), -1) << "nothing set";
  Child child([] {
    ProgressIndicator theirs(kKey, true, true);
    if (theirs.Set(-16) != 0 || ValueOf(kKey) != -16) _exit(1);
    ProgressIndicator(kKey + (1LL << 32), true, true).Set(5);
  });
  EXPECT_EQ(child.Wait(10000), 0);
  EXPECT_EQ(ours.Get(), -16);
  EXPECT_EQ(ours.Set(25), 0);
  EXPECT_EQ(ValueOf(kKey), 25);
  EXPECT_EQ(ValueOf(kKey + (1LL << 32)), 5);
  { ProgressIndicator last(kKey, true, false); }
  EXPECT_EQ(ours.Set(1), -1) << "cleared";
  EXPECT_EQ(ValueOf(kKey), -1);
  EXPECT_EQ(ProgressIndicator(0, true, true).Set(1), -1) << "no key";
}

TEST(Progress, AFullTableGivesTheCellUsedLongestAgo) {
  ProgressIndicator used(kKey, true, true);
  for (int i = 1; i <= 5000; ++i) {
    ASSERT_EQ(ProgressIndicator(kKey + i, true, true).Set(i), 0);
    ASSERT_EQ(used.Set(i), 0) << "in use all the time";
    const int recent = std::max(1, i - 100);
    ASSERT_EQ(ValueOf(kKey + recent), recent);
  }
}

// Claims and frees more cells than there are for ever, and watches that no other key's value shows up.
void Churn(int offset) {
  for (int i = 0;; ++i) {
    const long long key = kKey + offset + i % 1500;
    const int value = static_cast<int>(key % 1000000);
    ProgressIndicator cell(key, true, i % 7 != 0);
    const int before = cell.Get();
    cell.Set(value);
    const int after = cell.Get();
    if ((before != -1 && before != value) || (after != -1 && after != value)) _exit(1);
  }
}

TEST(Progress, KilledProcessesLeaveNothingThatOthersTripOver) {
  oculora::RemoveProgressTable();
  Child witness([] { Churn(0); });
  for (int round = 0; round < 100; ++round) {
    Child killed([] { Churn(700); });
    usleep(3000);
    ASSERT_EQ(kill(killed.pid(), SIGKILL), 0);
    ASSERT_EQ(killed.Wait(10000), SIGKILL) << "saw another key's value";
  }
  EXPECT_EQ(witness.Wait(10), -1) << "saw another key's value";
  EXPECT_EQ(ProgressIndicator(kKey, true, true).Set(3), 0);
}

}  // namespace
