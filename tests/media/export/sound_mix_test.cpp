#include <clipworks/media/composition/AVMutableAudioMix.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/media/export/ExportTesting.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

using testing::HasSubstr;

BarCodeClip video() { return BarCodeClip({.width = 160, .height = 90, .frames = 90}); }

/// A clip with sound only.
BarCodeClip piece(double seconds, int sampleRate = 44'100, int channels = 1) {
  return BarCodeClip({.frames = 0,
                      .audioCodec = "pcm_s16le",
                      .sampleRate = sampleRate,
                      .channels = channels,
                      .audioSeconds = seconds,
                      .extension = ".mov"});
}

/// Adds the sound of `clip` at `start` on a track of its own, and its volume to `entries`.
void addPiece(AVMutableComposition& composition, const BarCodeClip& clip, double start, float volume,
              std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>>& entries) {
  const auto source = AVAsset::make(URL(clip.path()))->tracks(AVMediaTypeAudio).front();
  const auto track = composition.addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
  ASSERT_TRUE(
      track->insertTimeRange(CMTimeRange(kCMTimeZero, CMTime(clip.audioEnd(), 44'100)), source, CMTime(start, 44'100)));
  const auto parameters = AVMutableAudioMixInputParameters::make(source);
  parameters->setVolume(volume, kCMTimeZero);
  parameters->setTrackID(track->trackID());
  entries.push_back(parameters);
}

std::shared_ptr<AVMutableAudioMix> mixOf(std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>> entries) {
  const auto mix = AVMutableAudioMix::make();
  mix->setInputParameters(std::move(entries));
  return mix;
}

std::shared_ptr<AVMutableAudioMixInputParameters> entryFor(const AVMutableComposition& composition, float volume) {
  const auto parameters = AVMutableAudioMixInputParameters::make(composition.tracks(AVMediaTypeAudio).front());
  parameters->setVolume(volume, kCMTimeZero);
  return parameters;
}

struct SoundExport {
  Exported exported;
  Sound sound;
  double videoEnd = 0;
};

SoundExport exportMix(const std::shared_ptr<AVMutableComposition>& composition,
                      const std::shared_ptr<AVMutableAudioMix>& mix,
                      std::string_view preset = AVAssetExportPresetHighestQuality) {
  const TemporaryDirectory directory;
  const auto output = directory.path() / "mixed.mp4";
  SoundExport result;
  result.exported =
      exportAsset(composition, preset, output, [&](AVAssetExportSession& session) { session.setAudioMix(mix); });
  if (!result.exported.failure().empty()) return result;
  result.sound = MediaJudge(output).sound(48'000);
  result.videoEnd = MediaJudge(output).stream("video").duration;
  return result;
}

struct VolumeCase {
  std::string name;
  std::optional<float> volume;  ///< nothing: no mix at all
  double factor;
  bool copied;
  std::string_view preset = AVAssetExportPresetHighestQuality;

  friend std::ostream& operator<<(std::ostream& out, const VolumeCase& c) { return out << c.name; }
};

class OneTrack : public testing::TestWithParam<VolumeCase> {};

TEST_P(OneTrack, IsAsLoudAsAskedAndCopiedWhereUntouched) {
  const auto& test = GetParam();
  const auto composition = loopOf(video().path(), 1);
  const auto mix = test.volume ? mixOf({entryFor(*composition, *test.volume), nullptr}) : nullptr;
  const auto result = exportMix(composition, mix, test.preset);
  ASSERT_EQ(result.exported.failure(), "");
  EXPECT_EQ(result.exported.tracks[1].copied, test.copied);
  EXPECT_TRUE(result.exported.tracks[0].copied);
  EXPECT_NEAR(result.sound.part(0.2, 2.8).level() / MediaJudge(video().path()).sound(48'000).part(0.2, 2.8).level(),
              test.factor, 0.01 * std::max(1.0, test.factor));
}

INSTANTIATE_TEST_SUITE_P(
    Volumes, OneTrack,
    testing::Values(VolumeCase{"no_mix", std::nullopt, 1, true}, VolumeCase{"one", 1.0F, 1, true},
                    VolumeCase{"half", 0.5F, 0.5, false}, VolumeCase{"none", 0.0F, 0, false},
                    VolumeCase{"double", 2.0F, 2, false},
                    VolumeCase{"one_passed_through", 1.0F, 1, true, AVAssetExportPresetPassthrough},
                    VolumeCase{"half_passed_through", 0.5F, 0.5, false, AVAssetExportPresetPassthrough}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(SoundMix, LimitsWhatAVolumeTakesPastFullScale) {
  const auto composition = loopOf(video().path(), 1);
  const auto result = exportMix(composition, mixOf({entryFor(*composition, 20.0F)}));
  ASSERT_EQ(result.exported.failure(), "");
  const auto part = result.sound.part(0.5, 2.5);
  const auto inRange =
      std::count_if(part.samples.begin(), part.samples.end(), [](float s) { return std::fabs(s) > 0.99F; });
  // A limited tone still is one: it touches full scale, where a clipped one, at 20 times its level, would stay there.
  EXPECT_LT(static_cast<double>(inRange) / static_cast<double>(part.samples.size()), 0.25);
  EXPECT_GT(part.level(), 0.5);
}

TEST(SoundMix, PlacesPiecesToTheSampleAndKeepsThemBeyondThePictures) {
  const auto clip = video();
  const auto composition = loopOf(clip.path(), 1);
  std::vector entries{entryFor(*composition, 0.0F)};
  addPiece(*composition, piece(1.5), 0.77, 1.0F, entries);
  addPiece(*composition, piece(2, 16'000), 2.55, 0.5F, entries);
  const auto result = exportMix(composition, mixOf(entries));
  ASSERT_EQ(result.exported.failure(), "");
  EXPECT_NEAR(result.videoEnd, 3, 0.001);
  EXPECT_NEAR(result.sound.seconds(), 4.55, 0.0222);
  EXPECT_LT(result.sound.part(0, 0.75).level(), 0.001) << "the video's own sound is off";

  const Sound tone = makeTone(48'000, 0, 2);
  const auto first = lagMilliseconds(tone.part(0, 1.5), result.sound.part(0.77, 2.27), 5);
  ASSERT_TRUE(first);
  EXPECT_NEAR(*first, 0, 0.03);
  const auto second = lagMilliseconds(tone.part(0, 1.9), result.sound.part(2.55, 4.45), 5);
  ASSERT_TRUE(second);
  EXPECT_NEAR(*second, 0, 0.05);
  EXPECT_NEAR(result.sound.part(2.7, 4.4).level() / result.sound.part(0.9, 2.2).level(), 0.5, 0.02);
}

TEST(SoundMix, AddsTracksUpAtTheirVolumes) {
  // The same sound on two tracks: levels add up as amplitudes.
  const auto composition = loopOf(video().path(), 1);
  std::vector entries{entryFor(*composition, 0.25F)};
  addPiece(*composition, piece(3, 48'000, 2), 0, 0.5F, entries);
  const auto result = exportMix(composition, mixOf(entries));
  ASSERT_EQ(result.exported.failure(), "");
  const Sound alone = MediaJudge(video().path()).sound(48'000);
  EXPECT_NEAR(result.sound.part(0.2, 2.8).level() / alone.part(0.2, 2.8).level(), 0.75, 0.01);
}

struct WrongCase {
  std::string name;
  float volume;
  CMTime at;
  std::string sentence;

  friend std::ostream& operator<<(std::ostream& out, const WrongCase& c) { return out << c.name; }
};

class WrongMix : public testing::TestWithParam<WrongCase> {};

TEST_P(WrongMix, FailsTheExportWithASentence) {
  const auto composition = loopOf(video().path(), 1);
  const auto entry = entryFor(*composition, 1);
  entry->setVolume(GetParam().volume, GetParam().at);
  const auto result = exportMix(composition, mixOf({entry}));
  EXPECT_EQ(result.exported.status, AVAssetExportSessionStatus::failed);
  EXPECT_THAT(result.exported.failure(), HasSubstr(GetParam().sentence));
}

INSTANTIATE_TEST_SUITE_P(Volumes, WrongMix,
                         testing::Values(WrongCase{"negative", -0.5F, kCMTimeZero, "must be from 0 to 1000, not -0.5"},
                                         WrongCase{"not_a_number", std::numeric_limits<float>::quiet_NaN(), kCMTimeZero,
                                                   "not nan"},
                                         WrongCase{"too_loud", 1001.0F, kCMTimeZero, "not 1001.0"},
                                         WrongCase{"later", 0.5F, CMTime(1, 1), "volumes that change"}),
                         [](const auto& testCase) { return testCase.param.name; });

}  // namespace
}  // namespace clipworks::test
