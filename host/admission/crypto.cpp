// Loads the crypto object on first use and calls it.
#include "admission/crypto.h"

#include <dlfcn.h>

#include "admission/crypto/crypto_table.h"
#include "webapi/log_line.h"

namespace oculora {
namespace {

constexpr char kLogUnit[] = "crypto";
constexpr char kObjectName[] = "oculora-crypto.so";

// The object stands beside the library this code is in.
std::string ObjectPath() {
  Dl_info own{};
  if (dladdr(reinterpret_cast<const void*>(&HashPassword), &own) == 0 || own.dli_fname == nullptr) return kObjectName;
  const std::string library = own.dli_fname;
  const std::size_t slash = library.rfind('/');
  return slash == std::string::npos ? kObjectName : library.substr(0, slash + 1) + kObjectName;
}

const CryptoTable* LoadTable() {
  void* object = dlopen(ObjectPath().c_str(), RTLD_NOW | RTLD_LOCAL);
  if (object == nullptr) {
    HOST_LOG_ERROR("The crypto object cannot be loaded: %s\n", dlerror());
    return nullptr;
  }
  const auto get = reinterpret_cast<CryptoTableFunction>(dlsym(object, "OculoraCryptoTable"));
  const CryptoTable* table = get != nullptr ? get() : nullptr;
  if (table != nullptr && table->version == kCryptoTableVersion) return table;
  HOST_LOG_ERROR("%s is of another version or cannot start; install host and crypto object together.\n", kObjectName);
  dlclose(object);
  return nullptr;
}

const CryptoTable* Table() {
  static const CryptoTable* const table = LoadTable();  // stays loaded
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
