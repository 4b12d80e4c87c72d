#include <app/LevelLine.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include <fmt/format.h>

namespace clipworks::app {
namespace {

constexpr int barLength = 30;
constexpr double leastDecibels = -60;

}  // namespace

std::string levelLine(double seconds, double decibels) {
  const double share = std::clamp(1 - decibels / leastDecibels, 0.0, 1.0);
  const auto filled = static_cast<std::size_t>(std::lround(share * barLength));
  const auto whole = static_cast<std::int64_t>(seconds);
  const std::string level = share > 0 ? fmt::format("{:3.0f} dB", decibels) : "silent";
  return fmt::format("{}:{:02}  [{}{}] {}", whole / 60, whole % 60, std::string(filled, '#'),
                     std::string(barLength - filled, '.'), level);
}

}  // namespace clipworks::app
