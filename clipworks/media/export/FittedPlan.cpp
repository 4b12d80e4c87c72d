#include <clipworks/media/export/FittedPlan.h>

#include <algorithm>
#include <array>
#include <utility>

#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/export/PicturePlan.h>
#include <clipworks/media/export/RenderPlan.h>
#include <clipworks/media/geometry/CGRect.h>

namespace clipworks {
namespace {

/// The pixels that are drawn: 4:2:0 has none between two chroma samples.
engine::Canvas canvasOf(const ExportPreset::FixedSize& size) {
  return {size.width + size.width % 2, size.height + size.height % 2};
}

/// Where a picture of `natural` size lies once `turn` has been applied to it.
CGRect boxOf(const CGSize& natural, const CGAffineTransform& turn) {
  std::array<CGPoint, 4> corners = {
      CGPoint{0, 0}, {natural.width, 0}, {0, natural.height}, {natural.width, natural.height}};
  for (auto& corner : corners) corner = CGPointApplyAffineTransform(corner, turn);
  const auto [left, right] = std::minmax({corners[0].x, corners[1].x, corners[2].x, corners[3].x});
  const auto [top, bottom] = std::minmax({corners[0].y, corners[1].y, corners[2].y, corners[3].y});
  return {{left, top}, {right - left, bottom - top}};
}

/// Upright, in the middle of the canvas, which it covers whole.
CGAffineTransform uprightOnto(const engine::Canvas& canvas, const CGSize& natural, const CGAffineTransform& turn,
                              bool fills) {
  const CGRect box = boxOf(natural, turn);
  double across = canvas.width / box.size.width;
  double down = canvas.height / box.size.height;
  if (fills) across = down = std::max(across, down);
  const CGAffineTransform fit{across,
                              0,
                              0,
                              down,
                              canvas.width / 2.0 - across * (box.origin.x + box.size.width / 2),
                              canvas.height / 2.0 - down * (box.origin.y + box.size.height / 2)};
  return CGAffineTransformConcat(turn, fit);
}

}  // namespace

Result<std::optional<engine::PictureJob>, NSError> planFitted(const ExportTrack& track, const ExportPreset& preset) {
  auto planned = layOutPictures(track);
  if (!planned || !*planned) return planned;
  engine::PictureJob& job = **planned;
  chooseEncoding(job, preset);
  job.canvas = canvasOf(*preset.fixedSize);
  job.matrix.reset();
  job.encoder.pixelAspect = {1, 1};
  setEncodedSize(job, job.canvas->width, job.canvas->height, preset);
  for (auto& run : job.runs) {
    if (run.file == nullptr) continue;
    const MediaTrack media(run.file, run.stream);
    const CGSize natural{media.facts().naturalWidth, media.facts().naturalHeight};
    const auto upright = uprightOnto(*job.canvas, natural, track.transform, preset.fixedSize->fills);
    engine::RunLayer layer{
        std::exchange(run.file, nullptr), std::exchange(run.stream, 0), {}, mapToCanvas(media, upright), 1};
    for (const auto& shown : run.pictures) layer.pictures.push_back(shown.picture);
    run.layers.push_back(std::move(layer));
  }
  return planned;
}

}  // namespace clipworks
