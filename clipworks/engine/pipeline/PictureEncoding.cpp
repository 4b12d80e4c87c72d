#include <clipworks/engine/pipeline/PictureEncoding.h>

#include <algorithm>
#include <cmath>
#include <exception>

namespace clipworks::engine {
namespace {

// They bridge uneven work: whoever takes pictures out of a video backwards decodes a group of them first, and the
// encoder should not stand still meanwhile. 2 pictures of 4K, 24 of 720p.
std::size_t picturesUnderWay(const PictureEncodingSettings& settings) {
  constexpr std::int64_t bytesUnderWay = 32LL << 20;
  const std::int64_t bytes = std::int64_t{settings.width} * settings.height * 3 / 2;
  return static_cast<std::size_t>(std::clamp<std::int64_t>(bytesUnderWay / std::max<std::int64_t>(bytes, 1), 2, 32));
}

// Fine enough that decode times can be told apart between pictures, and that players' own rounding does not show.
constexpr std::int32_t leastTimescale = 90'000;

// A single picture has no neighbour that tells how long it is shown.
constexpr double usualFrameRate = 30;

// Visually transparent, and fast: what exports at the highest quality use.
constexpr double transparentQuality = 18;
constexpr const char* speed = "veryfast";

std::int32_t trackTimescale(std::int32_t pictures) {
  return pictures >= leastTimescale ? pictures : pictures * ((leastTimescale + pictures - 1) / pictures);
}

int encodedSide(int side) { return std::max(side + side % 2, leastPictureSide); }

Colour colourOf(const AVFrame& frame) {
  return completeColour(
      frame.width, frame.height,
      {frame.color_primaries, frame.color_trc, frame.colorspace, frame.color_range == AVCOL_RANGE_JPEG});
}

Error asError(const std::exception& thrown) {
  if (dynamic_cast<const std::bad_alloc*>(&thrown) != nullptr) return {ErrorKind::outOfMemory, "out of memory", 0};
  return {ErrorKind::internal, thrown.what(), 0};
}

}  // namespace

Expected<std::unique_ptr<PictureEncoding>> PictureEncoding::open(const PictureEncodingSettings& settings,
                                                                 std::shared_ptr<SharedMovie> movie, std::size_t track,
                                                                 std::function<void(const Error&)> onFailure) {
  std::unique_ptr<PictureEncoding> encoding(
      new PictureEncoding(settings, std::move(movie), track, std::move(onFailure)));
  auto thread = Thread::start([made = encoding.get()] { made->run(); });
  if (!thread) return tl::make_unexpected(thread.error());
  encoding->thread_ = std::move(*thread);
  return encoding;
}

PictureEncoding::PictureEncoding(const PictureEncodingSettings& settings, std::shared_ptr<SharedMovie> movie,
                                 std::size_t track, std::function<void(const Error&)> onFailure)
    : settings_(settings),
      movie_(std::move(movie)),
      track_(track),
      onFailure_(std::move(onFailure)),
      pictures_(picturesUnderWay(settings)),
      encodedWidth_(encodedSide(settings.width)),
      encodedHeight_(encodedSide(settings.height)) {}

PictureEncoding::~PictureEncoding() { pictures_.abandon(); }

bool PictureEncoding::push(Frame picture, std::int64_t value, std::int32_t timescale) {
  if (timescale_ == 0) timescale_ = trackTimescale(timescale);
  const std::int64_t time = av_rescale(value, timescale_, timescale);
  if (time <= lastPushed_) {
    pictures_.fail({ErrorKind::unsupported, "pictures must come in the order in which they are shown", 0});
    return false;
  }
  lastPushed_ = time;
  return pictures_.push({std::move(picture), time});
}

void PictureEncoding::run() {
  std::optional<Error> failure;
  try {
    if (auto encoded = encodeAll(); !encoded) failure = encoded.error();
  } catch (const std::exception& thrown) {
    failure = asError(thrown);
  }
  if (!failure) return;
  pictures_.abandon();
  onFailure_(*failure);
}

Expected<void> PictureEncoding::encodeAll() {
  auto first = pictures_.pop();
  if (!first) return tl::make_unexpected(first.error());
  if (!*first) return movie_->leaveOut(track_);
  auto second = pictures_.pop();
  if (!second) return tl::make_unexpected(second.error());
  if (auto opened = openEncoder(**first, *second); !opened) return opened;
  if (auto encoded = encode(**first); !encoded) return encoded;
  (*first)->frame.reset();
  for (auto next = std::move(*second); next;) {
    if (auto encoded = encode(*next); !encoded) return encoded;
    auto popped = pictures_.pop();
    if (!popped) return tl::make_unexpected(popped.error());
    next = std::move(*popped);
  }
  if (auto finished = encoder_->finish(); !finished) return finished;
  if (auto passed = passOn(); !passed) return passed;
  return writeLast();
}

Expected<void> PictureEncoding::openEncoder(const Picture& first, const std::optional<Picture>& second) {
  VideoEncoderSettings wanted;
  wanted.codec = settings_.codec;
  wanted.width = encodedWidth_;
  wanted.height = encodedHeight_;
  wanted.timescale = timescale_;
  wanted.colour = colourOf(*first.frame);
  wanted.speed = speed;
  wanted.quality = transparentQuality;
  wanted.averageBitRate = settings_.averageBitRate;
  const double measured =
      second ? static_cast<double>(timescale_) / static_cast<double>(second->time - first.time) : usualFrameRate;
  const double rate = std::clamp(settings_.frameRate.value_or(measured), 1.0, 1000.0);
  wanted.frameRate = nominalRate(rate);
  interval_ = std::max<std::int64_t>(std::lround(timescale_ / rate), 1);
  auto encoder = VideoEncoder::open(wanted);
  if (!encoder) return tl::make_unexpected(encoder.error());
  encoder_.emplace(std::move(*encoder));
  return movie_->describe(track_, encoder_->format(), timescale_, settings_.matrix);
}

Expected<void> PictureEncoding::encode(const Picture& picture) {
  auto frame = fitted(picture.frame);
  if (!frame) return tl::make_unexpected(frame.error());
  const bool isFirst = !lastTime_;
  (isFirst ? firstTime_ : interval_) = isFirst ? picture.time : picture.time - *lastTime_;
  lastTime_ = picture.time;
  shownTimes_.insert(picture.time);
  if (auto pushed = encoder_->push(*frame, picture.time, isFirst); !pushed) return pushed;
  return passOn();
}

Expected<Frame> PictureEncoding::fitted(const Frame& picture) {
  const auto isOfSize = [&](int width, int height) { return picture->width == width && picture->height == height; };
  const bool fits = isOfSize(settings_.width, settings_.height) || isOfSize(encodedWidth_, encodedHeight_);
  const auto fit = fits ? PictureConverter::Fit::pad : PictureConverter::Fit::scale;
  if (!converter_ || fit != fit_) converter_.emplace(encodedWidth_, encodedHeight_, encoder_->pixelFormat(), fit);
  fit_ = fit;
  if (fits || !settings_.fills) return converter_->convert(picture);
  // What is cropped off keeps the chroma's grid.
  Frame part = shareFrame(picture);
  const double shape = static_cast<double>(settings_.width) / settings_.height;
  const auto spare = [](double side, double kept) {
    return static_cast<std::size_t>(std::max(side - kept, 0.0) / 4) * 2;
  };
  part->crop_left = part->crop_right = spare(part->width, part->height * shape);
  part->crop_top = part->crop_bottom = spare(part->height, part->width / shape);
  if (av_frame_apply_cropping(part.get(), AV_FRAME_CROP_UNALIGNED) < 0) {
    return failed(ErrorKind::internal, "a picture cannot be cropped");
  }
  return converter_->convert(part);
}

// Hands on what the encoder has ready, one behind: the last one is written by `writeLast`.
Expected<void> PictureEncoding::passOn() {
  for (;;) {
    auto packet = encoder_->pull();
    if (!packet) return tl::make_unexpected(packet.error());
    if (!*packet) return {};
    if (auto written = writeHeld(); !written) return written;
    held_ = std::move(**packet);
  }
}

Expected<void> PictureEncoding::writeHeld() {
  if (held_ == nullptr) return {};
  const auto next = shownTimes_.upper_bound(held_->pts);
  held_->duration = next == shownTimes_.end() ? interval_ : *next - held_->pts;
  // Nothing that is decoded later is shown before this one's decode time.
  shownTimes_.erase(shownTimes_.begin(), shownTimes_.lower_bound(held_->dts));
  return movie_->write(track_, std::move(held_));
}

Expected<void> PictureEncoding::writeLast() {
  if (held_ == nullptr) return failed(ErrorKind::internal, "the encoder lost pictures");
  const std::int64_t start = std::max<std::int64_t>(firstTime_, 0);
  return movie_->writeLast(track_, std::move(held_), {start, std::max(start, *lastTime_) + interval_, start});
}

}  // namespace clipworks::engine
