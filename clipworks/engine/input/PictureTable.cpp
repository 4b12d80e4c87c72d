#include <clipworks/engine/input/PictureTable.h>

#include <algorithm>
#include <numeric>

namespace clipworks::engine {
namespace {

const CodecChange* holdingAt(const std::vector<CodecChange>& changes, std::uint32_t sample) {
  const auto after = std::upper_bound(changes.begin(), changes.end(), sample,
                                      [](std::uint32_t s, const CodecChange& change) { return s < change.sample; });
  return after == changes.begin() ? nullptr : &*(after - 1);
}

}  // namespace

PictureTable::PictureTable(std::vector<Sample> decodeOrder, std::int64_t trackEnd, CodecChanges changes)
    : samples_(std::move(decodeOrder)), changes_(std::move(changes)), trackEnd_(trackEnd) {
  pictures_.resize(samples_.size());
  std::iota(pictures_.begin(), pictures_.end(), 0U);
  const auto earlier = [this](std::uint32_t a, std::uint32_t b) {
    return samples_[a].presentation < samples_[b].presentation;
  };
  const auto sameTime = [this](std::uint32_t a, std::uint32_t b) {
    return samples_[a].presentation == samples_[b].presentation;
  };
  std::stable_sort(pictures_.begin(), pictures_.end(), earlier);
  pictures_.erase(std::unique(pictures_.begin(), pictures_.end(), sameTime), pictures_.end());

  for (std::uint32_t i = 0; i < samples_.size(); ++i) {
    totalBytes_ += std::max(samples_[i].bytes, 0);
    if (!samples_[i].accessPoint) continue;
    if (accessPoints_.empty() || earlier(accessPoints_.back(), i)) accessPoints_.push_back(i);
  }
  if (!pictures_.empty()) trackEnd_ = std::max(trackEnd_, samples_[pictures_.back()].presentation + 1);
}

const CodecChange* PictureTable::parametersFor(std::uint32_t sample) const {
  return holdingAt(changes_.parameters, sample);
}

const CodecChange* PictureTable::paletteFor(std::uint32_t sample) const { return holdingAt(changes_.palettes, sample); }

std::size_t PictureTable::firstPictureFrom(std::int64_t ticks) const {
  const auto at = std::lower_bound(pictures_.begin(), pictures_.end(), ticks,
                                   [this](std::uint32_t i, std::int64_t t) { return samples_[i].presentation < t; });
  return static_cast<std::size_t>(at - pictures_.begin());
}

std::optional<std::size_t> PictureTable::pictureAt(std::int64_t ticks) const {
  const std::size_t after = firstPictureFrom(ticks + 1);
  if (after == 0) return std::nullopt;
  return after - 1;
}

std::uint32_t PictureTable::accessPointFor(std::size_t picture) const {
  const std::int64_t time = timeOfPicture(picture);
  auto after = std::upper_bound(accessPoints_.begin(), accessPoints_.end(), time,
                                [this](std::int64_t t, std::uint32_t i) { return t < samples_[i].presentation; });
  while (after != accessPoints_.begin() && *(after - 1) > pictures_[picture]) --after;
  return after == accessPoints_.begin() ? 0 : *(after - 1);
}

std::uint32_t PictureTable::accessPointBefore(std::uint32_t accessPoint) const {
  const auto at = std::lower_bound(accessPoints_.begin(), accessPoints_.end(), accessPoint);
  return at == accessPoints_.begin() ? 0 : *(at - 1);
}

std::optional<std::uint32_t> PictureTable::accessPointAfter(std::uint32_t sample) const {
  const auto at = std::upper_bound(accessPoints_.begin(), accessPoints_.end(), sample);
  if (at == accessPoints_.end()) return std::nullopt;
  return *at;
}

bool PictureTable::hasConstantRate() const {
  if (pictures_.size() < 3) return true;
  std::int64_t shortest = INT64_MAX;
  std::int64_t longest = 0;
  for (std::size_t i = 1; i < pictures_.size(); ++i) {
    const std::int64_t interval = timeOfPicture(i) - timeOfPicture(i - 1);
    shortest = std::min(shortest, interval);
    longest = std::max(longest, interval);
  }
  return longest - shortest <= 1;
}

std::size_t PictureTable::longestGroup() const {
  std::size_t longest = 0;
  std::size_t start = 0;
  for (const std::uint32_t next : accessPoints_) {
    longest = std::max(longest, next - start);
    start = next;
  }
  return std::max(longest, samples_.size() - start);
}

std::int64_t PictureTable::samplesBeyond(std::int64_t fileSize) const {
  return std::count_if(samples_.begin(), samples_.end(),
                       [fileSize](const Sample& s) { return s.position + s.bytes > fileSize; });
}

}  // namespace clipworks::engine
