#include <cmath>
#include <cstdint>
#include <ostream>
#include <random>

#include <gtest/gtest.h>

#include "FakeTrack.h"

namespace clipworks::test {
namespace {

using Seconds = long double;  // 64 bits of fraction: finer than any time scale of 31 bits over minutes

Seconds toSeconds(const CMTime& t) { return static_cast<Seconds>(t.value) / t.timescale; }

/// What is presented at an instant: an instant of a source, or a gap.
struct Shown {
  SegmentGap gap;
  const AVAssetTrack* source = nullptr;
  Seconds instant = 0;
};

/// Remembers the edits, and answers by walking back through them: no segments, no splitting.
class Journal {
 public:
  void insert(const CMTimeRange& range, const std::shared_ptr<FakeTrack>& source, const CMTime& at) {
    if (range.duration.value == 0) return;
    const Seconds start = toSeconds(at);
    if (start > length_) add({Kind::gap, length_, 0, start - length_, 0, nullptr});
    add({Kind::media, start, 0, toSeconds(range.duration), toSeconds(range.start), source});
  }
  void insertEmpty(const CMTimeRange& range) {
    if (range.duration.value == 0) return;
    const Seconds start = toSeconds(range.start);
    const Seconds filler = std::max<Seconds>(0, start - length_);
    const Seconds from = std::min(start, length_);
    add({Kind::gap, from, 0, filler + toSeconds(range.duration), 0, nullptr});
  }
  void remove(const CMTimeRange& range) { scaleClipped(range, 0); }
  void scale(const CMTimeRange& range, const CMTime& length) {
    if (length.value == 0) return scaleClipped(range, 0);
    const Seconds clipped = std::min(toSeconds(range.end()), length_) - toSeconds(range.start);
    if (clipped <= 0) return;
    const Seconds count = clipped / toSeconds(range.duration) * static_cast<Seconds>(length.value);
    scaleClipped(range, clipped == toSeconds(range.duration) ? toSeconds(length)
                                                             : std::floor(count + 0.5L + 1e-12L) / length.timescale);
  }

  [[nodiscard]] Seconds length() const { return length_; }

  [[nodiscard]] Shown at(Seconds t) const {
    for (auto edit = edits_.rbegin(); edit != edits_.rend(); ++edit) {
      if (t < edit->at) continue;
      if (t >= edit->at + edit->after) {
        t += edit->before - edit->after;
      } else if (edit->kind == Kind::scale) {
        t = edit->at + (t - edit->at) * edit->before / edit->after;
      } else if (edit->kind == Kind::gap) {
        return {SegmentGap::empty};
      } else {
        const Seconds instant = edit->sourceStart + t - edit->at;
        const bool isPadding = instant >= toSeconds(edit->source->timeRange().end());
        return isPadding ? Shown{SegmentGap::hold} : Shown{SegmentGap::none, edit->source.get(), instant};
      }
    }
    ADD_FAILURE() << "no edit made an instant";
    return {SegmentGap::none};
  }

 private:
  enum class Kind { media, gap, scale };
  /// From `at` on, `before` seconds became `after`.
  struct Entry {
    Kind kind;
    Seconds at;
    Seconds before;
    Seconds after;
    Seconds sourceStart;
    std::shared_ptr<FakeTrack> source;
  };

  void add(const Entry& entry) {
    length_ += entry.after - entry.before;
    edits_.push_back(entry);
  }
  void scaleClipped(const CMTimeRange& range, Seconds length) {
    const Seconds start = toSeconds(range.start);
    const Seconds clipped = std::min(toSeconds(range.end()), length_) - start;
    if (clipped > 0) add({Kind::scale, start, clipped, length, 0, nullptr});
  }

  Seconds length_ = 0;
  std::vector<Entry> edits_;
};

/// What a file's track presents at `t`, by looking at all its segments.
Shown shownByFile(const AVAssetTrack& track, Seconds t) {
  for (const AVAssetTrackSegment& segment : track.segments()) {
    const Seconds start = toSeconds(segment.target.start);
    const Seconds length = toSeconds(segment.target.duration);
    if (t < start || t >= start + length) continue;
    if (segment.isEmpty()) return {segment.gap};
    const Seconds rate = toSeconds(segment.source.duration) / length;
    return {SegmentGap::none, &track, toSeconds(segment.source.start) + (t - start) * rate};
  }
  return {SegmentGap::hold};
}

struct Regime {
  const char* name;
  std::vector<std::int32_t> timescales;
  Seconds tolerance;  // of instants, in seconds
  Seconds shortest;   // segments that are looked into
  friend void PrintTo(const Regime& regime, std::ostream* out) { *out << regime.name; }
};

class RandomEdits : public testing::TestWithParam<Regime> {
 protected:
  /// A number of 0 to `most`, the same on every machine.
  std::int64_t upTo(std::int64_t most) {
    return static_cast<std::int64_t>(random_() % static_cast<std::uint64_t>(most + 1));
  }
  /// Up to `most` seconds, at one of the time scales.
  CMTime time(std::int64_t most) {
    const auto& scales = GetParam().timescales;
    const std::int32_t scale = scales[static_cast<std::size_t>(upTo(static_cast<std::int64_t>(scales.size()) - 1))];
    return {upTo(most * scale), scale};
  }

  void edit(AVMutableCompositionTrack& track, Journal& journal) {
    const CMTimeRange range(time(10), time(6));
    switch (upTo(5)) {
      case 0:
        journal.insertEmpty(range);
        return track.insertEmptyTimeRange(range);
      case 1:
        journal.remove(range);
        return track.removeTimeRange(range);
      case 2: {
        // Rates of small numbers, so that exact instants stay exact; half the range may lie past the end.
        CMTime length = range.duration;
        const std::int64_t numerator = upTo(4);
        const std::int32_t denominator = static_cast<std::int32_t>(1 + upTo(1));
        if (length.timescale > kCMTimeMaxTimescale / 2) return;
        length = CMTime(length.value * numerator, length.timescale * denominator);
        isRetimed_ = true;
        journal.scale(range, length);
        return track.scaleTimeRange(range, length);
      }
      default: {
        const auto& source = sources_[static_cast<std::size_t>(upTo(1))];
        const CMTime at = time(12);
        journal.insert(range, source, at);
        EXPECT_TRUE(track.insertTimeRange(range, source, at).has_value());
      }
    }
  }

  /// Compares the middle and a quarter of each segment with what the journal says.
  template <class Segment, class Expected>
  void compare(const std::vector<Segment>& segments, Seconds length, Expected expected) {
    CMTime end = kCMTimeZero;
    for (const Segment& segment : segments) {
      ASSERT_EQ(segment.target.start, end) << "a hole or an overlap";
      ASSERT_GT(segment.target.duration, kCMTimeZero);
      end = segment.target.end();
      if (toSeconds(segment.target.duration) < GetParam().shortest) continue;
      for (const Seconds share : {0.25L, 0.5L}) {
        const Seconds t = toSeconds(segment.target.start) + share * toSeconds(segment.target.duration);
        const Shown shown = expected(t);
        ASSERT_EQ(segment.gap, shown.gap) << "at " << static_cast<double>(t);
        if (segment.isEmpty()) continue;
        const Seconds instant = toSeconds(segment.source.start) + share * toSeconds(segment.source.duration);
        ASSERT_LE(std::abs(instant - shown.instant), GetParam().tolerance) << "at " << static_cast<double>(t);
        ASSERT_EQ(mediaOf(segment), shown.source->media().get());
      }
    }
    ASSERT_LE(std::abs(toSeconds(end) - length), GetParam().tolerance);
  }

  static const MediaTrack* mediaOf(const AVCompositionTrackSegment& segment) {
    return segment.sourceTrack->media().get();
  }
  static const MediaTrack* mediaOf(const MediaSegment& segment) { return segment.mediaTrack.get(); }

  /// Without a re-timing, what comes from `media` is neither stretched nor shrunk, however times were rounded.
  template <class Segment>
  void expectNormalRates(const std::vector<Segment>& segments, const MediaTrack* media) {
    for (const Segment& segment : segments) {
      if (isRetimed_ || segment.isEmpty() || mediaOf(segment) != media) continue;
      ASSERT_EQ(text(segment.source.duration), text(segment.target.duration));
    }
  }

  void runSequence(std::uint64_t seed) {
    random_.seed(seed);
    AVMutableCompositionTrack track(AVMediaTypeVideo, 1);
    Journal journal;
    isRetimed_ = false;
    for (int i = 0; i < 12; ++i) edit(track, journal);
    compare(track.compositionSegments(), journal.length(), [&](Seconds t) { return journal.at(t); });
    const std::vector<MediaSegment> resolved = resolveToMedia(track);
    expectNormalRates(track.compositionSegments(), sources_[0]->media().get());
    expectNormalRates(resolved, sources_[0]->media().get());
    compare(resolved, journal.length(), [&](Seconds t) {
      const Shown shown = journal.at(t);
      return shown.source ? shownByFile(*shown.source, shown.instant) : shown;
    });
  }

 private:
  std::mt19937_64 random_;
  bool isRetimed_ = false;
  std::vector<std::shared_ptr<FakeTrack>> sources_ = {
      plainTrack("A", {299, 30}),
      std::make_shared<FakeTrack>("E", std::vector{gapAt(SegmentGap::empty, fromTo({0, 4}, {3, 4})),
                                                   mediaAt(seconds(4, 6), fromTo({3, 4}, {11, 4})),
                                                   mediaAt(seconds(7, 8), fromTo({11, 4}, {19, 4})),
                                                   mediaAt(seconds(9, 12), fromTo({19, 4}, {25, 4})),
                                                   gapAt(SegmentGap::hold, fromTo({25, 4}, {29, 4}))})};
};

TEST_P(RandomEdits, ShowWhatANaiveModelShows) {
  for (std::uint64_t seed = 1; seed <= 500; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    runSequence(seed);
    if (HasFatalFailure()) return;
  }
}

std::vector<Regime> timescales() {
  return {
      Regime{"scales that meet stay exact", {4, 30, 600, 1000}, 1e-14L, 1e-9L},
      Regime{"scales without a common multiple are off by less than a microsecond",
             {44'100, 90'000, 1'000'003, 999'999'937, 2'147'483'647},
             1e-6L,
             1e-4L},
  };
}

INSTANTIATE_TEST_SUITE_P(Timescales, RandomEdits, testing::ValuesIn(timescales()));

}  // namespace
}  // namespace clipworks::test
