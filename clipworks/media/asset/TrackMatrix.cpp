#include <clipworks/media/asset/TrackMatrix.h>

#include <algorithm>
#include <cmath>

namespace clipworks {

std::optional<std::array<std::int32_t, 9>> trackMatrix(const CGAffineTransform& t) {
  const auto fixed = [](double v) {
    constexpr double one16 = 65536.0;
    constexpr double limit = 32767.0;
    return static_cast<std::int32_t>(std::lround(std::clamp(std::isfinite(v) ? v : 0.0, -limit, limit) * one16));
  };
  const std::array<std::int32_t, 9> matrix{fixed(t.a), fixed(t.b),  0,           fixed(t.c), fixed(t.d),
                                           0,          fixed(t.tx), fixed(t.ty), 1 << 30};
  const std::array<std::int32_t, 9> identity{1 << 16, 0, 0, 0, 1 << 16, 0, 0, 0, 1 << 30};
  if (matrix == identity) return std::nullopt;
  return matrix;
}

}  // namespace clipworks
