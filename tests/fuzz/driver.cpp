// Runs a fuzz target without libFuzzer: on its seeds, and on as many mutations of them as asked for.
//   TARGET [--runs N] [--seed S]   the same numbers give the same inputs; a failing input is kept as ./TARGET.crash
//   TARGET FILE...                 on these inputs alone
//   TARGET --write-seeds DIR       for libFuzzer to begin from
#include <algorithm>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "fuzz.h"

extern "C" void __sanitizer_set_death_callback(void (*callback)()) __attribute__((weak));

namespace {

std::string g_CrashFile;
FuzzInput g_Input;

void Write(const std::string& path, const FuzzInput& input) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
}

void KeepInput() {
  Write(g_CrashFile, g_Input);
  std::fprintf(stderr, "the input is kept as %s\n", g_CrashFile.c_str());
}

void OnAbort(int) {
  KeepInput();
  std::_Exit(1);
}

void RunOne(FuzzInput input) {
  input.shrink_to_fit();  // so that AddressSanitizer sees the first byte behind it
  g_Input = std::move(input);
  LLVMFuzzerTestOneInput(g_Input.data(), g_Input.size());
}

class Mutator {
 public:
  Mutator(const std::vector<FuzzInput>& seeds, std::uint64_t seed) : m_Seeds(seeds), m_Random(seed) {}

  FuzzInput Next() {
    FuzzInput input = m_Seeds[Below(m_Seeds.size())];
    for (std::size_t changes = 1 + Below(8); changes > 0; --changes) Change(input);
    return input;
  }

 private:
  std::size_t Below(std::size_t bound) { return bound == 0 ? 0 : static_cast<std::size_t>(m_Random() % bound); }
  std::uint8_t Byte() {
    // What lengths, counts and markers break on.
    static constexpr std::uint8_t kOdd[] = {0x00, 0x01, 0x02, 0x0f, 0x10, 0x7f, 0x80,
                                            0xd8, 0xd9, 0xda, 0xed, 0xfe, 0xff};
    return Below(2) == 0 ? kOdd[Below(sizeof(kOdd))] : static_cast<std::uint8_t>(m_Random());
  }

  void Change(FuzzInput& input) {
    const std::size_t at = Below(input.size() + 1);
    const std::size_t length = Below(std::min<std::size_t>(input.size() - at, 64) + 1);
    const auto begin = input.begin() + static_cast<std::ptrdiff_t>(at);
    const auto end = begin + static_cast<std::ptrdiff_t>(length);
    switch (Below(6)) {
      case 0:
        if (at < input.size()) input[at] = Byte();
        return;
      case 1:
        if (at < input.size()) input[at] ^= static_cast<std::uint8_t>(1U << Below(8));
        return;
      case 2:
        input.erase(begin, end);
        return;
      case 3: {
        const FuzzInput copy(begin, end);
        input.insert(input.begin() + static_cast<std::ptrdiff_t>(Below(input.size() + 1)), copy.begin(), copy.end());
        return;
      }
      case 4:
        input.insert(begin, {Byte(), Byte()});
        return;
      default: {
        const FuzzInput& other = m_Seeds[Below(m_Seeds.size())];
        input.erase(begin, input.end());
        input.insert(input.end(), other.begin() + static_cast<std::ptrdiff_t>(Below(other.size() + 1)), other.end());
        return;
      }
    }
  }

  const std::vector<FuzzInput>& m_Seeds;
  std::mt19937_64 m_Random;
};

int WriteSeeds(const std::string& folder) {
  int number = 0;
  for (const FuzzInput& seed : FuzzSeeds()) Write(folder + "/" + std::to_string(++number), seed);
  return 0;
}

int RunFile(const char* path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    std::fprintf(stderr, "%s cannot be read\n", path);
    return 2;
  }
  RunOne(FuzzInput(std::istreambuf_iterator<char>(file), {}));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  unsigned long long runs = 1000;
  unsigned long long seed = 1;
  g_CrashFile = std::string(argv[0]).substr(std::string(argv[0]).rfind('/') + 1) + ".crash";
  std::signal(SIGABRT, OnAbort);
  if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(KeepInput);
  bool files = false;
  for (int i = 1; i < argc; ++i) {
    const bool option = i + 1 < argc && std::strncmp(argv[i], "--", 2) == 0;
    if (option && std::strcmp(argv[i], "--write-seeds") == 0) return WriteSeeds(argv[i + 1]);
    if (option && std::strcmp(argv[i], "--runs") == 0) {
      runs = std::strtoull(argv[++i], nullptr, 10);
    } else if (option && std::strcmp(argv[i], "--seed") == 0) {
      seed = std::strtoull(argv[++i], nullptr, 10);
    } else if (RunFile(argv[i]) == 0) {
      files = true;
    } else {
      return 2;
    }
  }
  if (files) return 0;
  const std::vector<FuzzInput> seeds = FuzzSeeds();
  if (seeds.empty()) return 2;
  for (const FuzzInput& input : seeds) RunOne(input);
  Mutator mutator(seeds, seed);
  for (unsigned long long run = 0; run < runs; ++run) RunOne(mutator.Next());
  std::printf("%zu seeds, %llu mutations of seed %llu\n", seeds.size(), runs, seed);
  return 0;
}
