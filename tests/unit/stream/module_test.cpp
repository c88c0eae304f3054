// The built module, loaded as the dispatcher loads it.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "streaming.h"
#include "velm/apitable.h"

TEST(Module, TableRoutesEveryMethodAndEndsInZeroes) {
  void* module = dlopen(MODULE_PATH, RTLD_LAZY | RTLD_LOCAL);
  ASSERT_NE(module, nullptr) << dlerror();
  const VELM::APITableRow* row = reinterpret_cast<VELM::GetAPITableFunction>(dlsym(module, "GetAPITable"))();
  EXPECT_EQ(row, dlsym(module, "gTable"));
  for (const std::string method : {"EventStream", "EventMultipartFetch", "Stream", "Open", "Close", "Query"}) {
    const bool isEvent = method[0] == 'E';
    EXPECT_STREQ(row->apiName, isEvent ? "VELM.Oculora.Stream" : "VELM.Oculora.Stream.VideoStreaming");
    EXPECT_EQ(row->methodName, method);
    EXPECT_EQ(row->version, 1);
    EXPECT_EQ(reinterpret_cast<void*>(row->entry), dlsym(module, isEvent ? "EventStream" : "VideoStream"));
    ++row;
  }
  EXPECT_TRUE(row->apiName == nullptr && row->version == 0 && row->methodName == nullptr && row->entry == nullptr);
  dlclose(module);
  EXPECT_EQ(kDetectionTypeNames[6], "people_counting_ceilling_mount");  // spelled so in the interface
}
