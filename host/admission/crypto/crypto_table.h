// The table of functions that the crypto object exports under the name "OculoraCryptoTable".
#pragma once

#include <cstddef>
#include <cstdint>

namespace oculora {

constexpr std::uint32_t kCryptoTableVersion = 1;
constexpr std::size_t kPasswordHashBytes = 128;  // with the terminating zero
constexpr std::size_t kTokenBytes = 23;          // with the terminating zero
constexpr std::size_t kKeyedHashBytes = 65;      // with the terminating zero

// Every function returns 0 on success; texts written are NUL-terminated.
struct CryptoTable {
  std::uint32_t version;
  int (*hashPassword)(const char* password, std::size_t size, char out[kPasswordHashBytes]);
  int (*verifyPassword)(const char* hash, const char* password, std::size_t size);
  int (*randomToken)(char out[kTokenBytes]);
  int (*keyedHash)(const char* key, std::size_t keySize, const char* message, std::size_t messageSize,
                   char out[kKeyedHashBytes]);
};

}  // namespace oculora
