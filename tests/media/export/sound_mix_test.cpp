#include <clipworks/media/composition/AVMutableAudioMix.h>

#include "ExportTesting.h"

namespace clipworks::test {
namespace {

using Entries = std::vector<std::shared_ptr<AVMutableAudioMixInputParameters>>;

const ClipOptions video = small({.frames = 90});

/// A clip with sound only.
BarCodeClip piece(double seconds, int sampleRate = 44'100, int channels = 1) {
  ClipOptions options{.frames = 0, .audioCodec = "pcm_s16le", .sampleRate = sampleRate, .channels = channels};
  options.audioSeconds = seconds;
  options.extension = ".mov";
  return BarCodeClip(options);
}

/// Adds the sound of `clip` at `start` on a track of its own, and its volume to `entries`.
void addPiece(AVMutableComposition& composition, const BarCodeClip& clip, double start, float volume,
              Entries& entries) {
  const auto source = assetAt(clip.path())->tracks(AVMediaTypeAudio).front();
  const auto track = composition.addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
  ASSERT_TRUE(track->insertTimeRange({kCMTimeZero, CMTime(clip.audioEnd(), 44'100)}, source, CMTime(start, 44'100)));
  entries.push_back(AVMutableAudioMixInputParameters::make(source));
  entries.back()->setVolume(volume, kCMTimeZero);
  entries.back()->setTrackID(track->trackID());
}

std::shared_ptr<AVMutableAudioMixInputParameters> entryFor(const AVMutableComposition& composition, float volume) {
  const auto parameters = AVMutableAudioMixInputParameters::make(composition.tracks(AVMediaTypeAudio).front());
  parameters->setVolume(volume, kCMTimeZero);
  return parameters;
}

std::function<void(Session&)> mixOf(const Entries& entries) {
  const auto mix = AVMutableAudioMix::make();
  mix->setInputParameters(entries);
  return [mix](Session& session) { session.setAudioMix(mix); };
}

/// How loud the middle of `path` is, compared with the video.
double loudness(const fs::path& path) {
  const auto level = [](const fs::path& clip) { return MediaJudge(clip).sound(48'000).part(0.2, 2.8).level(); };
  return level(path) / level(BarCodeClip(video).path());
}

TEST(OneTrack, IsAsLoudAsAskedAndCopiedWhereUntouched) {
  for (const auto preset : {toH264, passedThrough}) {
    for (const float volume : {-1.0F, 1.0F, 0.5F, 0.0F, 2.0F}) {  // the first without a mix
      SCOPED_TRACE(volume);
      const auto composition = loopOf(BarCodeClip(video).path(), 1);
      const auto mix = mixOf({entryFor(*composition, volume), nullptr});
      const auto exported = exportAsset(composition, preset, volume < 0 ? [](Session&) {} : mix);
      EXPECT_EQ(exported.tracks[1].copied, std::abs(volume) == 1);
      EXPECT_TRUE(exported.tracks[0].copied);
      EXPECT_NEAR(loudness(exported.path), std::abs(volume), 0.01 * std::max(1.0F, volume));
    }
  }
}

TEST(SoundMix, LimitsWhatAVolumeTakesPastFullScale) {
  const auto composition = loopOf(BarCodeClip(video).path(), 1);
  const auto exported = exportAsset(composition, toH264, mixOf({entryFor(*composition, 20.0F)}));
  const Sound part = exported.output.sound(48'000).part(0.5, 2.5);
  const auto inRange =
      std::count_if(part.samples.begin(), part.samples.end(), [](float s) { return std::fabs(s) > 0.99F; });
  // A limited tone still is one: it touches full scale, where a clipped one, at 20 times its level, would stay there.
  EXPECT_LT(static_cast<double>(inRange) / static_cast<double>(part.samples.size()), 0.25);
  EXPECT_GT(part.level(), 0.5);
}

TEST(SoundMix, PlacesPiecesToTheSampleAndKeepsThemBeyondThePictures) {
  const auto composition = loopOf(BarCodeClip(video).path(), 1);
  Entries entries{entryFor(*composition, 0.0F)};
  addPiece(*composition, piece(1.5), 0.77, 1.0F, entries);
  addPiece(*composition, piece(2, 16'000), 2.55, 0.5F, entries);
  const auto exported = exportAsset(composition, toH264, mixOf(entries));
  EXPECT_NEAR(exported.output.stream("video").duration, 3, 0.001);
  const Sound sound = exported.output.sound(48'000);
  EXPECT_NEAR(sound.seconds(), 4.55, 0.0222);
  EXPECT_LT(sound.part(0, 0.75).level(), 0.001) << "the video's own sound is off";
  const Sound tone = makeTone(48'000, 0, 2);
  EXPECT_NEAR(lagOf(tone.part(0, 1.5), sound.part(0.77, 2.27), 5), 0, 0.03);
  EXPECT_NEAR(lagOf(tone.part(0, 1.9), sound.part(2.55, 4.45), 5), 0, 0.05);
  EXPECT_NEAR(sound.part(2.7, 4.4).level() / sound.part(0.9, 2.2).level(), 0.5, 0.02);
}

TEST(SoundMix, AddsTracksUpAtTheirVolumes) {
  // The same sound on two tracks: levels add up as amplitudes.
  const auto composition = loopOf(BarCodeClip(video).path(), 1);
  Entries entries{entryFor(*composition, 0.25F)};
  addPiece(*composition, piece(3, 48'000, 2), 0, 0.5F, entries);
  const auto mixed = exportAsset(composition, toH264, mixOf(entries));
  EXPECT_NEAR(loudness(mixed.path), 0.75, 0.01);
  const auto withoutMix = exportAsset(composition, passedThrough);
  EXPECT_EQ(withoutMix.tracks.at(1).encoder, "aac");
  EXPECT_NEAR(loudness(withoutMix.path), 2, 0.02);
}

TEST(WrongMix, FailsTheExportWithASentence) {
  const std::tuple<float, CMTime, const char*> cases[] = {
      {-0.5F, kCMTimeZero, "must be from 0 to 1000, not -0.5"},
      {std::numeric_limits<float>::quiet_NaN(), kCMTimeZero, "not nan"},
      {1001.0F, kCMTimeZero, "not 1001.0"},
      {0.5F, CMTime(1, 1), "volumes that change"},
  };
  for (const auto& [volume, from, words] : cases) {
    const auto composition = loopOf(BarCodeClip(video).path(), 1);
    const auto entry = entryFor(*composition, 1);
    entry->setVolume(volume, from);
    const auto exported = tryToExport(composition, toH264, mixOf({entry}));
    EXPECT_EQ(exported.status, Status::failed) << words;
    EXPECT_THAT(exported.failure, testing::HasSubstr(words));
  }
}

}  // namespace
}  // namespace clipworks::test
