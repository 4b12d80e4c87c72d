#include <clipworks/engine/pipeline/WholePictures.h>

namespace clipworks::engine {
namespace {

// Further ahead it is cheaper to begin anew than to deinterlace all that lies between.
constexpr std::size_t farAhead = 16;

}  // namespace

Expected<WholePictures> WholePictures::open(std::shared_ptr<const MediaFile> file, int stream) {
  const bool interlaced = !file->stream(stream).progressive;
  auto reader = PictureReader::open(std::move(file), stream);
  if (!reader) return tl::make_unexpected(reader.error());
  return WholePictures(std::move(*reader), interlaced);
}

Expected<Frame> WholePictures::picture(std::size_t picture) {
  if (!interlaced_) return reader_.picture(picture);
  if (!deinterlacer_ || picture > pulled_ + farAhead) {
    if (auto started = startAt(picture); !started) return tl::make_unexpected(started.error());
  }
  while (!whole_.empty() && whole_.front().number < picture) whole_.pop_front();
  while (whole_.empty() || whole_.front().number < picture) {
    whole_.clear();
    if (auto more = deinterlaceMore(); !more) return tl::make_unexpected(more.error());
    while (!whole_.empty() && whole_.front().number < picture) whole_.pop_front();
  }
  return shareFrame(whole_.front().frame);
}

// The picture before belongs to the fields that are looked at.
Expected<void> WholePictures::startAt(std::size_t picture) {
  const std::size_t first = picture > 0 ? picture - 1 : 0;
  auto frame = reader_.picture(first);
  if (!frame) return tl::make_unexpected(frame.error());
  auto opened = Deinterlacer::open(**frame);
  if (!opened) return tl::make_unexpected(opened.error());
  deinterlacer_.emplace(std::move(*opened));
  pushed_ = pulled_ = first;
  whole_.clear();
  return {};
}

Expected<void> WholePictures::deinterlaceMore() {
  const std::size_t count = reader_.table().pictureCount();
  if (pushed_ > count) return failed(ErrorKind::internal, "deinterlacing lost pictures");
  if (pushed_ == count) {
    if (auto finished = deinterlacer_->finish(); !finished) return finished;
  } else {
    auto frame = reader_.picture(pushed_);
    if (!frame) return tl::make_unexpected(frame.error());
    if (auto pushed = deinterlacer_->push(*frame); !pushed) return pushed;
  }
  ++pushed_;
  for (;;) {
    auto whole = deinterlacer_->pull();
    if (!whole) return tl::make_unexpected(whole.error());
    if (!*whole) return {};
    whole_.push_back({pulled_++, std::move(**whole)});
  }
}

}  // namespace clipworks::engine
