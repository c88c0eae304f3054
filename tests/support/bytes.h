// Bytes that tests put together.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

using Buffer = std::vector<std::uint8_t>;

inline Buffer Join(const std::vector<Buffer>& parts, const Buffer& before = {}) {
  Buffer all;
  for (const Buffer& part : parts) {
    all.insert(all.end(), before.begin(), before.end());
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

inline Buffer Text(const char* text) { return {text, text + std::strlen(text)}; }
