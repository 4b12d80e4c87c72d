#include <clipworks/engine/pipeline/SoundParts.h>

#include <clipworks/engine/pipeline/SoundMixer.h>
#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

constexpr int rate = 48'000;
constexpr int packetSamples = 1024;

/// A minute and a half of sound in a file of that name, seconds 10 to 12 of it at half speed.
SoundJob jobOf(const std::string& name, std::int64_t fileRate = rate) {
  static const test::TemporaryDirectory directory;
  const auto source = "aevalsrc=0.3*sin(2*PI*t*(300+20*t)):d=90:s=" + std::to_string(fileRate);
  runFFmpeg({"-f", "lavfi", "-i", source, directory.file(name)});
  SoundLane lane{must(MediaFile::open(directory.file(name))), 0, {}, 1.0F};
  lane.pieces = {{0, 10 * fileRate, 0, 10 * fileRate},
                 {10 * fileRate, 2 * fileRate, 10 * fileRate, 4 * fileRate},
                 {12 * fileRate, 78 * fileRate, 14 * fileRate, 78 * fileRate}};
  return {{rate, 1, 96'000}, 92 * std::int64_t{rate}, {lane}, false, false};
}

std::vector<float> mixed(const SoundJob& job, std::int64_t from, std::int64_t to) {
  auto mixer = must(SoundMixer::open(job, from));
  std::vector<float> all;
  for (std::vector<float> samples; from < to; from += packetSamples) {
    must(mixer.next(packetSamples, samples));
    all.insert(all.end(), samples.begin(), samples.end());
  }
  return all;
}

TEST(SoundParts, BehindAStretchSoundAsIfMixedInOneGo) {
  auto backwards = jobOf("backwards.mka");
  backwards.lanes.front().mirror = 90 * std::int64_t{rate};
  for (const SoundJob& stretched : {jobOf("steady.mp4"), backwards}) {
    SCOPED_TRACE(stretched.lanes.front().file->name());
    const auto parts = must(soundParts(stretched));
    ASSERT_EQ(parts.size(), 2U);
    EXPECT_EQ(parts[0].end, parts[1].first);
    const std::int64_t start = ParallelSoundEncoding::firstPacket(parts[1].first) * packetSamples;
    EXPECT_GE(start, 14 * rate);
    const auto whole = mixed(stretched, 0, start + 10 * rate);
    const auto part = mixed(stretched, start, start + 10 * rate);
    // Less than the noise that an AAC decoder fills in, which differs after a jump.
    EXPECT_THAT(part, testing::Pointwise(testing::FloatNear(1e-5F), std::vector(whole.begin() + start, whole.end())));
  }
}

TEST(SoundParts, IsOneWhereWhatFollowsNeedsWhatCameBefore) {
  auto limited = jobOf("limited.mp4");
  limited.limited = true;
  for (const SoundJob& job : {limited, jobOf("converted.mp4", 44'100), jobOf("without_index.mka")})
    EXPECT_EQ(must(soundParts(job)).size(), 1U) << job.lanes.front().file->name();
}

}  // namespace
}  // namespace clipworks::engine
