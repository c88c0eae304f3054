// A site with users and cameras for tests of the handlers, and requests made by hand.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "records/records.h"
#include "webapi/request_state.h"

class SiteTest : public testing::Test {
 protected:
  // Users with a session each: "anna" holds the privilege, "root" is administrator without it, "Oculora" is the service
  // account, "guest" has nothing. Cameras: 7 local MJPEG, 8 disabled, 9 of server 12 (its camera 3). The site runs.
  void SetUp() override;

  static std::string SessionOf(const std::string& name) { return "session-of-" + name + "-0123456789"; }
  static std::string Sid(const std::string& user) { return "&_sid=" + SessionOf(user); }

  // A request of the live-video API. `params` is more query text ("&cameraId=7"), `cookies` the cookie header.
  static std::unique_ptr<VELM::APIRequest> Request(const std::string& method, const std::string& params,
                                                   const std::string& cookies = "");

  // Parameter and cookie that prove a paired host now.
  static std::string PairParams(const std::string& client);
  static std::string PairCookies();
};
