#include <clipworks/media/samples/AVAssetReader.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

const SettingsDictionary fullRangePixels{
    {kCVPixelBufferPixelFormatTypeKey, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange}};
const SettingsDictionary integerSamples{{AVFormatIDKey, kAudioFormatLinearPCM},
                                        {AVLinearPCMBitDepthKey, 16},
                                        {AVLinearPCMIsBigEndianKey, false},
                                        {AVLinearPCMIsFloatKey, false}};

/// A reader with one output, on the first track of a kind.
struct Reading {
  std::shared_ptr<AVAssetReader> reader;
  std::shared_ptr<AVAssetReaderTrackOutput> output;

  Reading(const std::filesystem::path& clip, AVMediaType type, const SettingsDictionary& settings) {
    const auto asset = AVAsset::make(URL(clip));
    reader = AVAssetReader::make(asset).value();
    output = AVAssetReaderTrackOutput::make(asset->tracks(type).at(0), settings);
    EXPECT_TRUE(reader->canAdd(*output));
    reader->add(output);
    EXPECT_TRUE(reader->startReading());
  }
};

GreyPicture greyOf(const CVPixelBuffer& buffer) {
  GreyPicture grey{static_cast<int>(buffer.width()), static_cast<int>(buffer.height()), {}};
  const PixelPlane& luma = buffer.planes().front();
  for (std::size_t y = 0; y < luma.height; ++y) {
    const auto* row = luma.baseAddress + y * luma.bytesPerRow;
    grey.pixels.insert(grey.pixels.end(), row, row + luma.width);
  }
  return grey;
}

struct PictureCase {
  std::string name;
  ClipOptions options;
  friend std::ostream& operator<<(std::ostream& out, const PictureCase& c) { return out << c.name; }
};

class ReadPictures : public testing::TestWithParam<PictureCase> {};

TEST_P(ReadPictures, ComeInOrderAtTheirTimes) {
  const BarCodeClip clip(GetParam().options);
  const Reading reading(clip.path(), AVMediaTypeVideo, fullRangePixels);
  std::size_t count = 0;
  CMTime end = kCMTimeInvalid;
  while (const auto buffer = reading.output->copyNextSampleBuffer()) {
    ASSERT_LT(count, clip.times().size());
    EXPECT_NEAR(CMSampleBufferGetPresentationTimeStamp(*buffer).seconds(), clip.times()[count], 1e-3);
    if (count > 0) {
      EXPECT_EQ(CMSampleBufferGetPresentationTimeStamp(*buffer), end) << "no gap before " << count;
    }
    end = CMSampleBufferGetPresentationTimeStamp(*buffer) + CMSampleBufferGetDuration(*buffer);
    const auto picture = CMSampleBufferGetImageBuffer(*buffer);
    ASSERT_NE(picture, nullptr) << "picture " << count;
    const auto code = BarCode::read(greyOf(*picture));
    ASSERT_TRUE(code) << "picture " << count;
    EXPECT_EQ(code->number, static_cast<int>(count));
    ++count;
  }
  EXPECT_EQ(count, clip.times().size());
  EXPECT_LT(end.seconds(), clip.videoEnd() + 2e-3);
  EXPECT_EQ(reading.reader->status(), AVAssetReaderStatus::completed);
}

INSTANTIATE_TEST_SUITE_P(
    Clips, ReadPictures,
    testing::Values(
        PictureCase{"at_a_constant_rate", {.frames = 40}},
        PictureCase{"at_a_variable_rate", {.frameTimes = {0, 20, 100, 130, 210, 400, 410}, .timescale = 600}},
        PictureCase{"that_start_later", {.frameTimes = {300, 340, 380, 420, 460}, .timescale = 600}},
        PictureCase{
            "in_HEVC_with_open_groups",
            {.frames = 30, .videoCodec = "libx265", .preset = "ultrafast", .gop = 10, .groups = GroupOfPictures::open}},
        PictureCase{"of_odd_size", {.width = 318, .height = 179, .frames = 5, .pixelFormat = "yuv444p"}}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(AssetReader, DecodesPicturesInAnyOrderWhenTheyAreLookedAt) {
  const BarCodeClip clip;
  const Reading reading(clip.path(), AVMediaTypeVideo, fullRangePixels);
  std::vector<std::shared_ptr<CMSampleBuffer>> buffers;
  while (auto buffer = reading.output->copyNextSampleBuffer()) buffers.push_back(std::move(buffer));
  reading.reader->cancelReading();
  EXPECT_EQ(reading.reader->status(), AVAssetReaderStatus::completed) << "it was through before";
  for (const std::size_t number : {59U, 3U, 30U}) {
    const auto code = BarCode::read(greyOf(*CMSampleBufferGetImageBuffer(*buffers.at(number))));
    ASSERT_TRUE(code);
    EXPECT_EQ(code->number, static_cast<int>(number));
  }
}

TEST(AssetReader, GivesTheRangeThatIsAskedFor) {
  const BarCodeClip clip({.frames = 1});
  std::vector<GreyPicture> greys;
  for (const auto format :
       {kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange}) {
    const Reading reading(clip.path(), AVMediaTypeVideo, {{kCVPixelBufferPixelFormatTypeKey, format}});
    greys.push_back(greyOf(*CMSampleBufferGetImageBuffer(*reading.output->copyNextSampleBuffer())));
  }
  ASSERT_EQ(greys[0].pixels.size(), greys[1].pixels.size());
  for (std::size_t i = 0; i < greys[0].pixels.size(); ++i) {
    const double full = std::clamp((greys[0].pixels[i] - 16) * 255.0 / 219, 0.0, 255.0);
    ASSERT_NEAR(greys[1].pixels[i], full, 0.51) << "pixel " << i;
  }
}

struct SoundCase {
  std::string name;
  ClipOptions options;
  friend std::ostream& operator<<(std::ostream& out, const SoundCase& c) { return out << c.name; }
};

class ReadSound : public testing::TestWithParam<SoundCase> {};

/// What an independent decoder makes of the sound, its start and end as the file tells them.
std::vector<std::int16_t> decodedElsewhere(const std::filesystem::path& clip) {
  const auto decoded = runProgram({"ffmpeg", "-v", "error", "-i", clip, "-map", "0:a", "-f", "s16le", "-"});
  EXPECT_EQ(decoded.exitCode, 0) << decoded;
  std::vector<std::int16_t> samples(decoded.standardOutput.size() / 2);
  std::memcpy(samples.data(), decoded.standardOutput.data(), samples.size() * 2);
  return samples;
}

TEST_P(ReadSound, IsTheDecodersBitForBit) {
  const BarCodeClip clip(GetParam().options);
  const Reading reading(clip.path(), AVMediaTypeAudio, integerSamples);
  const double rate = GetParam().options.sampleRate;
  const auto channels = static_cast<std::size_t>(GetParam().options.channels);
  std::vector<std::int16_t> samples;
  CMTime next = CMTime(GetParam().options.audioDelay, GetParam().options.sampleRate);
  while (const auto buffer = reading.output->copyNextSampleBuffer()) {
    EXPECT_NEAR(CMSampleBufferGetPresentationTimeStamp(*buffer).seconds(), next.seconds(), 0.001);
    next = CMSampleBufferGetPresentationTimeStamp(*buffer) + CMSampleBufferGetDuration(*buffer);
    const auto data = CMSampleBufferGetDataBuffer(*buffer);
    EXPECT_LE(CMSampleBufferGetNumSamples(*buffer), 8192U);
    ASSERT_EQ(data->dataLength(), CMSampleBufferGetNumSamples(*buffer) * channels * 2);
    const auto* format = CMSampleBufferGetFormatDescription(*buffer)->streamBasicDescription();
    EXPECT_EQ(format->mSampleRate, rate);
    EXPECT_EQ(format->mChannelsPerFrame, channels);
    const std::size_t had = samples.size();
    samples.resize(had + data->dataLength() / 2);
    std::memcpy(samples.data() + had, data->dataPointer(), data->dataLength());
  }
  EXPECT_EQ(reading.reader->status(), AVAssetReaderStatus::completed);
  EXPECT_NEAR(static_cast<double>(samples.size()) / static_cast<double>(channels) / rate,
              clip.audioEnd() - GetParam().options.audioDelay, 0.001);
  auto reference = decodedElsewhere(clip.path());
  ASSERT_GE(reference.size(), samples.size());
  reference.resize(samples.size());
  EXPECT_TRUE(samples == reference);
}

INSTANTIATE_TEST_SUITE_P(Clips, ReadSound,
                         testing::Values(SoundCase{"of_AAC_in_stereo", {}},
                                         SoundCase{"of_AAC_in_mono_at_22050", {.sampleRate = 22'050, .channels = 1}},
                                         SoundCase{"of_PCM", {.audioCodec = "pcm_s16le", .extension = ".mov"}},
                                         SoundCase{
                                             "that_starts_later",
                                             {.audioCodec = "pcm_s16le", .audioDelay = 0.4, .extension = ".mov"}}),
                         [](const auto& testCase) { return testCase.param.name; });

TEST(AssetReader, RefusesWhatItCannotRead) {
  const TemporaryDirectory directory;
  const auto broken = directory.path() / "broken.mp4";
  std::ofstream(broken) << "no movie";
  const auto unreadable = AVAssetReader::make(AVAsset::make(URL(broken)));
  ASSERT_FALSE(unreadable);
  EXPECT_THAT(unreadable.error().localizedDescription(), testing::HasSubstr("broken.mp4"));
  EXPECT_FALSE(AVAssetReader::make(AVAsset::make(URL(directory.path() / "missing.mp4"))));

  const auto asset = AVAsset::make(URL(BarCodeClip().path()));
  const auto reader = AVAssetReader::make(asset).value();
  const auto floats = AVAssetReaderTrackOutput::make(
      asset->tracks(AVMediaTypeAudio).front(), {{AVFormatIDKey, kAudioFormatLinearPCM}, {AVLinearPCMIsFloatKey, true}});
  EXPECT_FALSE(reader->canAdd(*floats));
  reader->add(floats);
  EXPECT_FALSE(reader->startReading());
  EXPECT_EQ(reader->status(), AVAssetReaderStatus::failed);
  EXPECT_TRUE(reader->error());
  EXPECT_EQ(floats->copyNextSampleBuffer(), nullptr);
}

TEST(AssetReader, StopsWhenItIsCancelled) {
  const Reading reading(BarCodeClip().path(), AVMediaTypeAudio, integerSamples);
  EXPECT_NE(reading.output->copyNextSampleBuffer(), nullptr);
  reading.reader->cancelReading();
  EXPECT_EQ(reading.reader->status(), AVAssetReaderStatus::cancelled);
  EXPECT_EQ(reading.output->copyNextSampleBuffer(), nullptr);
}

}  // namespace
}  // namespace clipworks::test
