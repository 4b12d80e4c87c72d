#include <app/ProgressLine.h>

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace clipworks::app {
namespace {

constexpr int barLength = 30;
// Before these, a guess would jump about.
constexpr double leastValue = 0.02;
constexpr std::chrono::seconds leastElapsed{1};

std::string timeLeft(double value, std::chrono::milliseconds elapsed) {
  if (value < leastValue || value >= 1 || elapsed < leastElapsed) return "";
  const double seconds = std::chrono::duration<double>(elapsed).count() * (1 - value) / value;
  const auto left = static_cast<std::int64_t>(std::ceil(seconds));
  if (left >= 3600) return fmt::format("  {}:{:02}:{:02} left", left / 3600, left / 60 % 60, left % 60);
  return fmt::format("  {}:{:02} left", left / 60, left % 60);
}

}  // namespace

std::string progressLine(double value, std::chrono::milliseconds elapsed) {
  const double shown = std::clamp(value, 0.0, 1.0);
  const auto filled = static_cast<std::size_t>(shown * barLength);
  return fmt::format("[{}{}] {:3.0f} %{}", std::string(filled, '#'), std::string(barLength - filled, '.'),
                     std::floor(shown * 100), timeLeft(shown, elapsed));
}

}  // namespace clipworks::app
