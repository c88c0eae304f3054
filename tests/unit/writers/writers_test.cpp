// Multipart answers as a client sees them.
#include <gtest/gtest.h>

#include "capture.h"
#include "velm/writers.h"

namespace {

TEST(Multipart, EveryPartIsClosedByTheNextBoundaryAtOnce) {
  const std::string text = CaptureOutput([] {
    MultipartResponse response;
    EXPECT_EQ(response.Write("image/jpeg", "one", 3, nullptr, nullptr), 0);
    EXPECT_EQ(response.Write("image/jpeg", "second", 6, "X-Seq", "7"), 0);
    EXPECT_EQ(response.Write("image/jpeg", "", -1, nullptr, nullptr), -1);
  });
  const auto at = text.find("boundary=") + 9;
  const std::string boundary = text.substr(at, text.find("\r\n", at) - at);
  EXPECT_EQ(text, "Content-Type: multipart/x-mixed-replace; boundary=" + boundary +
                      "\r\nCache-Control: no-store\r\n\r\n--" + boundary +
                      "\r\nContent-Type: image/jpeg\r\nContent-Length: 3\r\n\r\none\r\n--" + boundary +
                      "\r\nContent-Type: image/jpeg\r\nContent-Length: 6\r\nX-Seq: 7\r\n\r\nsecond\r\n--" + boundary +
                      "\r\n");
}

}  // namespace
