// Pictures that tell whether a single byte of them is wrong: every word follows from the first one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

inline std::uint32_t PictureWord(std::uint32_t seed, std::size_t index) {
  return (seed ^ static_cast<std::uint32_t>(index)) * 2654435761U;
}

// Fills all whole words of `picture`: seed, size, then the pattern.
inline void FillPicture(std::vector<unsigned char>& picture, std::uint32_t seed) {
  const auto size = static_cast<std::uint32_t>(picture.size());
  std::memcpy(picture.data(), &seed, 4);
  std::memcpy(picture.data() + 4, &size, 4);
  for (std::size_t at = 8; at + 4 <= size; at += 4) {
    const std::uint32_t word = PictureWord(seed, at / 4);
    std::memcpy(picture.data() + at, &word, 4);
  }
}

inline bool IsPictureWhole(const unsigned char* data, std::size_t size) {
  if (size < 8) return false;
  std::uint32_t seed = 0;
  std::uint32_t stated = 0;
  std::memcpy(&seed, data, 4);
  std::memcpy(&stated, data + 4, 4);
  if (stated != size) return false;
  std::uint32_t wrong = 0;
  for (std::size_t at = 8; at + 4 <= size; at += 4) {
    std::uint32_t word = 0;
    std::memcpy(&word, data + at, 4);
    wrong |= word ^ PictureWord(seed, at / 4);
  }
  return wrong == 0;
}
