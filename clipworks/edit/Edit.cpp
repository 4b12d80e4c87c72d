#include <clipworks/edit/Edit.h>

#include <algorithm>
#include <utility>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/export/DrawnPlan.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

void tellLeftOut(const Source& source, EditState& state) {
  for (const AVMediaType type : {AVMediaType::video, AVMediaType::audio}) {
    const std::size_t tracks = source.asset->AVAsset::tracks(type).size();
    const std::string kind = type == AVMediaType::video ? "pictures" : "sound";
    for (std::size_t i = 1; i < tracks; ++i) {
      state.leftOut.push_back({source.name() + ": track " + std::to_string(i + 1) + " of " + kind,
                               "only the first track of " + kind + " is used"});
    }
  }
  for (const auto& other : source.asset->otherTracks()) {
    if (other.isData) continue;  // the plan tells what becomes of it
    state.leftOut.push_back({source.name() + ": " + other.kind + (other.name.empty() ? "" : " \"" + other.name + "\""),
                             "edits keep pictures, sound, and the data tracks of MP4 and QuickTime files"});
  }
}

/// Where the last of the first tracks of each type ends.
CMTime endOfTracks(const Source& source) {
  CMTime end = kCMTimeZero;
  for (const AVMediaType type : {AVMediaType::video, AVMediaType::audio}) {
    const auto tracks = source.asset->AVAsset::tracks(type);
    if (!tracks.empty()) end = CMTimeMaximum(end, tracks.front()->timeRange().end());
  }
  return end;
}

}  // namespace

Result<std::shared_ptr<const Source>, Error> Source::open(const std::filesystem::path& path,
                                                          const InputLimits& limits) {
  auto asset = std::make_shared<const FileAsset>(URL(path), limits);
  if (const auto error = asset->openFailure()) return failure(fromEngine(*error));
  return std::make_shared<const Source>(Source{path, std::move(asset)});
}

std::optional<Stretches> firstTrack(const Source& source, AVMediaType type, const CMTime& length) {
  const auto tracks = source.asset->AVAsset::tracks(type);
  if (tracks.empty()) return std::nullopt;
  Stretches stretches;
  const CMTime end = stretches.fit(length);
  for (MediaSegment segment : resolveToMedia(*tracks.front())) {
    const CMTime start = stretches.end();
    if (start >= end) break;
    if (segment.target.end() > end) keepPart(segment, segment.target.start, end);
    const CMTime stop = CMTimeMinimum(stretches.fit(segment.target.end()), end);
    segment.target = CMTimeRange::fromTo(start, stop);
    stretches.insert({segment}, start, stop - start);
  }
  pad(stretches, length);
  return stretches;
}

void pad(Stretches& stretches, const CMTime& length) {
  const CMTime start = stretches.end();
  const CMTime end = stretches.fit(length);
  if (start < end) stretches.insert({Stretches::gap(SegmentGap::hold, end - start)}, start, end - start);
}

Result<void, Error> needPictures(const Edit& edit, const std::string& work) {
  if (edit.hasPictures()) return {};
  return failed(ErrorCode::noPictures, edit.name() + " has no video track; " + work + " needs one");
}

Result<void, Error> needSound(const Edit& edit, const std::string& work) {
  if (edit.hasSound()) return {};
  return failed(ErrorCode::noSound, edit.name() + " has no sound track; " + work + " needs one");
}

const MediaSegment* firstOfMedia(const Stretches& stretches) {
  const auto& segments = stretches.segments();
  const auto found = std::find_if(segments.begin(), segments.end(), [](const auto& s) { return s.mediaTrack; });
  return found == segments.end() ? nullptr : &*found;
}

void draw(EditState& state, const CGAffineTransform& map, const CGSize& size) {
  state.pictures->forEach([&](MediaSegment& segment) {
    if (segment.mediaTrack != nullptr)
      segment.place =
          CGAffineTransformConcat(segment.place.value_or(seenOf(*segment.mediaTrack, state.transform)), map);
  });
  state.canvas = size;
  // Turned all the way round, say: nothing needs to be drawn, unless that also makes clips look alike.
  const auto& segments = state.pictures->segments();
  const bool isAsRecorded = std::all_of(segments.begin(), segments.end(), [&](const MediaSegment& segment) {
    if (segment.mediaTrack == nullptr) return true;
    return segment.mediaTrack == firstOfMedia(*state.pictures)->mediaTrack &&
           isShownAsRecorded(segment, state.transform, size);
  });
  if (!isAsRecorded) return;
  state.canvas.reset();
  state.pictures->forEach([](MediaSegment& segment) { segment.place.reset(); });
}

Edit edited(EditState state) { return Edit(std::make_shared<const EditState>(std::move(state))); }

Result<Edit, Error> Edit::open(const std::filesystem::path& file, Extent extent, const InputLimits& limits) {
  auto source = Source::open(file, limits);
  if (!source) return failure(source.error());
  EditState state;
  state.sources.push_back(*source);
  state.length = extent == Extent::movie ? (*source)->asset->duration() : endOfTracks(**source);
  if (!(state.length > kCMTimeZero)) return failed(ErrorCode::damaged, (*source)->name() + " has no length");
  state.pictures = firstTrack(**source, AVMediaType::video, state.length);
  if (auto sound = firstTrack(**source, AVMediaType::audio, state.length)) {
    state.sounds.push_back({std::move(*sound), 1});
  }
  if (state.pictures) {
    state.transform = (*source)->asset->AVAsset::tracks(AVMediaType::video).front()->preferredTransform();
  }
  tellLeftOut(**source, state);
  return edited(std::move(state));
}

InputLimits Edit::limits() const { return state_->sources.front()->asset->limits(); }
CMTime Edit::duration() const { return state_->length; }
bool Edit::hasPictures() const { return state_->pictures && firstOfMedia(*state_->pictures) != nullptr; }
bool Edit::hasSound() const {
  return std::any_of(state_->sounds.begin(), state_->sounds.end(),
                     [](const Sound& sound) { return firstOfMedia(sound.stretches) != nullptr; });
}

CGSize Edit::size() const {
  if (state_->canvas) return *state_->canvas;
  if (!hasPictures()) return {};
  return boxOf(naturalSizeOf(*firstOfMedia(*state_->pictures)->mediaTrack), state_->transform).size;
}

std::string Edit::name() const { return state_->sources.front()->name(); }

}  // namespace clipworks
