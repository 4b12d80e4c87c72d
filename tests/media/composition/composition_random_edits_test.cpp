#include <cmath>
#include <random>

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
    if (start > length) add({length, 0, start - length});
    add({start, 0, toSeconds(range.duration), toSeconds(range.start), source});
  }
  void insertEmpty(const CMTimeRange& range) {
    if (range.duration.value == 0) return;
    const Seconds start = toSeconds(range.start);
    add({std::min(start, length), 0, std::max<Seconds>(0, start - length) + toSeconds(range.duration)});
  }
  void scale(const CMTimeRange& range, const CMTime& toLength) {
    const Seconds whole = toSeconds(range.duration);
    const Seconds clipped = std::min(toSeconds(range.end()), length) - toSeconds(range.start);
    if (clipped <= 0) return;
    const Seconds count = std::floor(clipped / whole * static_cast<Seconds>(toLength.value) + 0.5L + 1e-12L);
    add({toSeconds(range.start), clipped, clipped == whole ? toSeconds(toLength) : count / toLength.timescale});
  }

  [[nodiscard]] Shown at(Seconds t) const {
    for (auto edit = edits_.rbegin(); edit != edits_.rend(); ++edit) {
      if (t < edit->at) continue;
      if (t >= edit->at + edit->after) {
        t += edit->before - edit->after;
      } else if (edit->before > 0) {
        t = edit->at + (t - edit->at) * edit->before / edit->after;
      } else if (!edit->source) {
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

  Seconds length = 0;

 private:
  /// From `at` on, `before` seconds became `after`: re-timed ones, or none and so those of a source or a gap.
  struct Entry {
    Seconds at, before, after;
    Seconds sourceStart = 0;
    std::shared_ptr<FakeTrack> source = nullptr;
  };

  void add(const Entry& entry) {
    length += entry.after - entry.before;
    edits_.push_back(entry);
  }
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
    const auto kind = upTo(5);
    if (kind == 0) {
      journal.insertEmpty(range);
      track.insertEmptyTimeRange(range);
    } else if (kind == 1) {
      journal.scale(range, kCMTimeZero);
      track.removeTimeRange(range);
    } else if (kind == 2 && range.duration.timescale <= kCMTimeMaxTimescale / 2) {
      // Rates of small numbers, so that exact instants stay exact; half the range may lie past the end.
      const auto half = static_cast<std::int32_t>(1 + upTo(1));
      const CMTime length(range.duration.value * upTo(4), range.duration.timescale * half);
      isRetimed_ = true;
      journal.scale(range, length);
      track.scaleTimeRange(range, length);
    } else if (kind > 2) {
      const auto& source = sources_[static_cast<std::size_t>(upTo(1))];
      const CMTime at = time(12);
      journal.insert(range, source, at);
      EXPECT_TRUE(track.insertTimeRange(range, source, at).has_value());
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
      // Without a re-timing, what comes from a plain file is neither stretched nor shrunk, however times were rounded.
      if (!isRetimed_ && !segment.isEmpty() && mediaOf(segment) == sources_[0]->media().get()) {
        ASSERT_EQ(text(segment.source.duration), text(segment.target.duration));
      }
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

  void runSequence(std::uint64_t seed) {
    random_.seed(seed);
    AVMutableCompositionTrack track(AVMediaTypeVideo, 1);
    Journal journal;
    isRetimed_ = false;
    for (int i = 0; i < 12; ++i) edit(track, journal);
    compare(track.compositionSegments(), journal.length, [&](Seconds t) { return journal.at(t); });
    compare(resolveToMedia(track), journal.length, [&](Seconds t) {
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

INSTANTIATE_TEST_SUITE_P(Timescales, RandomEdits,
                         testing::Values(Regime{"scales that meet stay exact", {4, 30, 600, 1000}, 1e-14L, 1e-9L},
                                         Regime{"scales without a common multiple are off by less than a microsecond",
                                                {44'100, 90'000, 1'000'003, 999'999'937, 2'147'483'647},
                                                1e-6L,
                                                1e-4L}));

}  // namespace
}  // namespace clipworks::test
