// The crypto object: thin functions over libsodium.
#include "admission/crypto/crypto_table.h"

#include <sodium.h>

namespace oculora {
namespace {

static_assert(kPasswordHashBytes == crypto_pwhash_STRBYTES);
static_assert(kTokenBytes == sodium_base64_ENCODED_LEN(16, sodium_base64_VARIANT_URLSAFE_NO_PADDING));

int HashPassword(const char* password, std::size_t size, char out[kPasswordHashBytes]) {
  return crypto_pwhash_str(out, password, size, crypto_pwhash_OPSLIMIT_INTERACTIVE, crypto_pwhash_MEMLIMIT_INTERACTIVE);
}

int VerifyPassword(const char* hash, const char* password, std::size_t size) {
  return crypto_pwhash_str_verify(hash, password, size);
}

int RandomToken(char out[kTokenBytes]) {
  unsigned char bits[16];
  randombytes_buf(bits, sizeof(bits));
  sodium_bin2base64(out, kTokenBytes, bits, sizeof(bits), sodium_base64_VARIANT_URLSAFE_NO_PADDING);
  return 0;
}

int KeyedHash(const char* key, std::size_t keySize, const char* message, std::size_t messageSize,
              char out[kKeyedHashBytes]) {
  // Secrets are texts of any length: they are brought to the size of a key first.
  unsigned char fixedKey[crypto_generichash_KEYBYTES];
  unsigned char hash[(kKeyedHashBytes - 1) / 2];
  if (crypto_generichash(fixedKey, sizeof(fixedKey), reinterpret_cast<const unsigned char*>(key), keySize, nullptr,
                         0) != 0 ||
      crypto_generichash(hash, sizeof(hash), reinterpret_cast<const unsigned char*>(message), messageSize, fixedKey,
                         sizeof(fixedKey)) != 0) {
    return -1;
  }
  sodium_bin2hex(out, kKeyedHashBytes, hash, sizeof(hash));
  return 0;
}

}  // namespace
}  // namespace oculora

extern "C" __attribute__((visibility("default"))) const oculora::CryptoTable* OculoraCryptoTable() {
  static const oculora::CryptoTable table = {oculora::kCryptoTableVersion, oculora::HashPassword,
                                             oculora::VerifyPassword, oculora::RandomToken, oculora::KeyedHash};
  return sodium_init() >= 0 ? &table : nullptr;
}
