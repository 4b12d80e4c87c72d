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

}  // namespace
}  // namespace clipworks::test
