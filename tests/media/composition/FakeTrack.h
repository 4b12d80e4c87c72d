#pragma once

#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/media/composition/AVMutableCompositionTrack.h>
#include <clipworks/media/composition/SegmentMapping.h>

namespace clipworks::test {

/// A file's track without a file: a name, and segments on a media of that name.
class FakeTrack final : public AVAssetTrack {
 public:
  FakeTrack(const std::string& name, std::vector<AVAssetTrackSegment> segments, AVMediaType type = AVMediaTypeVideo)
      : name_(std::make_shared<const std::string>(name)), segments_(std::move(segments)), mediaType_(type) {}

  [[nodiscard]] const std::string& name() const { return *name_; }
  /// Of the fake that this media belongs to.
  static const std::string& nameOf(const MediaTrack& media) { return *reinterpret_cast<const std::string*>(&media); }

  [[nodiscard]] AVMediaType mediaType() const override { return mediaType_; }
  [[nodiscard]] CMPersistentTrackID trackID() const override { return 1; }
  [[nodiscard]] CMTimeRange timeRange() const override {
    return {kCMTimeZero, segments_.empty() ? kCMTimeZero : segments_.back().target.end()};
  }
  [[nodiscard]] CGSize naturalSize() const override { return {1920, 1080}; }
  [[nodiscard]] CGAffineTransform preferredTransform() const override { return {0, 1, -1, 0, 1080, 0}; }
  [[nodiscard]] float nominalFrameRate() const override { return 30; }
  [[nodiscard]] float estimatedDataRate() const override { return 8e6F; }
  [[nodiscard]] std::int32_t naturalTimeScale() const override { return 15'360; }
  [[nodiscard]] std::vector<AVAssetTrackSegment> segments() const override { return segments_; }
  [[nodiscard]] std::string codecName() const override { return "h264"; }
  [[nodiscard]] int channelCount() const override { return 2; }
  [[nodiscard]] double sampleRate() const override { return 48'000; }
  /// Never looked into: only its address and its owner count.
  [[nodiscard]] std::shared_ptr<const MediaTrack> media() const override {
    return {name_, reinterpret_cast<const MediaTrack*>(name_.get())};
  }

 private:
  std::shared_ptr<const std::string> name_;
  std::vector<AVAssetTrackSegment> segments_;
  AVMediaType mediaType_;
};

inline CMTimeRange fromTo(const CMTime& start, const CMTime& end) { return CMTimeRange::fromTo(start, end); }

/// `start` to `end` in whole seconds.
inline CMTimeRange seconds(std::int64_t start, std::int64_t end) { return fromTo(CMTime(start, 1), CMTime(end, 1)); }

inline AVAssetTrackSegment mediaAt(const CMTimeRange& source, const CMTimeRange& target) {
  return {source, target, SegmentGap::none};
}

inline AVAssetTrackSegment gapAt(SegmentGap kind, const CMTimeRange& target) { return {CMTimeRange(), target, kind}; }

/// A whole track from zero, as most files have it.
inline std::shared_ptr<FakeTrack> plainTrack(const std::string& name, const CMTime& length) {
  const CMTimeRange all(kCMTimeZero, length);
  return std::make_shared<FakeTrack>(name, std::vector{mediaAt(all, all)});
}

/// In lowest terms: "5/2", "3"; "~" before what was rounded.
inline std::string text(const CMTime& t) {
  if (t.isPositiveInfinity()) return "+inf";
  if (t.isNegativeInfinity()) return "-inf";
  if (!t.isNumeric() || t.timescale <= 0) return "invalid";
  const std::int64_t divisor = std::gcd(t.value, std::int64_t{t.timescale});
  const std::string number = (t.wasRounded() ? "~" : "") + std::to_string(t.value / divisor);
  return t.timescale == divisor ? number : number + "/" + std::to_string(t.timescale / divisor);
}

inline std::string text(const CMTimeRange& range) { return text(range.start) + ".." + text(range.end()); }

inline std::string sourceOf(const AVAssetTrackSegment&) { return "media"; }
inline std::string sourceOf(const MediaSegment& segment) {
  return segment.mediaTrack ? FakeTrack::nameOf(*segment.mediaTrack) : "nothing";
}
inline std::string sourceOf(const AVCompositionTrackSegment& segment) {
  const auto* fake = dynamic_cast<const FakeTrack*>(segment.sourceTrack.get());
  return fake ? fake->name() : segment.sourceTrack ? "composition" : "nothing";
}

/// One line for each segment: "A 0..5/2 at 3..11/2", "hold at 11/2..6".
template <class Segment>
std::vector<std::string> lines(const std::vector<Segment>& segments) {
  std::vector<std::string> all;
  for (const Segment& segment : segments) {
    const std::string media = sourceOf(segment) + " " + text(segment.source);
    const std::string what = segment.gap == SegmentGap::none   ? media
                             : segment.gap == SegmentGap::hold ? "hold"
                                                               : "empty";
    all.push_back(what + " at " + text(segment.target));
  }
  return all;
}

using Track = AVMutableCompositionTrack;

/// One edit of a composition's track.
using Edit = std::function<void(Track&)>;

inline Edit insert(std::shared_ptr<const AVAssetTrack> of, const CMTimeRange& range, const CMTime& at) {
  return [=](Track& track) { EXPECT_TRUE(track.insertTimeRange(range, of, at).has_value()); };
}
inline Edit insertEmpty(const CMTimeRange& range) {
  return [=](Track& track) { track.insertEmptyTimeRange(range); };
}
inline Edit remove(const CMTimeRange& range) {
  return [=](Track& track) { track.removeTimeRange(range); };
}
inline Edit scale(const CMTimeRange& range, const CMTime& toDuration) {
  return [=](Track& track) { track.scaleTimeRange(range, toDuration); };
}

inline std::shared_ptr<Track> edited(const std::vector<Edit>& edits) {
  auto track = std::make_shared<Track>(AVMediaTypeVideo, 7);
  for (const Edit& edit : edits) edit(*track);
  return track;
}

}  // namespace clipworks::test
