#include <clipworks/engine/output/PcmMovieWriter.h>

#include <clipworks/media/asset/AVAsset.h>

#include <tests/engine/EngineTesting.h>
#include <tests/support/RecordedSound.h>
#include <tests/support/SmallFileSystem.h>

namespace clipworks::engine {
namespace {

/// `frames` frames that differ from each other and between channels.
std::vector<std::int16_t> ramp(std::int64_t frames, int channels) {
  std::vector<std::int16_t> samples;
  for (std::int64_t i = 0; i < frames * channels; ++i)
    samples.push_back(static_cast<std::int16_t>(i / channels * 7 + i % channels * 1000));
  return samples;
}

/// A movie of `frames` frames of `ramp`, for every reader.
void expectRamp(const std::filesystem::path& path, std::int64_t frames, const PcmFormat& format) {
  const auto asset = AVAsset::make(URL(path));
  EXPECT_EQ(asset->tracks().size(), frames == 0 ? 0U : 1U) << asset->loadError();
  if (frames == 0) return;
  EXPECT_EQ(asset->tracks(AVMediaTypeAudio).size(), 1U);
  EXPECT_EQ(asset->duration(), CMTime(frames, format.sampleRate));
  const test::MediaJudge judge(path);
  const auto sound = judge.stream("audio");
  EXPECT_EQ(std::tuple(sound.codec, sound.sampleRate, sound.channels),
            std::tuple("pcm_s16le", format.sampleRate, format.channels));
  EXPECT_EQ(judge.warnings(), "");
  EXPECT_EQ(test::recordedSamples(path), ramp(frames, 1));
}

TEST(PcmFile, HoldsEverySampleAndCanBeReadWhileItGrows) {
  // Frames that are handed over in pieces of so many.
  const std::tuple<const char*, PcmFormat, std::int64_t, std::int64_t> cases[] = {
      {"less than is stored at once", {44'100, 2}, 1'000, 100},
      {"stereo in pieces that divide nothing", {44'100, 2}, 100'001, 441},
      {"mono in one piece", {48'000, 1}, 72'123, 72'123},
      {"more than one chunk of the index", {44'100, 2}, 44'100 * 20, 44'100},
      {"a rate beyond 16 bits", {96'000, 2}, 100'000, 4'800}};
  for (const auto& [name, format, frames, piece] : cases) {
    SCOPED_TRACE(name);
    const test::TemporaryDirectory directory;
    const auto path = directory.file("sound.m4a");
    auto writer = must(PcmMovieWriter::create(path, format));
    const auto samples = ramp(frames, format.channels);
    const auto step = static_cast<std::size_t>(piece * format.channels);
    for (std::size_t at = 0; at < samples.size(); at += step)
      must(writer->write(std::span(samples).subspan(at, std::min(step, samples.size() - at))));
    EXPECT_EQ(writer->frames(), frames);
    // What a kill at this moment would leave, with part of a sample that had not reached its index.
    const auto killed = writeTo(directory.file("killed.m4a"), fileBytes(path) + "xyz");
    expectRamp(killed, frames - frames % ((format.sampleRate + 1) / 2), format);
    must(writer->finish());
    writer.reset();
    expectRamp(path, frames, format);
  }
}

TEST(PcmFile, OnADiskThatFillsUpKeepsWhatWasWritten) {
  const test::SmallFileSystem small(512);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  const auto path = small.path() / "sound.m4a";
  auto writer = must(PcmMovieWriter::create(path, {}));
  const auto halfSecond = ramp(22'050, 2);
  Expected<void> written;
  std::int64_t stored = 0;
  while (stored < 100 && (written = writer->write(halfSecond))) ++stored;
  ASSERT_FALSE(written);
  EXPECT_EQ(written.error().posixCode, ENOSPC) << written.error().sentence;
  EXPECT_FALSE(writer->finish());
  writer.reset();
  ASSERT_GT(stored, 0);
  EXPECT_EQ(AVAsset::make(URL(path))->duration(), CMTime(stored * 22'050, 44'100));
  EXPECT_EQ(test::recordedSamples(path).size(), static_cast<std::size_t>(stored * 22'050));
}

}  // namespace
}  // namespace clipworks::engine
