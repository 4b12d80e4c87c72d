#include <clipworks/engine/pictures/WholePictures.h>

#include <algorithm>
#include <utility>

namespace clipworks::engine {
namespace {

// Further ahead it is cheaper to begin anew than to deinterlace all that lies between.
constexpr std::size_t farAhead = 16;

// A picture and those beside it.
constexpr std::size_t codedPicturesKept = 3;

bool isAlike(const AVFrame& a, const AVFrame& b) {
  return a.width == b.width && a.height == b.height && a.format == b.format;
}

}  // namespace

Expected<Frame> WholePictures::picture(std::size_t picture, const Decode& decode) {
  if (!isInterlaced_) return decode(picture);
  const std::size_t firstReady = whole_.empty() ? pulled_ : whole_.front().number;
  if (pushed_ == 0 || picture < firstReady || picture > pulled_ + farAhead) startAt(picture);
  for (;;) {
    while (!whole_.empty() && whole_.front().number < picture) whole_.pop_front();
    if (!whole_.empty()) return shareFrame(whole_.front().frame);
    if (auto more = deinterlaceMore(decode); !more) return tl::make_unexpected(more.error());
  }
}

// The picture before belongs to the fields that are looked at.
void WholePictures::startAt(std::size_t picture) {
  deinterlacer_.reset();
  whole_.clear();
  pushed_ = pulled_ = picture > 0 ? picture - 1 : 0;
}

Expected<void> WholePictures::deinterlaceMore(const Decode& decode) {
  if (pushed_ > count_) return failed(ErrorKind::internal, "deinterlacing lost pictures");
  if (pushed_ == count_) {
    ++pushed_;
    return finishRun();
  }
  auto frame = coded(pushed_, decode);
  if (!frame) return tl::make_unexpected(frame.error());
  if (deinterlacer_ && !isAlike(**frame, *coded_.back().frame)) {
    if (auto finished = finishRun(); !finished) return finished;
  }
  if (auto pushed = push(*frame); !pushed) return pushed;
  coded_.push_back({pushed_++, std::move(*frame)});
  if (coded_.size() > codedPicturesKept) coded_.pop_front();
  return {};
}

Expected<Frame> WholePictures::coded(std::size_t picture, const Decode& decode) {
  const auto known = std::find_if(coded_.begin(), coded_.end(), [&](const auto& c) { return c.number == picture; });
  return known == coded_.end() ? decode(picture) : shareFrame(known->frame);
}

Expected<void> WholePictures::push(const Frame& frame) {
  if (!deinterlacer_) {
    auto opened = Deinterlacer::open(*frame);
    if (!opened) return tl::make_unexpected(opened.error());
    deinterlacer_.emplace(std::move(*opened));
  }
  if (auto pushed = deinterlacer_->push(frame); !pushed) return pushed;
  return pull();
}

Expected<void> WholePictures::finishRun() {
  if (auto finished = deinterlacer_->finish(); !finished) return finished;
  auto pulled = pull();
  deinterlacer_.reset();
  return pulled;
}

Expected<void> WholePictures::pull() {
  for (;;) {
    auto whole = deinterlacer_->pull();
    if (!whole) return tl::make_unexpected(whole.error());
    if (!*whole) return {};
    whole_.push_back({pulled_++, std::move(**whole)});
  }
}

}  // namespace clipworks::engine
