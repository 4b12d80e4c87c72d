#include <clipworks/engine/pipeline/SharedMovie.h>

#include <algorithm>
#include <numeric>

namespace clipworks::engine {
namespace {

constexpr std::int64_t mostMovieTimescale = 10'000'000;
constexpr std::int64_t fineMovieTimescale = 1'000'000;

}  // namespace

SharedMovie::~SharedMovie() = default;

void SharedMovie::setMetadata(std::map<std::string, std::string> metadata) {
  const std::lock_guard lock(mutex_);
  metadata_ = std::move(metadata);
}

std::size_t SharedMovie::addTrack() {
  const std::lock_guard lock(mutex_);
  tracks_.emplace_back();
  return tracks_.size() - 1;
}

Expected<void> SharedMovie::describe(std::size_t track, CodecParameters format, std::int32_t timescale,
                                     const std::optional<std::array<std::int32_t, 9>>& matrix) {
  const std::lock_guard lock(mutex_);
  if (failure_) return tl::make_unexpected(*failure_);
  Track& described = tracks_[track];
  described.state = TrackState::described;
  described.format = std::move(format);
  described.timescale = timescale;
  described.matrix = matrix;
  return noted(beginIfReady());
}

Expected<void> SharedMovie::leaveOut(std::size_t track) {
  const std::lock_guard lock(mutex_);
  if (failure_) return tl::make_unexpected(*failure_);
  tracks_[track].state = TrackState::leftOut;
  return noted(beginIfReady());
}

Expected<void> SharedMovie::write(std::size_t track, Packet packet) {
  const std::lock_guard lock(mutex_);
  return write(Sample{track, std::move(packet), std::nullopt});
}

Expected<void> SharedMovie::writeLast(std::size_t track, Packet packet, const TrackEdit& edit) {
  const std::lock_guard lock(mutex_);
  return write(Sample{track, std::move(packet), edit});
}

Expected<void> SharedMovie::write(Sample sample) {
  if (failure_) return tl::make_unexpected(*failure_);
  if (movie_ == nullptr) {
    early_.push_back(std::move(sample));
    return {};
  }
  return noted(writeNow(sample));
}

Expected<void> SharedMovie::finish() {
  const std::lock_guard lock(mutex_);
  if (failure_) return tl::make_unexpected(*failure_);
  if (movie_ == nullptr) {
    return noted(failed(ErrorKind::internal, file_->name() + " would be empty: no pictures and no sound were given"));
  }
  if (auto finished = movie_->finish(); !finished) return noted(std::move(finished));
  movie_.reset();
  return noted(file_->commit());
}

void SharedMovie::cancel() {
  const std::lock_guard lock(mutex_);
  file_->cancel();
  if (!failure_) failure_ = Error{ErrorKind::cancelled, "cancelled", 0};
}

Expected<void> SharedMovie::noted(Expected<void> outcome) {
  if (!outcome) failure_ = outcome.error();
  return outcome;
}

Expected<void> SharedMovie::beginIfReady() {
  const auto is = [](TrackState state) { return [state](const Track& track) { return track.state == state; }; };
  if (std::any_of(tracks_.begin(), tracks_.end(), is(TrackState::expected))) return {};
  if (std::all_of(tracks_.begin(), tracks_.end(), is(TrackState::leftOut))) return {};
  if (auto begun = begin(); !begun) return begun;
  for (; !early_.empty(); early_.pop_front()) {
    if (auto written = writeNow(early_.front()); !written) return written;
  }
  return {};
}

Expected<void> SharedMovie::begin() {
  auto movie = MovieWriter::create(*file_, movieTimescale(), metadata_, container_);
  if (!movie) return tl::make_unexpected(movie.error());
  for (Track& track : tracks_) {
    if (track.state == TrackState::leftOut) continue;
    auto number = (*movie)->addTrack(*track.format, track.timescale, track.matrix);
    if (!number) return tl::make_unexpected(number.error());
    track.number = *number;
  }
  if (auto begun = (*movie)->begin(); !begun) return begun;
  movie_ = std::move(*movie);
  return {};
}

Expected<void> SharedMovie::writeNow(Sample& sample) {
  const int number = tracks_[sample.track].number;
  auto stored =
      sample.edit ? movie_->writeLast(number, *sample.packet, *sample.edit) : movie_->write(number, *sample.packet);
  if (!stored) return tl::make_unexpected(stored.error());
  return {};
}

// The time scale in which the lengths of all tracks are whole, so that no edit is rounded; where there is none, those
// of the pictures are, and those of the sound within a tenth of a sample.
std::int32_t SharedMovie::movieTimescale() const {
  std::int64_t common = 1;
  std::int64_t pictures = 1;
  for (const Track& track : tracks_) {
    if (track.state == TrackState::leftOut) continue;
    common = std::lcm(common, std::int64_t{track.timescale});
    if (track.format->codec_type == AVMEDIA_TYPE_VIDEO) pictures = track.timescale;
    if (common > mostMovieTimescale)
      return static_cast<std::int32_t>(pictures * std::max<std::int64_t>(1, fineMovieTimescale / pictures));
  }
  return static_cast<std::int32_t>(common);
}

}  // namespace clipworks::engine
