// Which plug-in and which row serve a request.
#include <gtest/gtest.h>

#include "capture.h"
#include "dispatcher/plugins.h"

using namespace oculora;

namespace {

constexpr char kConf[] = "/tmp/plugins.conf";

TEST(PluginsTest, LongestPrefixServes) {
  WriteFile(kConf,
            "# plug-ins\n\n  A.B   /lib/ab.so  # comment\r\nA.B.C /lib/abc.so\nA.B /lib/later.so\nX.Y\n#Z /lib/z.so\n"
            "Q #/lib/q.so\nLast /lib/last.so");
  const struct {
    const char* api;
    const char* plugin;  // null: none
  } cases[] = {
      {"A.B", "/lib/ab.so"}, {"A.B.X", "/lib/ab.so"}, {"A.B.C", "/lib/abc.so"}, {"A.B.C.D", "/lib/abc.so"},
      {"A.BC", nullptr},     {"A", nullptr},          {"X.Y", nullptr},         {"Z", nullptr},
      {"", nullptr},         {"Q", nullptr},          {"Last", "/lib/last.so"}, {"a.b", nullptr},
  };
  for (const auto& test : cases) {
    std::string plugin;
    const PluginLookup result = FindPlugin(kConf, test.api, plugin);
    EXPECT_EQ(result == PluginLookup::kFound, test.plugin != nullptr) << test.api;
    if (test.plugin != nullptr) {
      EXPECT_EQ(plugin, test.plugin) << test.api;
    }
  }
  std::string plugin;
  EXPECT_EQ(FindPlugin("/tmp/none.conf", "A.B", plugin), PluginLookup::kNoConfiguration);
}

TEST(PluginsTest, NearestMissingThingIsNamed) {
  const auto entry = [](VELM::APIRequest*, VELM::APIResponse*) {};
  const VELM::APITableRow table[] = {
      {"A", 1, "M", entry}, {"A", 2, "N", entry}, {"A", 1, "Null", nullptr}, {"B", 1, "M", entry}, {}};
  const struct {
    const char* api;
    int version;
    const char* method;
    RowLookup result;
    int row;
  } cases[] = {
      {"A", 1, "M", RowLookup::kFound, 0},
      {"A", 2, "N", RowLookup::kFound, 1},
      {"B", 1, "M", RowLookup::kFound, 3},
      {"A", 1, "N", RowLookup::kUnknownMethod, -1},
      {"A", 3, "M", RowLookup::kUnknownVersion, 0},
      {"A", 1, "m", RowLookup::kUnknownMethod, -1},
      {"A", 1, "Null", RowLookup::kUnknownMethod, 0},
      {"C", 1, "M", RowLookup::kUnknownApi, -1},
      {"A", 1, "", RowLookup::kUnknownMethod, -1},
  };
  for (const auto& test : cases) {
    const VELM::APITableRow* row = nullptr;
    EXPECT_EQ(FindRow(table, test.api, test.version, test.method, row), test.result) << test.api << test.method;
    if (test.result == RowLookup::kFound) {
      EXPECT_EQ(row, table + test.row);
    }
  }
}

}  // namespace
