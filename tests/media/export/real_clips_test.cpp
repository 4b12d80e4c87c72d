#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/media/asset/AVAsset.h>

#include <tests/media/export/ExportTesting.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;

/// Clips with pictures and sound in the folder that CLIPWORKS_MEDIA names; none without it.
std::vector<fs::path> realClips() {
  std::vector<fs::path> clips;
  const char* folder = std::getenv("CLIPWORKS_MEDIA");
  if (folder == nullptr) return clips;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    const auto asset = AVAsset::make(URL(entry.path()));
    if (!asset->tracks(AVMediaTypeVideo).empty() && !asset->tracks(AVMediaTypeAudio).empty())
      clips.push_back(entry.path());
  }
  std::sort(clips.begin(), clips.end());
  return clips;
}

TEST(RealClips, PlayTwiceTheSameAndWithoutAWarning) {
  const auto clips = realClips();
  if (clips.empty()) GTEST_SKIP() << "CLIPWORKS_MEDIA names no folder with clips";
  const TemporaryDirectory work;
  for (const auto& clip : clips) {
    SCOPED_TRACE(clip.filename().string());
    const bool isHEVC = AVAsset::make(URL(clip))->tracks(AVMediaTypeVideo).front()->codecName() == "hevc";
    const fs::path path = work.path() / (clip.filename().string() + ".mp4");
    const auto preset = isHEVC ? AVAssetExportPresetHEVCHighestQuality : AVAssetExportPresetHighestQuality;
    const Exported exported = exportAsset(loopOf(clip, 2), preset, path);
    ASSERT_EQ(exported.failure(), "");

    const MediaJudge judge(path);
    EXPECT_EQ(judge.warnings(), "");
    const auto hashes = judge.pictureHashes();
    ASSERT_EQ(hashes.size() % 2, 0U);
    const auto half = hashes.begin() + static_cast<std::ptrdiff_t>(hashes.size() / 2);
    EXPECT_TRUE(std::equal(hashes.begin(), half, half)) << "the second time differs from the first";
    if (exported.tracks.front().copied) {
      const auto source = MediaJudge(clip).pictureHashes();
      ASSERT_GE(source.size(), hashes.size() / 2);
      EXPECT_TRUE(std::equal(hashes.begin(), half, source.begin())) << "copied pictures differ from the source's";
    }
    fs::remove(path);
  }
}

TEST(RealClips, KeepTheirSoundInPlaceAroundAStretch) {
  const auto clips = realClips();
  if (clips.empty()) GTEST_SKIP() << "CLIPWORKS_MEDIA names no folder with clips";
  const TemporaryDirectory work;
  for (const auto& clip : clips) {
    SCOPED_TRACE(clip.filename().string());
    const auto source = AVAsset::make(URL(clip));
    const double length = source->duration().seconds();
    if (length < 1) continue;
    const auto composition = AVMutableComposition::make();
    const auto track = composition->addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
    ASSERT_TRUE(track->insertTimeRange(CMTimeRange(kCMTimeZero, source->duration()),
                                       source->tracks(AVMediaTypeAudio).front(), kCMTimeZero));
    // Compared with our own reading of it: players differ in what they make of recorders' uneven times.
    const fs::path plain = work.path() / "plain.mp4";
    const fs::path stretched = work.path() / "stretched.mp4";
    ASSERT_EQ(exportAsset(composition, AVAssetExportPresetLowQuality, plain).failure(), "");
    const double from = 0.3 * length;
    const double to = 0.6 * length;
    track->scaleTimeRange(CMTimeRange::fromTo(CMTime(from, 48'000), CMTime(to, 48'000)),
                          CMTime(2 * (to - from), 48'000));
    ASSERT_EQ(exportAsset(composition, AVAssetExportPresetLowQuality, stretched).failure(), "");
    const Sound before = MediaJudge(plain).sound();
    const Sound after = MediaJudge(stretched).sound();
    fs::remove(plain);
    fs::remove(stretched);
    const auto ahead = lagMilliseconds(before.part(0, from), after.part(0, from), 30);
    const auto behind = lagMilliseconds(before.part(to, length), after.part(2 * to - from, length + to - from), 30);
    EXPECT_NEAR(ahead.value_or(0), 0, 0.5) << "milliseconds; a clip may be silent there";
    EXPECT_NEAR(behind.value_or(0), 0, 0.5) << "milliseconds; a clip may be silent there";
  }
}

}  // namespace
}  // namespace clipworks::test
