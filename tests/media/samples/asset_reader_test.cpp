#include <clipworks/media/samples/AVAssetReader.h>

#include <cstring>

#include <tests/media/MediaTesting.h>

namespace clipworks::test {
namespace {

const SettingsDictionary fullRange{{kCVPixelBufferPixelFormatTypeKey, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange}};
const SettingsDictionary integers{{AVFormatIDKey, kAudioFormatLinearPCM},
                                  {AVLinearPCMBitDepthKey, 16},
                                  {AVLinearPCMIsBigEndianKey, false},
                                  {AVLinearPCMIsFloatKey, false}};

/// A reader with one output, on the first track of a kind.
struct Reading {
  std::shared_ptr<AVAssetReader> reader;
  std::shared_ptr<AVAssetReaderTrackOutput> output;

  Reading(const fs::path& clip, AVMediaType type, const SettingsDictionary& settings) {
    const auto asset = assetAt(clip);
    reader = AVAssetReader::make(asset).value();
    output = AVAssetReaderTrackOutput::make(asset->tracks(type).at(0), settings);
    EXPECT_TRUE(reader->canAdd(*output));
    reader->add(output);
    EXPECT_TRUE(reader->startReading());
  }
};

GreyPicture pictureOf(CMSampleBuffer& buffer) {
  const PixelPlane luma = CMSampleBufferGetImageBuffer(buffer)->planes().front();
  return greyOf(luma.baseAddress, luma.width, luma.height, luma.bytesPerRow);
}

int numberOf(CMSampleBuffer& buffer) { return BarCode::read(pictureOf(buffer)).value_or(BarCode{-1, {}}).number; }

void expectPicturesOf(const ClipOptions& options) {
  const BarCodeClip clip(options);
  const Reading reading(clip.path(), AVMediaTypeVideo, fullRange);
  std::size_t count = 0;
  CMTime end = kCMTimeInvalid;
  while (const auto buffer = reading.output->copyNextSampleBuffer()) {
    ASSERT_LT(count, clip.times().size());
    const CMTime time = CMSampleBufferGetPresentationTimeStamp(*buffer);
    EXPECT_NEAR(time.seconds(), clip.times()[count], 1e-3);
    EXPECT_TRUE(count == 0 || time == end) << "no gap before " << count;
    end = time + CMSampleBufferGetDuration(*buffer);
    EXPECT_EQ(numberOf(*buffer), static_cast<int>(count++));
  }
  EXPECT_EQ(count, clip.times().size());
  EXPECT_LT(end.seconds(), clip.videoEnd() + 2e-3);
  reading.reader->cancelReading();
  EXPECT_EQ(reading.reader->status(), AVAssetReaderStatus::completed) << "it was through before";
}

TEST(AssetReader, GivesPicturesInOrderAtTheirTimes) {
  expectPicturesOf({.frames = 40});
  expectPicturesOf({.frameTimes = {0, 20, 100, 130, 210, 400, 410}, .timescale = 600});
  expectPicturesOf({.frameTimes = {300, 340, 380, 420, 460}, .timescale = 600});
  ClipOptions hevc{.frames = 30, .videoCodec = "libx265", .preset = "ultrafast", .gop = 10};
  hevc.groups = GroupOfPictures::open;
  expectPicturesOf(hevc);
  expectPicturesOf({.width = 318, .height = 179, .frames = 5, .pixelFormat = "yuv444p"});
}

TEST(AssetReader, GivesTheRangeThatIsAskedFor) {
  const BarCodeClip clip({.frames = 1});
  const auto pixelsAs = [&](const SettingsDictionary& settings) {
    return pictureOf(*Reading(clip.path(), AVMediaTypeVideo, settings).output->copyNextSampleBuffer()).pixels;
  };
  const auto full = pixelsAs(fullRange);
  const auto video = pixelsAs({{kCVPixelBufferPixelFormatTypeKey, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange}});
  ASSERT_EQ(video.size(), full.size());
  for (std::size_t i = 0; i < full.size(); ++i) {
    ASSERT_NEAR(full[i], std::clamp((video[i] - 16) * 255.0 / 219, 0.0, 255.0), 0.51) << "pixel " << i;
  }
}

/// Bit for bit what an independent decoder makes of the sound, its start and end as the file tells them.
void expectSoundOf(const ClipOptions& options) {
  const BarCodeClip clip(options);
  const Reading reading(clip.path(), AVMediaTypeAudio, integers);
  std::string bytes;
  CMTime next(options.audioDelay, options.sampleRate);
  const std::size_t frame = static_cast<std::size_t>(options.channels) * 2;
  while (const auto buffer = reading.output->copyNextSampleBuffer()) {
    EXPECT_NEAR(CMSampleBufferGetPresentationTimeStamp(*buffer).seconds(), next.seconds(), 0.001);
    next = CMSampleBufferGetPresentationTimeStamp(*buffer) + CMSampleBufferGetDuration(*buffer);
    const auto data = CMSampleBufferGetDataBuffer(*buffer);
    EXPECT_LE(CMSampleBufferGetNumSamples(*buffer), 8192U);
    ASSERT_EQ(data->dataLength(), CMSampleBufferGetNumSamples(*buffer) * frame);
    const auto* format = CMSampleBufferGetFormatDescription(*buffer)->streamBasicDescription();
    EXPECT_EQ(format->mSampleRate, options.sampleRate);
    EXPECT_EQ(format->mChannelsPerFrame, options.channels);
    bytes.append(reinterpret_cast<const char*>(data->dataPointer()), data->dataLength());
  }
  EXPECT_EQ(reading.reader->status(), AVAssetReaderStatus::completed);
  EXPECT_NEAR(static_cast<double>(bytes.size() / frame) / options.sampleRate, clip.audioEnd() - options.audioDelay,
              0.001);
  const auto decoded = run("ffmpeg -v error -i " + clip.path().string() + " -map 0:a -f s16le -");
  EXPECT_TRUE(decoded.standardOutput.starts_with(bytes)) << decoded.standardError;
}

TEST(AssetReader, GivesTheDecodersSoundBitForBit) {
  expectSoundOf({});
  expectSoundOf({.sampleRate = 22'050, .channels = 1});
  expectSoundOf({.audioCodec = "pcm_s16le", .extension = ".mov"});
  expectSoundOf({.audioCodec = "pcm_s16le", .audioDelay = 0.4, .extension = ".mov"});
}

TEST(AssetReader, RefusesWhatItCannotRead) {
  const TemporaryDirectory directory;
  const auto broken = writeTo(directory.file("broken.mp4"), "no movie");
  EXPECT_THAT(failureOf(AVAssetReader::make(assetAt(broken))), testing::HasSubstr("broken.mp4"));
  EXPECT_FALSE(AVAssetReader::make(assetAt(directory.file("missing.mp4"))));

  const auto asset = assetOf({});
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
  const Reading reading(BarCodeClip().path(), AVMediaTypeAudio, integers);
  EXPECT_NE(reading.output->copyNextSampleBuffer(), nullptr);
  reading.reader->cancelReading();
  EXPECT_EQ(reading.reader->status(), AVAssetReaderStatus::cancelled);
  EXPECT_EQ(reading.output->copyNextSampleBuffer(), nullptr);
}

std::shared_ptr<CMSampleBuffer> soundBuffer(const std::vector<std::int16_t>& values, std::uint32_t channels,
                                            const std::vector<CMSampleTimingInfo>& timing) {
  std::shared_ptr<CMSampleBuffer> buffer;
  const auto status = CMSampleBufferCreate(CMBlockBuffer::make(values.data(), values.size() * sizeof(std::int16_t)),
                                           true, {}, CMFormatDescription::pcm(44'100, channels, 16),
                                           values.size() / channels, timing, {}, &buffer);
  EXPECT_EQ(status, noErr);
  return buffer;
}

TEST(SampleBuffer, TellsWhenItsSamplesPlay) {
  const auto timed = soundBuffer({1, 2, 3, 4, 5, 6}, 2, {{CMTime(1, 44'100), CMTime(5, 10), kCMTimeInvalid}});
  EXPECT_EQ(CMSampleBufferGetNumSamples(*timed), 3U);
  EXPECT_TRUE(CMSampleBufferGetDuration(*timed).isIdenticalTo(CMTime(3, 44'100)));
  EXPECT_TRUE(CMSampleBufferGetPresentationTimeStamp(*timed).isIdenticalTo(CMTime(5, 10)));
  const auto untimed = soundBuffer({1, 2}, 1, {});
  EXPECT_FALSE(CMSampleBufferGetPresentationTimeStamp(*untimed).isValid());
  EXPECT_FALSE(CMSampleBufferGetDuration(*untimed).isValid());
  // Its timing is copied only where there is room.
  CMSampleTimingInfo record;
  std::size_t needed = 0;
  EXPECT_EQ(CMSampleBufferGetSampleTimingInfoArray(*timed, 0, &record, &needed), kCMSampleBufferError_ArrayTooSmall);
  EXPECT_EQ(needed, 1U);
  EXPECT_FALSE(record.presentationTimeStamp.isValid());
  EXPECT_EQ(CMSampleBufferGetSampleTimingInfoArray(*timed, 1, &record, nullptr), noErr);
  EXPECT_EQ(record.presentationTimeStamp, CMTime(5, 10));
}

TEST(SampleBuffer, SharesItsBytesWithAudioBufferLists) {
  const auto buffer = soundBuffer({10, 20, 30, 40}, 2, {});
  auto list = AudioBufferList::allocate(1);
  std::shared_ptr<CMBlockBuffer> block;
  std::size_t needed = 0;
  ASSERT_EQ(CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(
                *buffer, &needed, &list, AudioBufferList::sizeInBytes(1),
                kCMSampleBufferFlag_AudioBufferList_Assure16ByteAlignment, &block),
            noErr);
  EXPECT_EQ(std::tuple(needed, list[0].mNumberChannels, list[0].mDataByteSize),
            std::tuple(AudioBufferList::sizeInBytes(1), 2, 8));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(list[0].mData) % 16, 0U);

  const std::array<std::int16_t, 2> other{-1, -2};
  EXPECT_EQ(CMBlockBufferReplaceDataBytes(other.data(), *block, 2, 4), noErr);
  EXPECT_EQ(CMBlockBufferReplaceDataBytes(other.data(), *block, 6, 4), kCMBlockBufferBadLengthParameterErr);
  EXPECT_EQ(CMBlockBufferReplaceDataBytes(other.data(), *block, 9, 0), kCMBlockBufferBadOffsetParameterErr);
  std::array<std::int16_t, 4> values{};
  std::memcpy(values.data(), list[0].mData, sizeof values);
  EXPECT_THAT(values, testing::ElementsAre(10, -1, -2, 40));

  EXPECT_EQ(CMSampleBufferGetAudioBufferListWithRetainedBlockBuffer(*buffer, nullptr, &list, 1, 0, nullptr),
            kCMSampleBufferError_ArrayTooSmall);
}

TEST(SampleBuffer, NeedsAFormatAndFittingEntries) {
  std::shared_ptr<CMSampleBuffer> buffer;
  EXPECT_NE(CMSampleBufferCreate(nullptr, true, {}, nullptr, 1, {}, {}, &buffer), noErr);
  const std::vector<CMSampleTimingInfo> two(2);
  EXPECT_NE(CMSampleBufferCreate(nullptr, true, {}, CMFormatDescription::pcm(8000, 1, 16), 3, two, {}, &buffer), noErr);
  EXPECT_EQ(buffer, nullptr);
}

TEST(PixelBuffer, IsReleasedWithItsLastOwner) {
  std::vector<std::uint8_t> bytes(4 * 8 * 2);
  const void* released = nullptr;
  const auto make = [&](std::size_t width, std::size_t bytesPerRow, auto format) {
    return CVPixelBufferCreateWithBytes(width, 2, format, bytes.data(), bytesPerRow,
                                        [&released](const void* address) { released = address; }, {});
  };
  auto buffer = make(8, 32, kCVPixelFormatType_32BGRA);
  EXPECT_EQ(buffer->planes().front().baseAddress, bytes.data());
  EXPECT_EQ(released, nullptr);
  buffer.reset();
  EXPECT_EQ(released, bytes.data());
  EXPECT_EQ(make(8, 31, kCVPixelFormatType_32BGRA), nullptr);
  EXPECT_EQ(make(0, 32, kCVPixelFormatType_32BGRA), nullptr);
  EXPECT_EQ(make(8, 32, kCVPixelFormatType_420YpCbCr8BiPlanarFullRange), nullptr);
}

TEST(SettingsDictionary, TakesNumbersOfAnyKind) {
  const SettingsDictionary settings{
      {"integer", 0x61616320U}, {"single", 44100.0F}, {"truth", true}, {"text", "avc1"}, {"huge", 1e300}};
  EXPECT_EQ(settings.integer("integer"), 0x61616320);
  EXPECT_EQ(settings.number("single"), 44100.0);
  EXPECT_EQ(settings.integer("truth"), 1);
  EXPECT_FALSE(settings.integer("huge") || settings.number("text") || settings.number("missing"));
}

}  // namespace
}  // namespace clipworks::test
