#include "ExportTesting.h"

namespace clipworks::test {
namespace {

/// Five seconds, with movie times of 1/600 s; the stretch in the tests is neither on a picture nor on a group's start.
constexpr double stretchFrom = 1.21;
constexpr double stretchTo = 3.43;
constexpr double clipSeconds = 5;

const ClipOptions fiveSeconds =
    small({.frames = 150, .timescale = 600, .outputArguments = {"-movie_timescale", "600"}});

/// The whole clip with the stretch `ratio` times as long, in both tracks.
std::shared_ptr<AVMutableComposition> retimed(const BarCodeClip& clip, double ratio) {
  const auto composition = loopOf(clip.path(), 1);
  const auto range = CMTimeRange::fromTo(CMTime(stretchFrom, 600), CMTime(stretchTo, 600));
  for (const auto& track : composition->compositionTracks()) {
    track->scaleTimeRange(range, CMTime((stretchTo - stretchFrom) * ratio, 600));
  }
  return composition;
}

/// Where a second of the clip is presented; the stretch's new length is a whole count of the clip's 600ths.
double mapped(double seconds, double ratio) {
  const double length = std::round((stretchTo - stretchFrom) * ratio * 600) / 600;
  if (seconds <= stretchFrom) return seconds;
  if (seconds <= stretchTo) return stretchFrom + (seconds - stretchFrom) * length / (stretchTo - stretchFrom);
  return seconds - stretchTo + stretchFrom + length;
}

void expectTimeMap(double ratio, bool copied) {
  SCOPED_TRACE(ratio);
  const BarCodeClip clip(fiveSeconds);
  const auto exported = exportAsset(retimed(clip, ratio));
  ASSERT_EQ(exported.tracks.size(), 2U);
  EXPECT_EQ(exported.tracks[0].copied, copied) << exported.tracks[0].remark;

  expectDecodable(exported.output.codedSamples("video"));
  const auto pictures = exported.output.pictures();
  EXPECT_TRUE(!copied || pictures.size() == clip.times().size()) << pictures.size();
  int last = -1;
  for (const auto& picture : pictures) {
    ASSERT_GT(picture.number, last) << "at " << picture.seconds;
    last = picture.number;
    // Where the pace changes, a picture that was left out may come late, with the change.
    const double own = mapped(clip.times()[static_cast<std::size_t>(last)], ratio);
    const double change = mapped(stretchTo, ratio);
    const bool isLate = !copied && own < change && std::fabs(picture.seconds - change) < 0.002;
    EXPECT_NEAR(picture.seconds, isLate ? change : own, 0.002) << last;
  }
  for (std::size_t i = 120; i < pictures.size(); ++i) {
    EXPECT_GT(pictures[i].seconds - pictures[i - 120].seconds, 0.98) << "more than 120 pictures a second";
  }

  const double length = mapped(clipSeconds, ratio);
  EXPECT_NEAR(lengthOf(exported.path), length, 1.0 / 600);
  const Sound source = MediaJudge(clip.path()).sound(48'000);
  const Sound sound = exported.output.sound(48'000);
  EXPECT_NEAR(sound.seconds(), length, 0.0222) << "players give whole coded samples";
  EXPECT_NEAR(lagOf(source.part(0, stretchFrom), sound.part(0, stretchFrom)), 0, 0.1);
  const Sound after = sound.part(mapped(stretchTo, ratio), length);
  EXPECT_NEAR(lagOf(source.part(stretchTo, clipSeconds), after), 0, 0.1) << "after the stretch";
  // Within the stretch each second of the source keeps its pitch, where it is long enough to be heard.
  if (ratio < 0.5) return;
  for (const double second : {1.6, 2.5, 3.2}) {
    EXPECT_EQ(toneSecondAt(sound, mapped(second, ratio) - 0.02), static_cast<int>(second)) << second;
  }
}

TEST(RetimedExport, ShowsEachPictureAndPlaysTheSoundWhenTheTimeMapSays) {
  expectTimeMap(0.1, false);  // pictures are dropped, so they are encoded
  for (const double ratio : {0.25, 0.5, 1.0, 1.5, 2.0, 8.0}) expectTimeMap(ratio, true);
}

}  // namespace
}  // namespace clipworks::test
