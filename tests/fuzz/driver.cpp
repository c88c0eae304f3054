// Runs a fuzz target without libFuzzer: on its seeds, and on as many mutations of them as asked for, always the same,
// so that a debugger meets a failure again.
//   TARGET --runs N
//   TARGET --write-seeds DIR   for libFuzzer to begin from
#include <algorithm>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "fuzz.h"

namespace {

void RunOne(FuzzInput input) {
  input.shrink_to_fit();  // so that AddressSanitizer sees the first byte behind it
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

class Mutator {
 public:
  explicit Mutator(const std::vector<FuzzInput>& seeds) : m_Seeds(seeds) {}

  FuzzInput Next() {
    FuzzInput input = m_Seeds[Below(m_Seeds.size())];
    for (std::size_t changes = 1 + Below(8); changes > 0; --changes) Change(input);
    return input;
  }

 private:
  std::size_t Below(std::size_t bound) { return static_cast<std::size_t>(m_Random() % bound); }
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
    switch (Below(4)) {
      case 0:
        if (at < input.size()) input[at] = Byte();
        return;
      case 1:
        input.erase(begin, end);
        return;
      case 2: {
        const FuzzInput copy(begin, end);
        input.insert(input.begin() + static_cast<std::ptrdiff_t>(Below(input.size() + 1)), copy.begin(), copy.end());
        return;
      }
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

void WriteSeeds(const std::string& folder) {
  int number = 0;
  for (const FuzzInput& seed : FuzzSeeds()) {
    std::ofstream(folder + "/" + std::to_string(++number), std::ios::binary)
        .write(reinterpret_cast<const char*>(seed.data()), static_cast<std::streamsize>(seed.size()));
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string option = argc == 3 ? argv[1] : "";
  if (option == "--write-seeds") {
    WriteSeeds(argv[2]);
    return 0;
  }
  if (option != "--runs") return 2;
  const std::vector<FuzzInput> seeds = FuzzSeeds();
  for (const FuzzInput& input : seeds) RunOne(input);
  Mutator mutator(seeds);
  const unsigned long runs = std::stoul(argv[2]);
  for (unsigned long run = 0; run < runs; ++run) RunOne(mutator.Next());
  std::printf("%zu seeds, %lu mutations of them\n", seeds.size(), runs);
  return 0;
}
