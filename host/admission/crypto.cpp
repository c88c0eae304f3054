// Loads the crypto object on first use and calls it.
#include "admission/crypto.h"

#include "admission/crypto/crypto_table.h"
#include "process/object_table.h"

namespace oculora {
namespace {

const CryptoTable* Table() {
  static const CryptoTable* const table = static_cast<const CryptoTable*>(
      LoadObjectTable({"crypto", "crypto", "oculora-crypto.so", "OculoraCryptoTable", kCryptoTableVersion}));
  return table;
}

}  // namespace

std::string HashPassword(const std::string& password) {
  char hash[kPasswordHashBytes] = "";
  if (Table() == nullptr || Table()->hashPassword(password.data(), password.size(), hash) != 0) return {};
  return hash;
}

bool VerifyPassword(const std::string& hash, const std::string& password) {
  return Table() != nullptr && Table()->verifyPassword(hash.c_str(), password.data(), password.size()) == 0;
}

std::string RandomToken() {
  char token[kTokenBytes] = "";
  if (Table() == nullptr || Table()->randomToken(token) != 0) return {};
  return token;
}

std::string KeyedHash(const std::string& key, const std::string& message) {
  char hash[kKeyedHashBytes] = "";
  if (key.empty() || Table() == nullptr) return {};
  if (Table()->keyedHash(key.data(), key.size(), message.data(), message.size(), hash) != 0) return {};
  return hash;
}

bool EqualInConstantTime(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  }
  return difference == 0;
}

}  // namespace oculora
