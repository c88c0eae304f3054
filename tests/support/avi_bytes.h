// AVI files of other writers, built in memory: every part as wrong as a test wants it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

inline std::string Avi32(std::uint64_t value) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes += static_cast<char>(value >> 8 * i);
  return bytes;
}

inline std::string AviChunkOf(const std::string& id, const std::string& data) {
  return id + Avi32(data.size()) + data + std::string(data.size() % 2, '\0');
}

inline std::string AviList(const std::string& type, const std::string& data, const std::string& id = "LIST") {
  return AviChunkOf(id, type + data);
}

// A stream's part of the header; 320x240, 25/2 pictures a second.
inline std::string AviStream(const std::string& type, const std::string& handler, const std::string& codec) {
  const std::string header = type + handler + std::string(12, '\0') + Avi32(2) + Avi32(25) + std::string(28, '\0');
  const std::string format = Avi32(40) + Avi32(320) + Avi32(-240) + Avi32(24 << 16 | 1) + codec + std::string(20, '\0');
  return AviList("strl", AviChunkOf("strh", header) + AviChunkOf("strf", format));
}

inline std::string AviHeaderOf(const std::string& streams) {
  return AviList("hdrl", AviChunkOf("avih", std::string(56, '\0')) + streams);
}

// idx1 of all chunks of `body`, as if the first stood at `base`.
inline std::string AviIndexOf(const std::string& body, std::uint64_t base) {
  std::string entries;
  for (std::size_t at = 0; at < body.size();) {
    const auto size = static_cast<std::uint8_t>(body[at + 4]);  // chunks of tests are small
    entries += body.substr(at, 4) + Avi32(16) + Avi32(base + at) + Avi32(size);
    at += 8U + size + size % 2;
  }
  return AviChunkOf("idx1", entries);
}

inline std::string AviFile(const std::string& content) { return AviList("AVI ", content, "RIFF"); }
