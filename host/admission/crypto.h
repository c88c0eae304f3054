// Passwords, session ids and keyed hashes. The library behind them is loaded on the first call.
//
// All operations fail softly: an empty text or false when the object cannot be loaded (one log line) or memory is
// short. Hashing and verifying a password takes some tens of milliseconds and 64 MiB on purpose.
#pragma once

#include <cstdint>
#include <string>

namespace oculora {

// A memory-hard hash of `password` with salt and cost in it, as text; empty on failure.
std::string HashPassword(const std::string& password);

// Whether `password` belongs to `hash`. False for a broken hash.
bool VerifyPassword(const std::string& hash, const std::string& password);

// 128 random bits as 22 characters of [A-Za-z0-9_-]; empty on failure.
std::string RandomToken();

// A keyed hash over `message` as 64 lower-case hexadecimal digits; empty on failure or for an empty key.
std::string KeyedHash(const std::string& key, const std::string& message);

// Comparison in a time that depends on the lengths only.
bool EqualInConstantTime(const std::string& a, const std::string& b);

}  // namespace oculora
