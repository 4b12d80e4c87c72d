#include <clipworks/engine/output/MixingGains.h>

namespace clipworks::engine {

std::optional<std::vector<double>> mixingGains(int from, int to) {
  constexpr double minus3dB = 0.70710678118654752;
  if (from == 1 && to == 2) return std::vector<double>{1.0, 1.0};
  if (from == 6 && to == 2) {  // L R C LFE Ls Rs
    return std::vector<double>{1.0, 0.0, minus3dB, 0.0, minus3dB, 0.0, 0.0, 1.0, minus3dB, 0.0, 0.0, minus3dB};
  }
  return std::nullopt;
}

}  // namespace clipworks::engine
