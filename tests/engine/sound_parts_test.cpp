#include <clipworks/engine/pipeline/SoundParts.h>

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

#include <clipworks/engine/pipeline/SoundMixer.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::engine {
namespace {

constexpr int rate = 48'000;
constexpr int packetSamples = 1024;

class SoundParts : public testing::Test {
 protected:
  /// A minute and a half of sound in `name`, seconds 10 to 12 of it at half speed.
  [[nodiscard]] SoundJob job(const std::string& name, int fileRate) const {
    const auto file = directory_.file(name);
    const auto made =
        test::runProgram({"ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                          "aevalsrc=0.3*sin(2*PI*t*(300+20*t)):d=90:s=" + std::to_string(fileRate), file.string()});
    EXPECT_EQ(made.exitCode, 0) << made.standardError;
    SoundLane lane{MediaFile::open(file).value(), 0, {}, 1.0F};
    const auto at = [fileRate](int seconds) { return static_cast<std::int64_t>(seconds) * fileRate; };
    lane.pieces = {{0, at(10), 0, at(10)}, {at(10), at(2), at(10), at(4)}, {at(12), at(78), at(14), at(78)}};
    return {{rate, 1, 96'000}, static_cast<std::int64_t>(92) * rate, {lane}, false, false};
  }

  test::TemporaryDirectory directory_;
};

std::vector<float> mixed(const SoundJob& job, std::int64_t from, std::int64_t to) {
  auto mixer = SoundMixer::open(job, from).value();
  std::vector<float> all;
  for (std::vector<float> samples; from < to; from += packetSamples) {
    EXPECT_TRUE(mixer.next(packetSamples, samples));
    all.insert(all.end(), samples.begin(), samples.end());
  }
  return all;
}

TEST_F(SoundParts, BehindAStretchSoundAsIfMixedInOneGo) {
  auto steady = job("steady.mp4", rate);
  auto backwards = job("without_index.mka", rate);
  backwards.lanes.front().mirror = static_cast<std::int64_t>(90) * rate;
  for (const SoundJob& stretched : {steady, backwards}) {
    SCOPED_TRACE(stretched.lanes.front().file->name());
    const auto parts = soundParts(stretched).value();
    ASSERT_EQ(parts.size(), 2U);
    EXPECT_EQ(parts[0].end, parts[1].first);
    const std::int64_t start = ParallelSoundEncoding::firstPacket(parts[1].first) * packetSamples;
    EXPECT_GE(start, 14 * rate);
    const auto whole = mixed(stretched, 0, start + 10 * rate);
    const auto part = mixed(stretched, start, start + 10 * rate);
    float most = 0;
    for (std::size_t i = 0; i < part.size(); ++i) {
      most = std::max(most, std::abs(part[i] - whole[static_cast<std::size_t>(start) + i]));
    }
    EXPECT_LT(most, 1e-5) << "more than the noise that an AAC decoder fills in, which differs after a jump";
  }
}

TEST_F(SoundParts, IsOneWhereWhatFollowsNeedsWhatCameBefore) {
  auto limited = job("limited.mp4", rate);
  limited.limited = true;
  EXPECT_EQ(soundParts(limited).value().size(), 1U);
  EXPECT_EQ(soundParts(job("converted.mp4", 44'100)).value().size(), 1U);
  EXPECT_EQ(soundParts(job("without_index.mka", rate)).value().size(), 1U);
}

}  // namespace
}  // namespace clipworks::engine
