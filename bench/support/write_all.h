// What the yardstick programs write with.
#pragma once

#include <unistd.h>

#include <cstddef>

// All of `data` to standard output; false when the reader has gone.
inline bool WriteAll(const char* data, size_t size) {
  while (size > 0) {
    const ssize_t written = write(STDOUT_FILENO, data, size);
    if (written <= 0) return false;
    data += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}
