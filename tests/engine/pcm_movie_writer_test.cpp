#include <clipworks/engine/output/PcmMovieWriter.h>

#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/media/asset/AVAsset.h>

#include <tests/support/MediaJudge.h>
#include <tests/support/RecordedSound.h>
#include <tests/support/SmallFileSystem.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using engine::PcmFormat;
using engine::PcmMovieWriter;

/// `frames` frames that differ from each other and between channels.
std::vector<std::int16_t> ramp(std::int64_t frames, int channels) {
  std::vector<std::int16_t> samples;
  for (std::int64_t i = 0; i < frames; ++i) {
    for (int c = 0; c < channels; ++c) samples.push_back(static_cast<std::int16_t>(i * 7 + c * 1000));
  }
  return samples;
}

std::vector<std::int16_t> firstChannel(const std::vector<std::int16_t>& samples, int channels) {
  std::vector<std::int16_t> first;
  for (std::size_t i = 0; i < samples.size(); i += static_cast<std::size_t>(channels)) first.push_back(samples[i]);
  return first;
}

struct WriteCase {
  std::string name;
  PcmFormat format;
  std::int64_t frames;
  /// Handed over in pieces of this many frames.
  std::int64_t piece;

  friend std::ostream& operator<<(std::ostream& out, const WriteCase& c) { return out << c.name; }
};

class PcmFile : public testing::TestWithParam<WriteCase> {
 protected:
  /// Writes the case's ramp and returns it.
  std::vector<std::int16_t> writeAll(PcmMovieWriter& writer) const {
    const auto samples = ramp(GetParam().frames, GetParam().format.channels);
    const auto step = static_cast<std::size_t>(GetParam().piece * GetParam().format.channels);
    for (std::size_t at = 0; at < samples.size(); at += step) {
      EXPECT_TRUE(writer.write(std::span(samples).subspan(at, std::min(step, samples.size() - at))));
    }
    return samples;
  }

  TemporaryDirectory directory_;
};

TEST_P(PcmFile, HoldsEverySampleForEveryReader) {
  const auto& [name, format, frames, piece] = GetParam();
  const fs::path path = directory_.file("sound.m4a");
  auto writer = PcmMovieWriter::create(path, format);
  ASSERT_TRUE(writer) << writer.error().sentence;
  const auto samples = writeAll(**writer);
  EXPECT_EQ((*writer)->frames(), frames);
  ASSERT_TRUE((*writer)->finish());
  writer->reset();

  const MediaJudge judge(path);
  EXPECT_EQ(judge.stream("audio").codec, "pcm_s16le");
  EXPECT_EQ(judge.stream("audio").sampleRate, format.sampleRate);
  EXPECT_EQ(judge.stream("audio").channels, format.channels);
  EXPECT_EQ(judge.warnings(), "");
  EXPECT_EQ(recordedSamples(path), firstChannel(samples, format.channels));
  const auto asset = AVAsset::make(URL(path));
  ASSERT_EQ(asset->tracks(AVMediaTypeAudio).size(), 1U) << asset->loadError();
  EXPECT_EQ(asset->duration(), CMTime(frames, format.sampleRate));
}

TEST_P(PcmFile, CanBeReadWhileItGrows) {
  const auto& [name, format, frames, piece] = GetParam();
  auto writer = PcmMovieWriter::create(directory_.file("sound.m4a"), format);
  ASSERT_TRUE(writer) << writer.error().sentence;
  auto samples = firstChannel(writeAll(**writer), format.channels);
  // What a kill at this moment would leave, with part of a sample that had not reached its index.
  const fs::path killed = directory_.file("killed.m4a");
  fs::copy_file(directory_.file("sound.m4a"), killed);
  std::ofstream(killed, std::ios::app | std::ios::binary) << "xyz";

  const std::int64_t stored = frames - frames % ((format.sampleRate + 1) / 2);
  samples.resize(static_cast<std::size_t>(stored));
  const auto asset = AVAsset::make(URL(killed));
  if (stored == 0) {
    EXPECT_TRUE(asset->tracks().empty());
    return;
  }
  EXPECT_EQ(asset->duration(), CMTime(stored, format.sampleRate)) << asset->loadError();
  EXPECT_EQ(asset->tracks(AVMediaTypeAudio).size(), 1U);
  EXPECT_EQ(recordedSamples(killed), samples);
  EXPECT_EQ(MediaJudge(killed).warnings(), "");
}

INSTANTIATE_TEST_SUITE_P(Lengths, PcmFile,
                         testing::Values(WriteCase{"less_than_is_stored_at_once", {44'100, 2}, 1'000, 100},
                                         WriteCase{"stereo_in_pieces_that_divide_nothing", {44'100, 2}, 100'001, 441},
                                         WriteCase{"mono_in_one_piece", {48'000, 1}, 72'123, 72'123},
                                         WriteCase{
                                             "more_than_one_chunk_of_the_index", {44'100, 2}, 44'100 * 20, 44'100},
                                         WriteCase{"a_rate_beyond_16_bits", {96'000, 2}, 100'000, 4'800}),
                         [](const auto& testCase) { return testCase.param.name; });

TEST(PcmFileFailure, ADiskThatFillsUpLeavesWhatWasWritten) {
  const SmallFileSystem small(512);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  const fs::path path = fs::path(small.path()) / "sound.m4a";
  auto writer = PcmMovieWriter::create(path, {});
  ASSERT_TRUE(writer) << writer.error().sentence;
  const auto halfSecond = ramp(22'050, 2);
  engine::Expected<void> written;
  std::int64_t stored = 0;
  while (stored < 100 && (written = (*writer)->write(halfSecond))) ++stored;
  ASSERT_FALSE(written);
  EXPECT_EQ(written.error().posixCode, ENOSPC) << written.error().sentence;
  EXPECT_FALSE((*writer)->finish());
  writer->reset();
  ASSERT_GT(stored, 0);
  EXPECT_EQ(AVAsset::make(URL(path))->duration(), CMTime(stored * 22'050, 44'100));
  EXPECT_EQ(recordedSamples(path).size(), static_cast<std::size_t>(stored * 22'050));
}

}  // namespace
}  // namespace clipworks::test
