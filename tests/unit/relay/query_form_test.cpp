// What may reach a recording server as a query, and in which form.
#include "relay/query_form.h"

#include <gtest/gtest.h>

namespace {

using oculora::FitQuery;
using oculora::QueryForm;

const std::string kNone = "(none)";
std::string Fit(QueryForm form, const std::string& query) { return FitQuery(form, query).value_or(kNone); }

TEST(QueryFormTest, RawFormsHaveTheirKeysAndNoOthers) {
  const std::string head = "api=A.B&method=Stream&version=1&isRedirectCgi=1";
  const auto live = [&](const std::string& rest) { return Fit(QueryForm::kLiveStream, head + rest); };
  EXPECT_EQ(live("&cameraId=7&format=mjpeg&StmKey=\"k/#?&x=1\""),
            head + "&cameraId=7&format=mjpeg&StmKey=%22k%2F%23%3F%26x%3D1%22");
  for (const char* wrong : {"&cameraId=7&format=mjpeg", "&cameraId=7&cameraId=8&format=mjpeg&StmKey=k",
                            "&format=mjpeg&cameraId=7&StmKey=k", "&cameraId=7&format=a&b=c&StmKey=k", "&", ""}) {
    EXPECT_EQ(live(wrong), kNone) << wrong;
  }
  const std::string event = "api=A&method=M&version=1&isRedirectCgi=true&eventId=\"7:5\"";
  EXPECT_EQ(Fit(QueryForm::kEventFile, event + "&HTTP_RANGE=bytes=0-\r\nX: y"),
            "api=A&method=M&version=1&isRedirectCgi=true&eventId=%227%3A5%22&HTTP_RANGE=bytes%3D0-%0D%0AX%3A%20y");
  const auto pictures = [&](const std::string& start) {
    return Fit(QueryForm::kEventPictures, event + "&framestart=" + start + "&framestop=-1&timestamp=1&checkpgid=1");
  };
  EXPECT_NE(pictures("0 1;x=2").find("&framestart=0%201%3Bx%3D2&framestop=-1&"), std::string::npos);
  for (const char* wrong : {"0&playrate=9", "0&framestop=3", "0&", "&"}) EXPECT_EQ(pictures(wrong), kNone) << wrong;
}

TEST(QueryFormTest, EncodedFormsTravelAsTheyStand) {
  for (const char* fit : {"api=A&SliceId=5%2F1.ts&useHttps=true", "SliceId=", "cameraId=7"}) {
    EXPECT_EQ(Fit(QueryForm::kEncoded, fit), fit);
  }
  for (const char* wrong : {"api=A&api=B", "client=NVR", "SliceId=a b", "SliceId=%4", "SliceId=%zz", "SliceId=a#b",
                            "api=A&", "", "SliceId=a\r\nb", "SliceId=\"a\""}) {
    EXPECT_EQ(Fit(QueryForm::kEncoded, wrong), kNone) << wrong;
  }
}

}  // namespace
