#include <clipworks/edit/Chain.h>

namespace clipworks {
namespace {

CMTimeRange range(double from, double to) { return CMTimeRange::fromTo(exactSeconds(from), exactSeconds(to)); }

}  // namespace

Chain::Chain(const std::filesystem::path& file) : edit_(Edit::open(file)) {}

Chain Chain::then(const std::function<Result<Edit, Error>(const Edit&)>& step) const {
  return edit_ ? Chain(step(*edit_)) : *this;
}

Chain Chain::loop(std::int64_t count) const {
  return then([&](const Edit& edit) { return looped(edit, count); });
}

Chain Chain::speed(double from, double to, double ratio) const {
  return then([&](const Edit& edit) { return retimed(edit, range(from, to), ratio); });
}

Chain Chain::reverse() const {
  return then([](const Edit& edit) { return reversed(edit); });
}

Chain Chain::rotate(Turn by) const {
  return then([&](const Edit& edit) { return turned(edit, by); });
}

Chain Chain::crop(const CGRect& rect) const {
  return then([&](const Edit& edit) { return cropped(edit, rect); });
}

Chain Chain::narrate(const std::vector<NarratedPiece>& pieces, double baseVolume) const {
  return then([&](const Edit& edit) { return narrated(edit, pieces, baseVolume); });
}

Chain Chain::compress(int height, std::int64_t bitRate) const {
  return then([&](const Edit& edit) { return compressed(edit, height, bitRate); });
}

Chain Chain::compressTo(std::int64_t bytes, int height) const {
  return then([&](const Edit& edit) { return compressedTo(edit, bytes, height); });
}

Chain Chain::trim(double from, double to) const {
  return then([&](const Edit& edit) { return trimmed(edit, range(from, to)); });
}

Chain Chain::trim(const std::vector<std::pair<double, double>>& stretches) const {
  std::vector<CMTimeRange> ranges;
  for (const auto& [from, to] : stretches) ranges.push_back(range(from, to));
  return then([&](const Edit& edit) { return trimmed(edit, ranges); });
}

Chain Chain::join(const std::filesystem::path& file, const JoinLook& look) const {
  return then([&](const Edit& edit) -> Result<Edit, Error> {
    auto next = Edit::open(file, Edit::Extent::movie, edit.limits());
    return next ? joined({edit, *next}, look) : next;
  });
}

Result<MovieReport, Error> Chain::save(const std::filesystem::path& path, const MovieOptions& options) const {
  if (!edit_) return failure(edit_.error());
  return makeMovie(*edit_, path, options);
}

}  // namespace clipworks
