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

/// Nothing for a map that leaves no area.
std::optional<CGAffineTransform> inverse(const CGAffineTransform& t) {
  const double area = t.a * t.d - t.b * t.c;
  if (area == 0) return std::nullopt;
  return CGAffineTransform{t.d / area,
                           -t.b / area,
                           -t.c / area,
                           t.a / area,
                           (t.c * t.ty - t.d * t.tx) / area,
                           (t.b * t.tx - t.a * t.ty) / area};
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

CGSize naturalSizeOf(const MediaTrack& media) { return {media.facts().naturalWidth, media.facts().naturalHeight}; }

CGAffineTransform seenOf(const MediaTrack& media, const CGAffineTransform& transform) {
  const CGPoint corner = boxOf(naturalSizeOf(media), transform).origin;
  return CGAffineTransformConcat(transform, {1, 0, 0, 1, -corner.x, -corner.y});
}

bool isShownAsRecorded(const MediaSegment& segment, const CGAffineTransform& transform, const CGSize& canvas) {
  const CGAffineTransform recorded = seenOf(*segment.mediaTrack, transform);
  return segment.place == recorded && boxOf(naturalSizeOf(*segment.mediaTrack), recorded).size == canvas;
}

ExportTrack fitted(const ExportTrack& track, const ExportPreset::FixedSize& size) {
  ExportTrack onCanvas = track;
  onCanvas.canvas = canvasOf(size);
  onCanvas.transform = CGAffineTransformIdentity;
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

/// A track that is turned by the header, on a canvas as the first of its media is recorded, where it shows that one
/// just so: pictures of its kind need not be drawn then. Nothing where it does not, or where they are recorded upright.
std::optional<ExportTrack> asRecorded(const ExportTrack& track) {
  const auto first = std::find_if(track.segments.begin(), track.segments.end(),
                                  [](const MediaSegment& segment) { return segment.mediaTrack != nullptr; });
  if (first == track.segments.end()) return std::nullopt;
  const CGAffineTransform turn = seenOf(*first->mediaTrack, track.transform);
  const auto back = inverse(turn);
  if (turn == CGAffineTransformIdentity || !back ||
      !isShownAsRecorded(*first, track.transform, CGSize(track.canvas->width, track.canvas->height)))
    return std::nullopt;
  ExportTrack recorded = track;
  const auto& facts = first->mediaTrack->facts();
  recorded.canvas = {static_cast<int>(facts.naturalWidth), static_cast<int>(facts.naturalHeight)};
  for (auto& segment : recorded.segments) {
    if (segment.mediaTrack == nullptr) continue;
    segment.place = segment.place == turn ? CGAffineTransformIdentity : CGAffineTransformConcat(*segment.place, *back);
  }
  return recorded;
}

/// Turned by the header as the track says, or not at all.
Result<std::optional<engine::PictureJob>, NSError> planOnCanvas(const ExportTrack& track, const ExportPreset& preset,
                                                                bool isTurnedByHeader) {
  auto planned = layOutPictures(track);
  if (!planned) return failure(planned.error());
  if (!*planned) return std::nullopt;
  engine::PictureJob& job = (*planned)->job;
  chooseEncoding(job, preset);
  job.canvas = track.canvas;
  if (!isTurnedByHeader) job.matrix.reset();
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

}  // namespace

Result<std::optional<engine::PictureJob>, NSError> planDrawn(const ExportTrack& track, const ExportPreset& preset) {
  if (const auto recorded = asRecorded(track)) {
    auto turned = planOnCanvas(*recorded, preset, true);
    if (!turned || !*turned || (*turned)->copiesAny()) return turned;
  }
  return planOnCanvas(track, preset, false);
}

}  // namespace clipworks
