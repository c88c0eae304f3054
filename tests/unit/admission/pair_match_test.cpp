// Paired hosts: what is a proof, and for how long.
#include "admission/pair_match.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <filesystem>

#include "records/records.h"
#include "velm/admission.h"

using oculora::Database;
using oculora::PairCookie;

namespace {

TEST(PairMatchTest, TimestampsOutsideTheWindowAreStale) {
  for (const char* fresh : {"10000", "10300", "9700"}) EXPECT_TRUE(oculora::IsFreshTimestamp(fresh, 10000)) << fresh;
  for (const char* stale : {"10301", "9699", "", "-1", "10000x", " 10000", "1e4", "+10000", "99999999999999999999",
                            "9223372036854775807", "FailedTiemstamp"}) {
    EXPECT_FALSE(oculora::IsFreshTimestamp(stale, 10000)) << stale;
  }
}

TEST(PairMatchTest, ProofNeedsTheManagersSecretAndTheTime) {
  std::filesystem::create_directories(oculora::kVarDir);
  auto database = Database::Open(Database::Mode::kCreate, nullptr);
  ASSERT_TRUE(database && database->AddServer({3, "Attic", "https://10.0.0.3", "attic secret"}) &&
              database->SetSetting("pair_secret", "managing host"));
  const std::string now = std::to_string(std::time(nullptr));
  const std::string old = std::to_string(std::time(nullptr) - oculora::kPairWindowSeconds - 5);
  const auto matches = [](std::string cookie, std::string timestamp) {
    const int viaHost = SlaveNdAuthentication().IsAuthByPairMatch(cookie, timestamp);
    const int viaPeer = IsAuthPairMatch(cookie, timestamp);
    EXPECT_EQ(viaHost, viaPeer);
    return viaPeer != 0;
  };
  EXPECT_TRUE(matches(PairCookie("managing host", now), now));
  EXPECT_FALSE(matches(PairCookie("other secret", now), now));
  EXPECT_FALSE(matches(PairCookie("attic secret", now), now)) << "a managed server has no rights on its manager";
  EXPECT_FALSE(matches(PairCookie("managing host", now), now + "0"));
  EXPECT_FALSE(matches(PairCookie("managing host", old), old));
  EXPECT_FALSE(matches(PairCookie("managing host", now).substr(1), now) || matches("FailedCookie", now) ||
               matches("", now));

  ASSERT_TRUE(database->SetSetting("pair_secret", ""));
  EXPECT_FALSE(matches(PairCookie("", now), now)) << "an empty secret is no secret";
  ASSERT_TRUE(database->SetSetting("pair_secret", "managing host"));
  const std::string plain = PairCookie("managing host", now);
  std::string cookie = plain, timestamp = now;
  std::transform(cookie.begin(), cookie.end(), cookie.begin(), ::toupper);
  cookie = " \"" + cookie + "\" ";
  EXPECT_NE(IsAuthPairMatch(cookie, timestamp), 0);
  EXPECT_EQ(cookie, plain) << "normalised in place";
}

}  // namespace
