#include <cstdlib>

#include "ExportTesting.h"

namespace clipworks::test {
namespace {

void expectTwiceTheSame(const fs::path& clip) {
  const bool isHEVC = assetAt(clip)->tracks(AVMediaTypeVideo).front()->codecName() == "hevc";
  const Exported exported = exportAsset(loopOf(clip, 2), isHEVC ? toHEVC : toH264);
  EXPECT_EQ(exported.output.warnings(), "");
  const auto hashes = exported.output.pictureHashes();
  ASSERT_EQ(hashes.size() % 2, 0U);
  const auto half = hashes.begin() + static_cast<std::ptrdiff_t>(hashes.size() / 2);
  EXPECT_TRUE(std::equal(hashes.begin(), half, half)) << "the second time differs from the first";
  if (exported.tracks.front().copied) {
    const auto source = MediaJudge(clip).pictureHashes();
    ASSERT_GE(source.size(), hashes.size() / 2);
    EXPECT_TRUE(std::equal(hashes.begin(), half, source.begin())) << "copied pictures differ from the source's";
  }
}

void expectSoundInPlaceAroundAStretch(const fs::path& clip) {
  const auto source = assetAt(clip);
  const double length = source->duration().seconds();
  if (length < 1) return;
  const auto composition = AVMutableComposition::make();
  const auto track = composition->addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
  const auto sound = source->tracks(AVMediaTypeAudio).front();
  ASSERT_TRUE(track->insertTimeRange({kCMTimeZero, source->duration()}, sound, kCMTimeZero));
  // Compared with our own reading of it: players differ in what they make of recorders' uneven times.
  const auto plain = exportAsset(composition, toLow);
  const double from = 0.3 * length;
  const double to = 0.6 * length;
  track->scaleTimeRange(CMTimeRange::fromTo(CMTime(from, 48'000), CMTime(to, 48'000)), CMTime(2 * (to - from), 48'000));
  const auto stretched = exportAsset(composition, toLow);
  const Sound before = plain.output.sound();
  const Sound after = stretched.output.sound();
  const auto ahead = lagMilliseconds(before.part(0, from), after.part(0, from), 30);
  const auto behind = lagMilliseconds(before.part(to, length), after.part(2 * to - from, length + to - from), 30);
  EXPECT_NEAR(ahead.value_or(0), 0, 0.5) << "milliseconds; a clip may be silent there";
  EXPECT_NEAR(behind.value_or(0), 0, 0.5) << "milliseconds; a clip may be silent there";
}

// Clips with pictures and sound.
TEST(RealClips, PlayTwiceTheSameAndKeepTheirSoundInPlaceAroundAStretch) {
  const char* folder = std::getenv("CLIPWORKS_MEDIA");
  if (folder == nullptr) GTEST_SKIP() << "CLIPWORKS_MEDIA names no folder with clips";
  for (const auto& entry : fs::directory_iterator(folder)) {
    SCOPED_TRACE(entry.path().filename());
    const auto asset = assetAt(entry.path());
    if (asset->tracks(AVMediaTypeVideo).empty() || asset->tracks(AVMediaTypeAudio).empty()) continue;
    expectTwiceTheSame(entry.path());
    expectSoundInPlaceAroundAStretch(entry.path());
  }
}

}  // namespace
}  // namespace clipworks::test
