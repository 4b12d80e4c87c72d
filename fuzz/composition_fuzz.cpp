#include <memory>
#include <vector>

#include <clipworks/media/asset/FileSegments.h>
#include <clipworks/media/composition/AVMutableCompositionTrack.h>
#include <clipworks/media/composition/SegmentMapping.h>
#include <fuzz/FuzzTimes.h>
#include <tests/media/composition/FakeTrack.h>

// Edit lists of hostile files as segments, and compositions that are edited with them in hostile ways: what comes out
// is without holes, and within the bounds that the headers promise.

namespace {

using namespace clipworks;
using fuzz::require;

FilePresentation takePresentation(fuzz::FuzzInput& input) {
  FilePresentation presentation;
  const int edits = input.between(0, 6);
  for (int i = 0; i < edits; ++i) {
    engine::MovieBoxes::Edit edit{};
    const bool isWild = input.between(0, 3) == 0;
    edit.duration = isWild ? input.take<std::uint64_t>() : input.take<std::uint16_t>();
    edit.mediaTime = isWild ? input.take<std::int64_t>() : input.take<std::int16_t>();
    edit.rate = input.between(0, 3) == 0 ? input.take<std::int32_t>() : 0x10000;
    presentation.edits.push_back(edit);
  }
  presentation.movieTimescale = input.between(0, 4) == 0 ? input.take<std::int32_t>() : 600;
  presentation.mediaTimescale = input.between(0, 4) == 0 ? input.take<std::int32_t>() : 48'000;
  presentation.mediaDuration = input.between(0, 4) == 0 ? input.take<std::int64_t>() : input.take<std::uint16_t>();
  presentation.encoderDelay = input.between(0, 4) == 0 ? input.take<std::int64_t>() : input.between(0, 2112);
  return presentation;
}

constexpr CMTime smallest{1, 1'000'000};  // below it, distances are what rounding takes

/// At one instant; where no time scale holds both exactly, within what rounding takes.
bool meet(const CMTime& end, const CMTime& start) {
  const CMTime distance = CMTimeAbsoluteValue(start - end);
  return end == start || ((end.wasRounded() || start.wasRounded()) && distance < smallest);
}

template <class Segment>
void checkChain(const std::vector<Segment>& segments) {
  CMTime end = kCMTimeZero;
  for (const auto& segment : segments) {
    require(segment.target.isValid() && segment.target.start.isNumeric() && segment.target.duration.isNumeric(),
            "targets are numbers");
    require(meet(end, segment.target.start), "each segment starts where the one before it ends");
    require(segment.target.duration >= kCMTimeZero, "no segment runs backwards");
    require(segment.isEmpty() || (segment.source.isValid() && segment.source.start.isNumeric()), "media have a source");
    end = segment.target.end();
  }
  const CMTime latest(std::int64_t{1} << 31, 1);
  require(end <= latest || (end.wasRounded() && end - latest < smallest), "no track is longer than 2^31 seconds");
}

void checkMapping(const AVAssetTrackSegment& segment, const CMTime& time) {
  const CMTime there = mapToTarget(segment, time);
  require(!there.isValid() || time.isNumeric(), "an instant comes from an instant");
  if (!there.isNumeric() || there.wasRounded()) return;
  const CMTime back = mapToSource(segment, there);
  require(!back.isNumeric() || back.wasRounded() || back == time, "an exact mapping can be undone");
}

void edit(AVMutableCompositionTrack& track, const std::shared_ptr<const AVAssetTrack>& of, fuzz::FuzzInput& input) {
  const CMTime before = track.timeRange().duration;
  switch (input.between(0, 3)) {
    case 0: {
      const CMTimeRange range = fuzz::takeRange(input);
      const auto count = track.compositionSegments().size();
      const bool isDone = track.insertTimeRange(range, of, fuzz::takeTime(input)).has_value();
      const CMTime after = track.timeRange().duration;
      require(isDone ? after >= before : after == before && track.compositionSegments().size() == count,
              "an insertion makes longer, or changes nothing");
      break;
    }
    case 1:
      track.insertEmptyTimeRange(fuzz::takeRange(input));
      require(track.timeRange().duration >= before, "a hole makes longer");
      break;
    case 2:
      track.removeTimeRange(fuzz::takeRange(input));
      require(track.timeRange().duration <= before, "a removal makes shorter");
      break;
    default: {
      const CMTimeRange range = fuzz::takeRange(input);
      track.scaleTimeRange(range, fuzz::takeTime(input));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::FuzzInput input(data, size);
  const auto fileSegments = segmentsFromEdits(takePresentation(input));
  checkChain(fileSegments);
  const auto file = std::make_shared<test::FakeTrack>("file", fileSegments);

  const auto inner = std::make_shared<AVMutableCompositionTrack>(AVMediaTypeVideo, 1);
  const auto outer = std::make_shared<AVMutableCompositionTrack>(AVMediaTypeVideo, 2);
  for (int edits = 0; edits < 24 && !input.isEmpty(); ++edits) {
    switch (input.between(0, 4)) {
      case 0:
      case 1:
        edit(*inner, file, input);
        break;
      case 2:
        edit(*outer, inner, input);
        break;
      default:
        edit(*outer, file, input);
    }
    checkChain(inner->compositionSegments());
    checkChain(outer->compositionSegments());
  }
  const auto media = resolveToMedia(*outer);
  checkChain(media);
  require(media.empty() || meet(media.back().target.end(), outer->timeRange().duration),
          "nothing is lost on the way to media");
  checkChain(sliceSegments(fileSegments, fuzz::takeRange(input), kCMTimeZero));
  for (const auto& segment : media) checkMapping(segment, fuzz::takeTime(input));
  return 0;
}
