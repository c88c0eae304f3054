// Passwords, tokens and keyed hashes from the object that is loaded on demand.
#include "admission/crypto.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace {

bool IsSodiumLoaded() { return dlopen("libsodium.so.23", RTLD_NOW | RTLD_NOLOAD) != nullptr; }

TEST(CryptoTest, PasswordsVerifyAgainstTheirOwnHashOnly) {
  EXPECT_FALSE(IsSodiumLoaded()) << "the library came before anybody asked for it";
  const std::string hash = oculora::HashPassword("correct horse");
  EXPECT_TRUE(IsSodiumLoaded());
  EXPECT_EQ(hash.substr(0, 10), "$argon2id$");
  EXPECT_NE(hash, oculora::HashPassword("correct horse")) << "no salt";
  EXPECT_TRUE(oculora::VerifyPassword(hash, "correct horse"));
  for (const char* wrong : {"", "correct horse ", "Correct horse", "correct"}) {
    EXPECT_FALSE(oculora::VerifyPassword(hash, wrong)) << wrong;
  }
  EXPECT_FALSE(oculora::VerifyPassword(hash, std::string("correct horse\0x", 15)));
  for (const char* broken : {"", "x", "$argon2id$v=19$m=65536,t=2,p=1$", "correct horse"}) {
    EXPECT_FALSE(oculora::VerifyPassword(broken, "correct horse")) << broken;
  }
}

TEST(CryptoTest, TokensAreSessionIdsAndDiffer) {
  std::set<std::string> tokens;
  for (int i = 0; i < 1000; ++i) tokens.insert(oculora::RandomToken());
  EXPECT_EQ(tokens.size(), 1000U);
  for (const std::string& token : tokens) {
    ASSERT_EQ(token.size(), 22U);
    ASSERT_TRUE(std::all_of(token.begin(), token.end(), [](unsigned char c) {
      return isalnum(c) != 0 || c == '_' || c == '-';
    })) << token;
  }
}

TEST(CryptoTest, KeyedHashDependsOnKeyAndMessage) {
  const std::string hash = oculora::KeyedHash("key", "message");
  EXPECT_EQ(hash.size(), 64U);
  EXPECT_EQ(hash, oculora::KeyedHash("key", "message"));
  EXPECT_NE(hash, oculora::KeyedHash("key2", "message"));
  EXPECT_NE(hash, oculora::KeyedHash("key", "message2"));
  EXPECT_NE(oculora::KeyedHash(std::string(500, 'k') + "1", "m"), oculora::KeyedHash(std::string(500, 'k') + "2", "m"));
  EXPECT_EQ(oculora::KeyedHash("", "message"), "");
}

}  // namespace
