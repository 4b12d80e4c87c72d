#include <clipworks/engine/pipeline/LayerPictures.h>

#include <cmath>
#include <span>
#include <utility>

namespace clipworks::engine {
namespace {

/// To half its size or less, either way.
bool isMadeMuchSmaller(const AffineMap& map) {
  constexpr double half = 0.5;
  return std::hypot(map.a, map.b) <= half && std::hypot(map.c, map.d) <= half;
}

}  // namespace

Expected<LayerPictures> LayerPictures::open(RunLayer layer, std::shared_ptr<DamagedPictures> damaged,
                                            std::size_t cacheLimit, int threads) {
  LayerPictures pictures(std::move(layer));
  const bool falls = fall(pictures.layer_);
  auto opened = falls ? pictures.openFalling(std::move(damaged), cacheLimit, threads)
                      : pictures.openRising(std::move(damaged), threads);
  if (!opened) return tl::make_unexpected(opened.error());
  const PictureTable& table = falls ? pictures.falling_->table() : pictures.rising_->table();
  const bool isInterlaced = !pictures.layer_.file->stream(pictures.layer_.stream).progressive;
  pictures.whole_.emplace(isInterlaced, table.pictureCount());
  return pictures;
}

Expected<void> LayerPictures::openFalling(std::shared_ptr<DamagedPictures> damaged, std::size_t cacheLimit,
                                          int threads) {
  auto reader = CachedPictureReader::open(layer_.file, layer_.stream, cacheLimit, threads);
  if (!reader) return tl::make_unexpected(reader.error());
  reader->countDamageIn(std::move(damaged));
  falling_.emplace(std::move(*reader));
  return {};
}

Expected<void> LayerPictures::openRising(std::shared_ptr<DamagedPictures> damaged, int threads) {
  auto reader = PictureReader::open(layer_.file, layer_.stream, threads);
  if (!reader) return tl::make_unexpected(reader.error());
  reader->countDamageIn(std::move(damaged));
  if (isMadeMuchSmaller(layer_.map)) reader->leaveOutFilters();
  rising_.emplace(std::move(*reader));
  return {};
}

Expected<Frame> LayerPictures::next(const std::stop_token& stop) {
  const std::uint32_t shown = layer_.pictures[place_++];
  const auto upcoming = std::span<const std::uint32_t>(layer_.pictures).subspan(place_);
  return whole_->picture(shown, [&](std::size_t picture) {
    return falling_ ? falling_->picture(picture, upcoming, stop) : rising_->picture(picture);
  });
}

}  // namespace clipworks::engine
