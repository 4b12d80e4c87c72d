// Takes ten pictures of one group out of a clip in a shuffled order: all at once from one generator, one after the
// other from one, and each from a generator of its own. Prints the seconds of each.
//
//   ten_pictures CLIP
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <latch>
#include <random>
#include <vector>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/images/AVAssetImageGenerator.h>

using namespace clipworks;

namespace {

std::shared_ptr<AVAssetImageGenerator> makeGenerator(const char* clip) {
  auto generator = AVAssetImageGenerator::make(AVAsset::make(URL(clip)));
  generator->setRequestedTimeToleranceBefore(CMTime(0, 1));
  generator->setRequestedTimeToleranceAfter(CMTime(0, 1));
  return generator;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    (void)std::fprintf(stderr, "usage: ten_pictures CLIP\n");
    return 2;
  }
  std::vector<CMTime> times;
  for (int i = 0; i < 10; ++i) times.emplace_back(25 * i + 10, 30);  // a group of 250 at 30 pictures a second
  std::shuffle(times.begin(), times.end(), std::mt19937(7));

  bool areAllTaken = true;
  auto start = std::chrono::steady_clock::now();
  std::latch left(static_cast<std::ptrdiff_t>(times.size()));
  makeGenerator(argv[1])->generateCGImagesAsynchronously(
      times, [&](const auto&, const auto& image, const auto&, auto, const auto&) {
        areAllTaken = image != nullptr && areAllTaken;
        left.count_down();
      });
  left.wait();
  const double atOnce = secondsSince(start);

  start = std::chrono::steady_clock::now();
  const auto shared = makeGenerator(argv[1]);
  for (const auto& time : times) areAllTaken = shared->copyCGImage(time).has_value() && areAllTaken;
  const double oneByOne = secondsSince(start);

  start = std::chrono::steady_clock::now();
  for (const auto& time : times) areAllTaken = makeGenerator(argv[1])->copyCGImage(time).has_value() && areAllTaken;
  const double apart = secondsSince(start);
  if (!areAllTaken) return 1;
  std::printf("%.3f %.3f %.3f\n", atOnce, oneByOne, apart);
  return 0;
}
