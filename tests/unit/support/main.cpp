// Runs tests in a private site.
#include <gtest/gtest.h>

#include "private_site.h"

#ifdef __SANITIZE_ADDRESS__
// GCC 12's leak checker misjudges where the loader keeps thread-local memory of libraries that came late, and then
// reads at wild addresses.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
const char* __asan_default_options() { return "intercept_tls_get_addr=0"; }
#endif

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!EnterPrivateSite()) return 1;
  return RUN_ALL_TESTS();
}
