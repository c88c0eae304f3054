// What a fuzz target offers: the function that takes any bytes, and bytes to begin from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

using FuzzInput = std::vector<std::uint8_t>;

// Runs the code under test; whatever it finds wrong it ends with FUZZ_CHECK. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Good inputs, from which the driver makes bad ones.
std::vector<FuzzInput> FuzzSeeds();

#define FUZZ_CHECK(condition)                                                        \
  do {                                                                               \
    if (!(condition)) {                                                              \
      std::fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                  \
    }                                                                                \
  } while (false)
