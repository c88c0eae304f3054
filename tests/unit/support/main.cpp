// Runs tests in a private site.
#include <gtest/gtest.h>

#include "private_site.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!EnterPrivateSite()) return 1;
  return RUN_ALL_TESTS();
}
