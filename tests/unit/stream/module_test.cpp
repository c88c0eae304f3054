// The built module, loaded as the dispatcher loads it.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "streaming.h"
#include "velm/apitable.h"

namespace {

TEST(Module, TableRoutesEveryMethodAndEndsInZeroes) {
  void* module = dlopen(MODULE_PATH, RTLD_LAZY | RTLD_LOCAL);
  ASSERT_NE(module, nullptr) << dlerror();
  const auto table = reinterpret_cast<VELM::GetAPITableFunction>(dlsym(module, "GetAPITable"))();
  EXPECT_EQ(table, dlsym(module, "gTable"));
  const std::string event = "VELM.Oculora.Stream";
  const std::string video = "VELM.Oculora.Stream.VideoStreaming";
  const struct {
    std::string api;
    const char* method;
    const char* entry;
  } rows[] = {{event, "EventStream", "EventStream"}, {event, "EventMultipartFetch", "EventStream"},
              {video, "Stream", "VideoStream"},      {video, "Open", "VideoStream"},
              {video, "Close", "VideoStream"},       {video, "Query", "VideoStream"}};
  const VELM::APITableRow* row = table;
  for (const auto& expected : rows) {
    EXPECT_EQ(row->apiName, expected.api);
    EXPECT_EQ(row->version, 1);
    EXPECT_STREQ(row->methodName, expected.method);
    EXPECT_EQ(reinterpret_cast<void*>(row->entry), dlsym(module, expected.entry)) << expected.method;
    ++row;
  }
  EXPECT_TRUE(row->apiName == nullptr && row->version == 0 && row->methodName == nullptr && row->entry == nullptr);
  dlclose(module);
}

TEST(Module, StaticsAsTheHostExpectsThem) {
  EXPECT_EQ(kDetectionTypeNames[6], "people_counting_ceilling_mount");  // spelled so in the interface
  EXPECT_EQ(gSessionId, "");
}

}  // namespace
