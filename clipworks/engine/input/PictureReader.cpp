#include <clipworks/engine/input/PictureReader.h>

#include <limits>
#include <utility>

namespace clipworks::engine {

Expected<PictureReader> PictureReader::open(std::shared_ptr<const MediaFile> file, int stream, int threads) {
  auto decoder = PictureDecoder::open(std::move(file), stream, threads);
  if (!decoder) return tl::make_unexpected(decoder.error());
  return PictureReader(std::move(*decoder));
}

Expected<Frame> PictureReader::picture(std::size_t picture) {
  const std::uint32_t access = table().accessPointFor(picture);
  const bool behind = started_ && picture < std::exchange(asked_, picture);
  // Samples up to nextSample() are in the decoder already; starting again pays only where an access point lies beyond.
  const bool jumps = !started_ || behind || access > decoder_.nextSample();
  asked_ = picture;
  auto found = jumps ? jumpTo(picture, access) : advanceTo(picture, false);
  if (!found) return tl::make_unexpected(found.error());
  if (!*found) ++replaced_;
  const auto& shown = current_ ? current_ : ahead_;
  if (!shown) return failed(ErrorKind::damaged, decoder_.name() + " holds pictures that cannot be decoded");
  if (!*found || shown->isDamaged) decoder_.tellDamage(damaged_.get(), picture);
  return shareFrame(shown->frame);
}

Expected<bool> PictureReader::jumpTo(std::size_t picture, std::uint32_t accessPoint) {
  const auto start = [this](std::uint32_t sample) {
    decoder_.startAt(sample);
    started_ = true;
    current_.reset();
    ahead_.reset();
  };
  start(accessPoint);
  auto found = advanceTo(picture, true);
  const bool isInDoubt = decoder_.isInDoubt();
  if (!found || (*found && !isInDoubt && !current_->isDamaged)) return found;
  // It is broken, or refers to what lies further back, or depends on what was left out: once more, with all before it.
  start(*found && !current_->isDamaged ? accessPoint : table().accessPointBefore(accessPoint));
  return advanceTo(picture, false);
}

// Whether the picture itself came, as current_; else current_ is the one before it. Past pictures may be left out.
Expected<bool> PictureReader::advanceTo(std::size_t picture, bool leavesOut) {
  const std::uint32_t wanted = table().sampleOfPicture(picture);
  const std::int64_t time = table().timeOfPicture(picture);
  const auto isNotNeeded = [&](std::uint32_t sample) {
    return leavesOut && table().samples()[sample].presentation < time;
  };
  const auto end = static_cast<std::uint32_t>(table().samples().size());
  while (!ahead_ || timeOf(*ahead_) <= time) {
    if (ahead_) current_ = std::exchange(ahead_, std::nullopt);
    if (current_ && current_->sample == wanted) return true;
    auto more = decoder_.next(end, isNotNeeded);
    if (!more) return tl::make_unexpected(more.error());
    if (!*more) return false;
    ahead_ = std::move(*more);
  }
  return current_ && current_->sample == wanted;
}

}  // namespace clipworks::engine
