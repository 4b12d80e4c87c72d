#include <clipworks/engine/input/CachedPictureReader.h>

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

namespace clipworks::engine {
namespace {

// A step back that is no longer looks like reading backwards; longer ones when so many in a row are alike.
constexpr std::size_t longestStepBack = 8;
constexpr int stepsAlike = 3;

// A pass looks through the known requests until so many in a row are none that it can serve.
constexpr int longestStray = 64;

// Pictures that were used so lately are not dropped without need.
constexpr std::uint64_t recentUses = 8;

std::size_t bytesOf(const AVFrame& frame) {
  std::size_t bytes = 0;
  for (const auto* buffer : frame.buf) bytes += buffer == nullptr ? 0 : buffer->size;
  return bytes;
}

std::size_t estimatedBytes(const AVCodecParameters& parameters) {
  const int bytes = av_image_get_buffer_size(planarKind(static_cast<AVPixelFormat>(parameters.format)),
                                             parameters.width, parameters.height, 1);
  return static_cast<std::size_t>(std::max(bytes, 1));
}

// Whether a sample is not in the file; what it holds is another matter, and so is a disk that fails.
bool isLack(const Error& error) { return error.kind == ErrorKind::damaged; }

Error cancelledError() { return {ErrorKind::cancelled, "cancelled", 0}; }

}  // namespace

Expected<CachedPictureReader> CachedPictureReader::open(std::shared_ptr<const MediaFile> file, int stream,
                                                        std::size_t cacheLimit, int threads) {
  const std::size_t bytes = estimatedBytes(file->parameters(stream));
  auto decoder = PictureDecoder::open(file, stream, threads);
  if (!decoder) return tl::make_unexpected(decoder.error());
  return CachedPictureReader(std::move(file), stream, std::move(*decoder), bytes, cacheLimit);
}

Expected<Frame> CachedPictureReader::picture(std::size_t picture, std::span<const std::uint32_t> upcoming,
                                             const std::stop_token& stop) {
  lookBack(picture);
  standsIn_ = false;
  auto frame = decode(picture, upcoming, stop);
  if (frame && (standsIn_ || damaged_.contains(table().sampleOfPicture(picture)))) {
    decoder_.tellDamage(counter_.get(), picture);
  }
  if (frame && standsIn_) ++replaced_;
  previous_ = picture;
  endsAtFirst_ = false;
  return frame;
}

Expected<Frame> CachedPictureReader::decode(std::size_t picture, std::span<const std::uint32_t> upcoming,
                                            const std::stop_token& stop) {
  for (;;) {
    while (isLacking(picture)) {
      standsIn_ = true;
      if (picture == 0) return firstThatDecodes(stop);
      --picture;
    }
    std::uint32_t sample = table().sampleOfPicture(picture);
    if (const auto instead = substitutes_.find(sample); instead != substitutes_.end()) {
      standsIn_ = true;
      sample = instead->second;
      picture = *table().pictureAt(timeOf(sample));
    }
    if (Frame frame = fromMemory(sample)) return frame;
    if (auto chosen = chooseDecoder(picture, upcoming); !chosen) return tl::make_unexpected(chosen.error());
    const Pass pass = plan(picture, upcoming);
    auto outcome = run(pass, picture, stop);
    if (!outcome) return tl::make_unexpected(outcome.error());
    const bool isShort = endsAtFirst_ && !isSurelyWhole(outcome->frame, sample);
    if (outcome->isInDoubt || isShort) {
      endsAtFirst_ = false;
      forgetAll();
      decoder_.stop();
      continue;
    }
    if (outcome->frame != nullptr && damaged_.contains(sample) && !damagedFromBefore_.contains(sample)) {
      // It may only refer to what lies further back, as the first ones behind an access point that is none do.
      damagedFromBefore_.insert(sample);
      Pass further;
      further.leavesOut = false;
      further.access = table().accessPointBefore(table().accessPointFor(picture));
      forgetAll();
      outcome = run(further, picture, stop);
      if (!outcome) return tl::make_unexpected(outcome.error());
    }
    if (outcome->frame != nullptr) return std::move(outcome->frame);
    if (!isLacking(picture)) return replacementFor(picture, stop);
  }
}

// What follows a picture may make it good: the other field of an interlaced one may be the next sample, and behind
// damage the decoder only begins to give pictures somewhere later.
bool CachedPictureReader::isSurelyWhole(const Frame& frame, std::uint32_t sample) const {
  return frame != nullptr && frame->interlaced_frame == 0 && !damaged_.contains(sample);
}

void CachedPictureReader::forgetAll() {
  kept_.clear();
  bytesKept_ = 0;
}

// The picture did not come from its own access point. It may refer to what lies further back (an access point that is
// none), else the last one before it stands in for it: both are found from further back, with nothing left out.
Expected<Frame> CachedPictureReader::replacementFor(std::size_t picture, const std::stop_token& stop) {
  standsIn_ = true;
  Pass pass;
  pass.leavesOut = false;
  pass.access = table().accessPointFor(picture);
  do {
    pass.access = table().accessPointBefore(pass.access);
    auto outcome = run(pass, picture, stop);
    if (!outcome) return tl::make_unexpected(outcome.error());
    if (outcome->frame != nullptr) {
      standsIn_ = false;
      return std::move(outcome->frame);
    }
    if (outcome->before) {
      substitutes_[table().sampleOfPicture(picture)] = outcome->before->sample;
      return std::move(outcome->before->frame);
    }
  } while (pass.access != 0);
  return firstThatDecodes(stop);
}

Expected<Frame> CachedPictureReader::firstThatDecodes(const std::stop_token& stop) {
  standsIn_ = true;
  const auto end = static_cast<std::uint32_t>(table().samples().size());
  decoder_.startAt(0);
  for (;;) {
    if (stop.stop_requested()) return tl::make_unexpected(cancelledError());
    auto next = decoder_.next(end, [](std::uint32_t) { return false; });
    if (next && *next) return std::move((*next)->frame);
    if (next) break;
    if (!isLack(next.error())) return tl::make_unexpected(next.error());
    decoder_.startAt(decoder_.nextSample() + 1);
  }
  return failed(ErrorKind::damaged, decoder_.name() + " holds pictures that cannot be decoded");
}

// Whether a sample that the picture may need is known to be missing in the file.
bool CachedPictureReader::isLacking(std::size_t picture) const {
  const auto lack = unreadable_.lower_bound(table().accessPointFor(picture));
  return lack != unreadable_.end() && *lack <= table().sampleOfPicture(picture);
}

bool CachedPictureReader::goesOn(const PictureDecoder& decoder, std::size_t picture) const {
  // Starting again pays only where an access point lies beyond what the decoder has.
  return decoder.reaches(table().sampleOfPicture(picture)) && table().accessPointFor(picture) <= decoder.nextSample();
}

// Of two decoders that can go on the nearer one does. The one that stands furthest in a group stays there.
Expected<void> CachedPictureReader::chooseDecoder(std::size_t picture, std::span<const std::uint32_t> upcoming) {
  const bool hasRoom = cacheLimit_ / 4 >= bytesInDecoder();
  if (!hasRoom || !upcoming.empty() || readsBackwards_ || !staysInGroup(picture)) {
    if (parked_) parked_->stop();
    return {};
  }
  const bool isBehind = !goesOn(decoder_, picture);
  if (isBehind && !parked_) {
    auto second = PictureDecoder::open(file_, stream_, decoder_.threads());
    if (!second) return tl::make_unexpected(second.error());
    parked_.emplace(std::move(*second));
  }
  if (!parked_) return {};
  const bool isParkedNearer = goesOn(*parked_, picture) && parked_->nextSample() > decoder_.nextSample();
  const bool isParkedLess = !goesOn(*parked_, picture) && parked_->nextSample() < decoder_.nextSample();
  if (isBehind ? goesOn(*parked_, picture) || isParkedLess : isParkedNearer) std::swap(decoder_, *parked_);
  return {};
}

CachedPictureReader::Pass CachedPictureReader::plan(std::size_t picture,
                                                    std::span<const std::uint32_t> upcoming) const {
  const std::uint32_t wanted = table().sampleOfPicture(picture);
  Pass pass;
  pass.access = table().accessPointFor(picture);
  pass.last = wanted;
  pass.goesOn = goesOn(decoder_, picture);
  pass.endsThere = endsAtFirst_;
  if (!upcoming.empty()) {
    planForRequests(pass, picture, upcoming);
  } else if (readsBackwards_) {
    planForStepBack(pass, picture);
  } else if (!pass.goesOn && staysInGroup(picture)) {
    pass.leavesOut = !fitsMemory(pass.access);
  }
  return pass;
}

void CachedPictureReader::planForRequests(Pass& pass, std::size_t picture,
                                          std::span<const std::uint32_t> upcoming) const {
  const std::uint32_t reach = table().sampleOfPicture(picture) + static_cast<std::uint32_t>(decoder_.delay());
  const std::size_t room = bytesForMemory(true) / pictureBytes_;
  pass.keepsAll = false;
  pass.endsThere = true;
  int stray = 0;
  for (std::size_t i = 0; i < upcoming.size() && stray < longestStray; ++i, ++stray) {
    const std::uint32_t sample = table().sampleOfPicture(upcoming[i]);
    const std::uint32_t access = table().accessPointFor(upcoming[i]);
    if (upcoming[i] > picture && access <= reach) pass.endsThere = false;
    const bool isOnTheWay = upcoming[i] < picture && access == pass.access;
    if (pass.kept.size() + 1 >= room) continue;
    if (isOnTheWay) pass.last = std::max(pass.last, sample);
    if (isOnTheWay || kept_.contains(sample)) {
      pass.kept.try_emplace(sample, i);
      stray = 0;
    }
  }
}

void CachedPictureReader::planForStepBack(Pass& pass, std::size_t picture) const {
  const std::size_t room = bytesForMemory(true) / pictureBytes_;
  pass.endsThere = true;
  for (std::size_t back = 1; back <= picture && back < room; ++back) {
    if (table().accessPointFor(picture - back) != pass.access) break;
    const std::uint32_t sample = table().sampleOfPicture(picture - back);
    pass.last = std::max(pass.last, sample);
    pass.kept.try_emplace(sample, back);
  }
}

bool CachedPictureReader::staysInGroup(std::size_t picture) const {
  return previous_ && table().accessPointFor(*previous_) == table().accessPointFor(picture);
}

bool CachedPictureReader::fitsMemory(std::uint32_t access) const {
  const auto end = table().accessPointAfter(access).value_or(static_cast<std::uint32_t>(table().samples().size()));
  return (end - access) * pictureBytes_ <= bytesForMemory(false);
}

void CachedPictureReader::lookBack(std::size_t picture) {
  const std::size_t step = previous_ && picture < *previous_ ? *previous_ - picture : 0;
  const std::size_t difference = std::max(step, stepBack_) - std::min(step, stepBack_);
  alikeSteps_ = difference <= stepBack_ / 4 ? alikeSteps_ + 1 : 1;
  stepBack_ = step;
  readsBackwards_ = step > 0 && (step <= longestStepBack || alikeSteps_ >= stepsAlike);
}

Expected<CachedPictureReader::Outcome> CachedPictureReader::run(const Pass& pass, std::size_t picture,
                                                                const std::stop_token& stop) {
  const std::uint32_t wanted = table().sampleOfPicture(picture);
  const std::int64_t time = timeOf(wanted);
  const auto end = pass.endsThere ? pass.last + 1 : static_cast<std::uint32_t>(table().samples().size());
  const auto isNotNeeded = [&](std::uint32_t sample) {
    return pass.leavesOut && timeOf(sample) < time && !pass.kept.contains(sample);
  };
  if (!pass.goesOn) decoder_.startAt(pass.access);
  Outcome outcome;
  for (;;) {
    if (stop.stop_requested()) return tl::make_unexpected(cancelledError());
    auto next = decoder_.next(end, isNotNeeded);
    if (!next) {
      if (!isLack(next.error())) return tl::make_unexpected(next.error());
      unreadable_.insert(decoder_.nextSample());
      decoder_.drain();
      continue;
    }
    if (!*next) break;
    if ((*next)->isDamaged) {
      damaged_.insert((*next)->sample);
    } else {
      damaged_.erase((*next)->sample);
    }
    keep(**next, pass, wanted);
    if ((*next)->sample == wanted) {
      outcome.frame = std::move((*next)->frame);
      break;
    }
    if (timeOf((*next)->sample) > time) break;
    outcome.before = std::move(**next);
  }
  outcome.isInDoubt = decoder_.isInDoubt();
  if (pass.endsThere) decoder_.stop();
  return outcome;
}

void CachedPictureReader::keep(const PictureDecoder::Picture& picture, const Pass& pass, std::uint32_t wanted) {
  if (!pass.keepsAll && picture.sample != wanted && !pass.kept.contains(picture.sample)) return;
  if (kept_.contains(picture.sample)) return;
  pictureBytes_ = std::max<std::size_t>(bytesOf(*picture.frame), 1);
  if (!pass.keepsAll) forgetServed(pass);
  makeRoom(pictureBytes_, pass, wanted);
  const std::uint32_t access = table().accessPointFor(*table().pictureAt(timeOf(picture.sample)));
  kept_[picture.sample] = Kept{shareFrame(picture.frame), pictureBytes_, ++uses_, access};
  bytesKept_ += pictureBytes_;
}

// Where requests are known, what was handed out and is not among them will hardly be asked for again.
void CachedPictureReader::forgetServed(const Pass& pass) {
  for (auto entry = kept_.begin(); entry != kept_.end();) {
    const bool isServed = entry->second.lastUse + recentUses < uses_ && !pass.kept.contains(entry->first);
    if (isServed) bytesKept_ -= entry->second.bytes;
    entry = isServed ? kept_.erase(entry) : std::next(entry);
  }
}

// Pictures that are not known to be asked for go first: of other groups the least recently used, of this one those that
// are soonest decoded again. Then those that will be asked for last.
void CachedPictureReader::makeRoom(std::size_t bytes, const Pass& pass, std::uint32_t wanted) {
  const std::uint32_t access = table().accessPointFor(*table().pictureAt(timeOf(wanted)));
  const auto rank = [&](const auto& entry) {
    const auto place = pass.kept.find(entry.first);
    const bool isAskedFor = place != pass.kept.end();
    const bool isOfThisGroup = entry.second.access == access;
    return std::tuple(entry.first == wanted, isAskedFor, isAskedFor ? -static_cast<std::int64_t>(place->second) : 0,
                      isOfThisGroup, isOfThisGroup ? samplesTo(entry.first, access) : entry.second.lastUse);
  };
  const std::size_t limit = bytesForMemory(pass.endsThere);
  while (!kept_.empty() && bytesKept_ + bytes > limit) {
    const auto least =
        std::min_element(kept_.begin(), kept_.end(), [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
    if (least->first == wanted) return;
    bytesKept_ -= least->second.bytes;
    kept_.erase(least);
  }
}

// How many samples it takes to decode one again, from where the decoder is or from its access point.
std::uint64_t CachedPictureReader::samplesTo(std::uint32_t sample, std::uint32_t access) const {
  std::uint32_t from = access;
  if (decoder_.reaches(sample)) from = std::max(from, std::min(decoder_.nextSample(), sample));
  if (parked_ && parked_->reaches(sample)) from = std::max(from, std::min(parked_->nextSample(), sample));
  return sample - from;
}

Frame CachedPictureReader::fromMemory(std::uint32_t sample) {
  const auto kept = kept_.find(sample);
  if (kept == kept_.end()) return nullptr;
  kept->second.lastUse = ++uses_;
  return shareFrame(kept->second.frame);
}

// What the limit leaves beside the pictures that are in the decoders. Where a pass ends with what it keeps, those are
// among the kept, but for one.
std::size_t CachedPictureReader::bytesForMemory(bool endsThere) const {
  const std::size_t decoders = parked_ && parked_->isRunning() ? 2 : 1;
  const std::size_t inDecoders = endsThere ? pictureBytes_ : decoders * bytesInDecoder();
  return cacheLimit_ > inDecoders + pictureBytes_ ? cacheLimit_ - inDecoders : pictureBytes_;
}

}  // namespace clipworks::engine
