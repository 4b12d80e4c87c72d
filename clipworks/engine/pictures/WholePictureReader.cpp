#include <clipworks/engine/pictures/WholePictureReader.h>

#include <optional>
#include <utility>
#include <vector>

#include <clipworks/engine/pictures/Deinterlacer.h>

namespace clipworks::engine {
namespace {

bool isAlike(const AVFrame& a, const AVFrame& b) {
  return a.width == b.width && a.height == b.height && a.format == b.format;
}

// Number `index` of the pictures made whole.
Expected<Frame> madeWhole(const std::vector<const Frame*>& pictures, std::size_t index) {
  auto deinterlacer = Deinterlacer::open(**pictures.front());
  if (!deinterlacer) return tl::make_unexpected(deinterlacer.error());
  for (const Frame* picture : pictures) {
    if (auto pushed = deinterlacer->push(*picture); !pushed) return tl::make_unexpected(pushed.error());
  }
  if (auto finished = deinterlacer->finish(); !finished) return tl::make_unexpected(finished.error());
  for (std::size_t i = 0;; ++i) {
    auto whole = deinterlacer->pull();
    if (!whole) return tl::make_unexpected(whole.error());
    if (!*whole) return failed(ErrorKind::internal, "deinterlacing lost a picture");
    if (i == index) return std::move(**whole);
  }
}

}  // namespace

Expected<Frame> WholePictureReader::picture(std::size_t picture, std::span<const std::uint32_t> upcoming,
                                            const std::stop_token& stop) {
  auto asked = neighbour(picture, upcoming, stop);
  if (!asked || (*asked)->interlaced_frame == 0) return asked;
  std::map<std::size_t, Frame> neighbours;
  std::size_t index = 0;
  neighbours[picture] = std::move(*asked);
  for (const int step : {-1, 1}) {
    if (step < 0 ? picture == 0 : picture + 1 >= reader_.table().pictureCount()) continue;
    auto beside = neighbour(picture + static_cast<std::size_t>(step), upcoming, stop);
    if (!beside) return beside;
    if (!isAlike(**beside, *neighbours[picture])) continue;
    if (step < 0) index = 1;
    neighbours[picture + static_cast<std::size_t>(step)] = std::move(*beside);
  }
  neighbours_ = std::move(neighbours);
  std::vector<const Frame*> run;
  for (const auto& entry : neighbours_) run.push_back(&entry.second);
  auto whole = madeWhole(run, index);
  if (whole) (*whole)->interlaced_frame = 0;
  return whole;
}

Expected<Frame> WholePictureReader::neighbour(std::size_t picture, std::span<const std::uint32_t> upcoming,
                                              const std::stop_token& stop) {
  if (const auto known = neighbours_.find(picture); known != neighbours_.end()) return shareFrame(known->second);
  return reader_.picture(picture, upcoming, stop);
}

}  // namespace clipworks::engine
