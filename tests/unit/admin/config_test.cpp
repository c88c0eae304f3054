// The front's configuration, judged by the web server itself.
#include "front/config.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "capture.h"
#include "front/program_paths.h"

namespace oculora {
namespace {

class FrontConfig : public testing::Test {
 protected:
  void SetUp() override {
    lighttpd = FindInPath("lighttpd");
    if (lighttpd.empty()) GTEST_SKIP() << "lighttpd is not installed";
  }

  // What the server makes of the configuration; empty when it refuses it.
  std::string Parsed() {
    std::filesystem::create_directories(settings.webDir);
    WriteFile("/tmp/front.conf", LighttpdConfig(settings));
    if (std::system((lighttpd + " -tt -f /tmp/front.conf >/tmp/front.out 2>&1").c_str()) != 0) return {};
    if (!ReadFile("/tmp/front.out").empty()) return {};  // a warning: an unknown key, a missing module
    return std::system((lighttpd + " -p -f /tmp/front.conf >/tmp/front.out 2>&1").c_str()) == 0
               ? ReadFile("/tmp/front.out")
               : std::string();
  }

  std::string lighttpd;
  FrontSettings settings{"/tmp/web", "/tmp/bin/entry.cgi", "/tmp/front.log", "/tmp/front.pid", "0.0.0.0", 8080};
};

TEST_F(FrontConfig, IsAcceptedWithoutWarning) { EXPECT_NE(Parsed(), ""); }

TEST_F(FrontConfig, TakesAnIpv6Address) {
  settings.address = "::";
  EXPECT_NE(Parsed().find("\"[::]\""), std::string::npos);
}

TEST_F(FrontConfig, OddDirectoryNamesStayNames) {
  settings.webDir = "/tmp/a \"quoted\" $HTTP \\ # path";
  settings.dispatcher = "/tmp/b\" )\nserver.port = 1\n/entry.cgi";
  const std::string parsed = Parsed();
  EXPECT_NE(parsed.find("$HTTP"), std::string::npos);
  EXPECT_NE(parsed.find("= 8080"), std::string::npos);
}

}  // namespace
}  // namespace oculora
