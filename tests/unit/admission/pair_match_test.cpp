// Paired hosts: what is a proof, and for how long.
#include "admission/pair_match.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>

#include "records/records.h"
#include "velm/admission.h"

using oculora::Database;
using oculora::PairCookie;

namespace {

TEST(PairMatchTest, TimestampsOutsideTheWindowAreStale) {
  const struct {
    const char* timestamp;
    bool fresh;
  } cases[] = {
      {"10000", true},
      {"10300", true},
      {"9700", true},
      {"10301", false},
      {"9699", false},
      {"", false},
      {"-1", false},
      {"10000x", false},
      {" 10000", false},
      {"1e4", false},
      {"+10000", false},
      {"99999999999999999999", false},
      {"9223372036854775807", false},
      {"FailedTiemstamp", false},
  };
  for (const auto& test : cases)
    EXPECT_EQ(oculora::IsFreshTimestamp(test.timestamp, 10000), test.fresh) << test.timestamp;
}

TEST(PairMatchTest, ProofNeedsASharedSecretAndTheTime) {
  std::filesystem::create_directories(oculora::kVarDir);
  auto database = Database::Open(Database::Mode::kCreate, nullptr);
  ASSERT_TRUE(database);
  ASSERT_TRUE(database->AddServer({3, "Attic", "https://10.0.0.3", "attic secret"}));
  ASSERT_TRUE(database->AddServer({4, "Cellar", "https://10.0.0.4", "cellar secret"}));
  const std::string now = std::to_string(std::time(nullptr));
  const std::string old = std::to_string(std::time(nullptr) - oculora::kPairWindowSeconds - 5);
  const auto matches = [](std::string cookie, std::string timestamp) {
    std::string copy = cookie;
    const bool same = IsAuthPairMatch(copy, timestamp) != 0;
    EXPECT_EQ(SlaveNdAuthentication().IsAuthByPairMatch(cookie, timestamp) != 0, same);
    return same;
  };

  EXPECT_TRUE(matches(PairCookie("attic secret", now), now));
  EXPECT_TRUE(matches(PairCookie("cellar secret", now), now));
  EXPECT_FALSE(matches(PairCookie("other secret", now), now));
  EXPECT_FALSE(matches(PairCookie("attic secret", now), now + "0"));
  EXPECT_FALSE(matches(PairCookie("attic secret", old), old));
  EXPECT_FALSE(matches(PairCookie("attic secret", now).substr(1), now));
  EXPECT_FALSE(matches("FailedCookie", now));
  EXPECT_FALSE(matches("", now));

  EXPECT_FALSE(matches(PairCookie("managing host", now), now));
  ASSERT_TRUE(database->SetSetting("pair_secret", "managing host"));
  EXPECT_TRUE(matches(PairCookie("managing host", now), now));
  ASSERT_TRUE(database->SetSetting("pair_secret", ""));
  EXPECT_FALSE(matches(PairCookie("", now), now)) << "an empty secret is no secret";
}

TEST(PairMatchTest, CookieIsNormalisedInPlace) {
  const std::string now = std::to_string(std::time(nullptr));
  std::string cookie = PairCookie("attic secret", now);
  const std::string plain = cookie;
  for (char& c : cookie) c = static_cast<char>(toupper(c));
  cookie = " \"" + cookie + "\" ";
  IsAuthPairMatch(cookie, now);
  EXPECT_EQ(cookie, plain);
}

}  // namespace
