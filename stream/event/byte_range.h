// Byte ranges of HTTP requests, as this interface reads them.
#pragma once

#include <cstdint>
#include <string>

struct ByteRange {
  std::uint64_t start;
  std::uint64_t end;     // inclusive
  std::uint64_t length;  // end - start + 1; all ones when the range could not be read
};

// The part of a file of `size` bytes that `text` ("bytes=500-999") asks for; the whole file for an empty text. Only the
// first range counts and only the first 255 characters. Nothing is refused: a text that makes no sense gives values
// that make none, and arithmetic wraps around at 64 bits.
ByteRange ParseByteRange(const std::string& text, std::uint64_t size);
