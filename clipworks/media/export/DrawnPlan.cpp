#include <clipworks/media/export/DrawnPlan.h>

#include <algorithm>
#include <array>
#include <utility>

#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/export/CopyPlan.h>
#include <clipworks/media/export/PicturePlan.h>
#include <clipworks/media/export/RenderPlan.h>
#include <clipworks/media/geometry/CGRect.h>

namespace clipworks {
namespace {

/// The pixels that are drawn: 4:2:0 has none between two chroma samples.
engine::Canvas canvasOf(const ExportPreset::FixedSize& size) {
  return {size.width + size.width % 2, size.height + size.height % 2};
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

CGRect boxOf(const CGSize& natural, const CGAffineTransform& turn) {
  std::array<CGPoint, 4> corners = {
      CGPoint{0, 0}, {natural.width, 0}, {0, natural.height}, {natural.width, natural.height}};
  for (auto& corner : corners) corner = CGPointApplyAffineTransform(corner, turn);
  const auto [left, right] = std::minmax({corners[0].x, corners[1].x, corners[2].x, corners[3].x});
  const auto [top, bottom] = std::minmax({corners[0].y, corners[1].y, corners[2].y, corners[3].y});
  return {{left, top}, {right - left, bottom - top}};
}

ExportTrack fitted(const ExportTrack& track, const ExportPreset::FixedSize& size) {
  ExportTrack onCanvas = track;
  onCanvas.canvas = canvasOf(size);
  for (auto& segment : onCanvas.segments) {
    if (segment.mediaTrack == nullptr) continue;
    const auto& facts = segment.mediaTrack->facts();
    segment.place =
        uprightOnto(*onCanvas.canvas, {facts.naturalWidth, facts.naturalHeight}, track.transform, size.fills);
  }
  return onCanvas;
}

namespace {

/// Has pictures of a run drawn as `place` says.
void drawRun(engine::PictureRun& run, const CGAffineTransform& place) {
  const MediaTrack media(run.file, run.stream);
  engine::RunLayer layer{
      std::exchange(run.file, nullptr), std::exchange(run.stream, 0), {}, mapToCanvas(media, place), 1};
  for (const auto& shown : run.pictures) layer.pictures.push_back(shown.picture);
  run.layers.push_back(std::move(layer));
}

}  // namespace

Result<std::optional<engine::PictureJob>, NSError> planDrawn(const ExportTrack& track, const ExportPreset& preset) {
  auto planned = layOutPictures(track);
  if (!planned) return failure(planned.error());
  if (!*planned) return std::nullopt;
  engine::PictureJob& job = (*planned)->job;
  chooseEncoding(job, preset);
  job.canvas = track.canvas;
  job.matrix.reset();
  job.encoder.pixelAspect = {1, 1};
  setEncodedSize(job, job.canvas->width, job.canvas->height, preset);
  for (std::size_t i = 0; i < job.runs.size(); ++i) {
    auto& run = job.runs[i];
    const CGAffineTransform place = (*planned)->places[i].value_or(CGAffineTransformIdentity);
    if (run.file != nullptr && place != CGAffineTransformIdentity) drawRun(run, place);
  }
  // What would be drawn as it is may be copied beside what is not.
  static_cast<void>(chooseCopies(job, preset));
  for (auto& run : job.runs) {
    if (run.file != nullptr && !run.copy) drawRun(run, CGAffineTransformIdentity);
  }
  return std::move(job);
}

}  // namespace clipworks
