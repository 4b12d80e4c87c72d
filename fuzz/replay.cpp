// Stands in for libFuzzer: runs a target over the files of a directory, and over some of what comes of them by cutting
// and by changing bytes, always the same.
//
//   NAME_replay DIRECTORY
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include <fuzz/FuzzInput.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// From a copy of its own, so that a sanitizer sees reads beyond the end.
void run(const Bytes& input) {
  const Bytes exact(input);
  (void)LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

Bytes changed(Bytes input, std::mt19937& random) {
  if (input.empty()) return input;
  if (random() % 4 == 0) input.resize(random() % input.size());
  for (auto changes = random() % 8; changes > 0 && !input.empty(); --changes) {
    input[random() % input.size()] = static_cast<std::uint8_t>(random());
  }
  return input;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace std::chrono;
  if (argc != 2) {
    (void)std::fprintf(stderr, "usage: NAME_replay DIRECTORY\n");
    return 2;
  }
  std::vector<std::filesystem::path> seeds;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) seeds.push_back(entry.path());
  std::sort(seeds.begin(), seeds.end());
  clipworks::fuzz::require(!seeds.empty(), "there are seeds");

  constexpr seconds longest{5};
  constexpr int rounds = 200;
  const auto end = steady_clock::now() + longest;
  for (const auto& seed : seeds) run(contentsOf(seed));
  std::mt19937 random(1);
  long count = 0;
  for (int round = 0; round < rounds; ++round) {
    for (const auto& seed : seeds) {
      if (steady_clock::now() > end) break;
      run(changed(contentsOf(seed), random));
      ++count;
    }
  }
  std::printf("%zu seeds and %ld changed ones\n", seeds.size(), count);
  return 0;
}
