#include <clipworks/media/samples/AVAssetWriter.h>

#include <array>
#include <random>

#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/samples/AVAssetWriterInputPixelBufferAdaptor.h>

#include <tests/media/MediaTesting.h>
#include <tests/support/SmallFileSystem.h>

namespace clipworks::test {
namespace {

using Status = AVAssetWriterStatus;
using Input = AVAssetWriterInput;

/// Rows of BGRA.
struct Pixels {
  int width = 160, height = 90;
  std::string bytes = std::string(static_cast<std::size_t>(width * height * 4), '\x80');

  [[nodiscard]] std::shared_ptr<CVPixelBuffer> buffer() {
    const auto w = static_cast<std::size_t>(width);
    return CVPixelBufferCreateWithBytes(w, static_cast<std::size_t>(height), kCVPixelFormatType_32BGRA, bytes.data(),
                                        w * 4, {}, {});
  }
};

/// With a bar code.
Pixels coded(int number, int width = 160, int height = 90) {
  const BarCodeClip clip({.width = width, .height = height, .frames = 50, .pixelFormat = "yuv444p", .audioCodec = ""});
  return {width, height,
          run("ffmpeg -v error -i " + clip.path().string() + " -vf select=eq(n\\," + std::to_string(number) +
              ") -frames:v 1 -pix_fmt bgra -f rawvideo -")
              .standardOutput};
}

SettingsDictionary h264(double width = 160, double height = 90, double bitRate = 0) {
  return {{AVVideoCodecKey, AVVideoCodecTypeH264},
          {AVVideoWidthKey, width},
          {AVVideoHeightKey, height},
          {AVVideoCompressionPropertiesKey, SettingsDictionary{{AVVideoAverageBitRateKey, bitRate}}}};
}

SettingsDictionary aac(int rate, int channels) {
  return {{AVFormatIDKey, kAudioFormatMPEG4AAC},
          {AVSampleRateKey, rate},
          {AVNumberOfChannelsKey, channels},
          {AVEncoderBitRateKey, 128'000},
          {AVChannelLayoutKey, SettingsValue::Data()}};
}

/// The test tone, `count` samples from `from` on; `gain` tells a channel's level by the sample's place.
std::shared_ptr<CMSampleBuffer> toneBuffer(
    int rate, int channels, std::int64_t from, std::int64_t count, const CMTime& time,
    const std::function<double(std::int64_t, int)>& gain = [](std::int64_t, int) { return 1; }) {
  const Sound tone = makeTone(rate, static_cast<double>(from) / rate, static_cast<double>(count) / rate);
  std::vector<std::int16_t> values;
  for (std::int64_t i = 0; i < count; ++i) {
    const double sample = tone.samples.at(static_cast<std::size_t>(i)) * 32'000;
    for (int c = 0; c < channels; ++c) values.push_back(static_cast<std::int16_t>(std::lround(sample * gain(i, c))));
  }
  std::shared_ptr<CMSampleBuffer> buffer;
  EXPECT_EQ(
      CMSampleBufferCreate(CMBlockBuffer::make(values.data(), values.size() * 2), true, {},
                           CMFormatDescription::pcm(rate, static_cast<std::uint32_t>(channels), 16),
                           static_cast<std::size_t>(count), {{CMTime(1, rate), time, kCMTimeInvalid}}, {}, &buffer),
      noErr);
  return buffer;
}

/// A writer with one input.
struct Writing {
  explicit Writing(const SettingsDictionary& settings, AVFileType type = AVFileTypeQuickTimeMovie, fs::path to = {})
      : file(to.empty() ? directory.file("made.mov") : std::move(to)),
        writer(AVAssetWriter::make(URL(file), type).value()),
        input(Input::make(settings.find(AVVideoCodecKey) != nullptr ? AVMediaTypeVideo : AVMediaTypeAudio, settings)) {}
  /// With its input, and more of them.
  void start(const CMTime& at = kCMTimeZero, const std::vector<std::shared_ptr<Input>>& more = {}) {
    EXPECT_TRUE(writer->canAdd(*input));
    writer->add(input);
    for (const auto& other : more) writer->add(other);
    EXPECT_TRUE(writer->startWriting());
    writer->startSession(at);
  }
  [[nodiscard]] bool hasRoomInTime() const {
    return waitUntil([this] { return input->isReadyForMoreMediaData(); });
  }
  [[nodiscard]] bool append(Pixels pixels, const CMTime& time) const {
    EXPECT_TRUE(hasRoomInTime());
    const bool appended = adaptor->append(pixels.buffer(), time);
    std::fill(pixels.bytes.begin(), pixels.bytes.end(), '\0');  // consumed
    return appended;
  }
  [[nodiscard]] Status finish() const {
    const auto ended = std::make_shared<std::promise<void>>();
    writer->finishWriting([ended] { ended->set_value(); });
    EXPECT_EQ(ended->get_future().wait_for(patience), std::future_status::ready) << "the writer did not end";
    return writer->status();
  }

  TemporaryDirectory directory;
  fs::path file;
  std::shared_ptr<AVAssetWriter> writer;
  std::shared_ptr<Input> input;
  std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor> adaptor = AVAssetWriterInputPixelBufferAdaptor::make(input);
  MediaJudge judge{file};
};

TEST(Writer, GivesEachPictureItsTime) {
  const std::vector<std::int64_t> times{30, 50, 130, 160, 240, 430, 440, 460, 480, 500, 900};
  Writing made(h264(160, 90, 400'000));
  made.input->setTransform({0, 1, -1, 0, 90, 0});
  made.start(CMTime(30, 600));
  EXPECT_TRUE(made.append(coded(49), CMTime(20, 600))) << "before the session: taken, but not written";
  for (std::size_t i = 0; i < times.size(); ++i) {
    EXPECT_TRUE(made.append(coded(static_cast<int>(i)), CMTime(times[i], 600)));
  }
  EXPECT_FALSE(fs::exists(made.file)) << "no name before it is whole";
  ASSERT_EQ(made.finish(), Status::completed) << failureOf(made.writer->error());

  const auto pictures = made.judge.pictures();
  ASSERT_EQ(pictures.size(), times.size());
  for (std::size_t i = 0; i < times.size(); ++i) {
    EXPECT_EQ(pictures[i].number, static_cast<int>(i));
    EXPECT_NEAR(pictures[i].seconds, static_cast<double>(times[i]) / 600, 1e-4);
  }
  EXPECT_EQ(made.judge.stream("video").rotation, 90);
  EXPECT_EQ(made.judge.stream("video").tag, "avc1");
  EXPECT_EQ(made.judge.warnings(), "");
  const auto range = assetAt(made.file)->tracks(AVMediaTypeVideo).front()->timeRange();
  EXPECT_EQ(range.start, CMTime(30, 600)) << "the time before the session stays empty";
  const auto [length, scale] = made.judge.movieHeaderDuration();
  EXPECT_EQ(length * 600, 1300 * scale) << "the last picture is shown as long as the one before it";
}

TEST(Writer, KeepsColoursAsTheyWere) {
  const SettingsDictionary full709{{kCVImageBufferYCbCrMatrixKey, 1}, {kCVImageBufferFullRangeKey, true}};
  struct {
    const char* sentence;
    std::array<int, 3> bgr;
    int width, height;
    const char* matrixAndRange;
    SettingsDictionary attachments{};
  } const cases[] = {
      {"small pictures by BT.601", {40, 90, 200}, 160, 90, "smpte170m tv"},
      {"large ones by BT.709", {200, 60, 50}, 1280, 720, "bt709 tv"},
      {"odd sizes", {30, 160, 60}, 161, 91, "smpte170m tv"},
      {"by attachment BT.709 in full range", {255, 0, 0}, 160, 90, "bt709 pc", full709},
      {"by attachment BT.2020", {60, 180, 90}, 160, 90, "bt2020nc tv", {{kCVImageBufferYCbCrMatrixKey, 9}}},
  };
  for (const auto& [sentence, bgr, width, height, matrixAndRange, attachments] : cases) {
    SCOPED_TRACE(sentence);
    Writing made(h264(width, height));
    made.start();
    Pixels pixels{width, height};
    for (std::size_t i = 0; i < pixels.bytes.size(); ++i) {
      pixels.bytes[i] = static_cast<char>(i % 4 < 3 ? bgr.at(i % 4) : 0);
    }
    const auto buffer = pixels.buffer();
    buffer->setAttachments(attachments);
    EXPECT_TRUE(made.adaptor->append(buffer, kCMTimeZero));
    ASSERT_EQ(made.finish(), Status::completed);
    const auto stream = made.judge.stream("video");
    EXPECT_EQ(stream.colorSpace + ' ' + stream.colorRange, matrixAndRange);
    // zscale goes by the tags, with no shortcut.
    const auto shown = run("ffmpeg -v error -i " + made.file.string() +
                           " -vf zscale=f=bilinear,format=gbrp,format=bgr24 -f rawvideo -");
    ASSERT_EQ(shown.standardOutput.size(), static_cast<std::size_t>(stream.width * stream.height * 3)) << shown;
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_NEAR(static_cast<std::uint8_t>(shown.standardOutput[i + 3 * 50]), bgr.at(i), 4) << "colour " << i;
    }
  }
}

TEST(Writer, RoundsOddSizesUpAndScalesOtherOnes) {
  Writing made(h264(161, 91), AVFileTypeMPEG4);
  made.start();
  EXPECT_TRUE(made.append(coded(1, 161, 91), CMTime(0, 30)));
  EXPECT_TRUE(made.append(coded(2, 320, 180), CMTime(1, 30)));
  ASSERT_EQ(made.finish(), Status::completed) << failureOf(made.writer->error());
  EXPECT_EQ(made.judge.stream("video").width, 162);
  EXPECT_EQ(made.judge.stream("video").height, 92);
  EXPECT_THAT(numbersOf(made.judge.pictures()), testing::ElementsAre(1, 2));
}

TEST(Writer, MakesAppendsWaitRatherThanHoldingPictures) {
  Writing made(h264(1920, 1080));
  made.start();
  // Pictures of noise, each unlike the one before, take the encoder far longer than it takes to hand them over.
  std::mt19937 noise(1);
  std::array<Pixels, 2> pictures{Pixels{1920, 1080}, Pixels{1920, 1080}};
  for (Pixels& picture : pictures) {
    std::generate(picture.bytes.begin(), picture.bytes.end(), [&] { return static_cast<char>(noise()); });
  }
  const auto planar = [](Pixels& picture) {
    auto* const luma = reinterpret_cast<std::uint8_t*>(picture.bytes.data());
    return CVPixelBufferCreateWithPlanarBytes(1920, 1080, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, luma, 1920,
                                              luma + 1920 * 1080, 1920, nullptr);
  };
  constexpr int most = 1000;
  int taken = 0;
  for (; taken < most && made.input->isReadyForMoreMediaData(); ++taken) {
    made.adaptor->append(planar(pictures[taken % 2]), CMTime(taken, 30));
  }
  EXPECT_LT(taken, most) << "there has to be a time without room";
  made.writer->cancelWriting();
  EXPECT_TRUE(made.input->isReadyForMoreMediaData()) << "nobody waits for ever";
  EXPECT_FALSE(made.append(coded(0), CMTime(taken, 30)));
  EXPECT_EQ(made.finish(), Status::cancelled);
  EXPECT_TRUE(fs::is_empty(made.directory.path()));
}

TEST(Writer, ConvertsSoundToTheSampleAndStartsAtZero) {
  for (const auto& [rate, channels] : {std::pair{44'100, 2}, std::pair{48'000, 2}, std::pair{16'000, 1}}) {
    SCOPED_TRACE(rate);
    Writing made(aac(44'100, 2), AVFileTypeAppleM4A);
    made.start();
    // Two seconds and a little, in portions of all sizes, without valid times.
    const std::int64_t total = 2 * rate + 777;
    for (std::int64_t at = 0, size = 1; at < total; at += size) {
      size = std::min<std::int64_t>(size * 3 % 5000 + 1, total - at);
      ASSERT_TRUE(made.hasRoomInTime());
      ASSERT_TRUE(made.input->append(toneBuffer(rate, channels, at, size, kCMTimeInvalid)));
    }
    ASSERT_EQ(made.finish(), Status::completed) << failureOf(made.writer->error());
    const auto stream = made.judge.stream("audio");
    EXPECT_EQ(stream.sampleRate, 44'100);
    EXPECT_EQ(stream.channels, 2);
    const auto track = assetAt(made.file)->tracks(AVMediaTypeAudio).front();
    EXPECT_EQ(track->timeRange().end(), CMTime((total * 44'100 + rate / 2) / rate, 44'100));
    const Sound sound = made.judge.sound();
    EXPECT_NEAR(lagOf(makeTone(16'000, 0, 2), sound.part(0, 2)), 0, 0.1);
    const double inBoth = std::sqrt(2.0);  // as the judge folds two equal channels
    EXPECT_NEAR(sound.part(0.1, 1.9).level() / inBoth * 32'768 / 32'000, makeTone(16'000, 0.1, 1.8).level(), 0.005);
  }
}

TEST(Writer, LosesNoneOfSixChannels) {
  Writing made(aac(48'000, 2), AVFileTypeAppleM4A);
  made.start();
  const auto eachSecondInAnother = [](std::int64_t i, int channel) { return i / 48'000 == channel ? 1 : 0; };
  EXPECT_TRUE(made.input->append(toneBuffer(48'000, 6, 0, 6 * 48'000, kCMTimeInvalid, eachSecondInAnother)));
  ASSERT_EQ(made.finish(), Status::completed);
  const Sound sound = made.judge.sound();
  for (int second = 0; second < 6; ++second) EXPECT_EQ(toneSecondAt(sound, second + 0.5), second);
}

TEST(Writer, PutsTimedSoundWhereItBelongs) {
  Writing made(aac(48'000, 1), AVFileTypeMPEG4);
  made.start(CMTime(1, 1));
  for (const std::int64_t from : {48'000, 120'000, 153'600}) {  // 1, 2.5 and 3.2 s
    EXPECT_TRUE(made.input->append(toneBuffer(48'000, 1, from, 48'000, CMTime(from, 48'000))));
  }
  ASSERT_EQ(made.finish(), Status::completed);
  const Sound sound = made.judge.sound();
  for (const double t : {1.1, 1.8, 2.7, 3.4, 4.05}) EXPECT_EQ(toneSecondAt(sound, t), static_cast<int>(t)) << t;
  for (const double t : {0.5, 2.1, 2.35}) EXPECT_EQ(toneSecondAt(sound, t), -1) << t;
  EXPECT_NEAR(lagOf(makeTone(16'000, 2.6, 1.5), sound.part(2.6, 4.1)), 0, 0.1);
}

TEST(Writer, WritesPicturesAndSoundTogether) {
  Writing made(h264(), AVFileTypeMPEG4);
  const auto sound = Input::make(AVMediaTypeAudio, aac(48'000, 2));
  made.writer->setMetadata({{"title", "Two at once"}});
  made.start(kCMTimeZero, {sound, Input::make(AVMediaTypeAudio, aac(48'000, 2))});
  EXPECT_TRUE(sound->append(toneBuffer(48'000, 2, 0, 48'000, kCMTimeZero)));
  for (int i = 0; i < 30; ++i) EXPECT_TRUE(made.append(coded(i), CMTime(i, 30)));
  ASSERT_EQ(made.finish(), Status::completed) << failureOf(made.writer->error());
  EXPECT_EQ(made.judge.streams().size(), 2U) << "a track without samples is left out";
  EXPECT_EQ(made.judge.pictures().size(), 30U);
  EXPECT_EQ(toneSecondAt(made.judge.sound(), 0.5), 0);
  EXPECT_EQ(assetAt(made.file)->metadata()["title"], "Two at once");
}

TEST(Writer, SaysWhenTheDiskIsFull) {
  const SmallFileSystem small(64);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  Writing made(h264(640, 360), AVFileTypeQuickTimeMovie, small.path() / "made.mov");
  made.start();
  Pixels pixels{640, 360};
  int count = 0;
  do {
    ASSERT_LT(count, 2000) << "the failure must show";
    for (std::size_t i = 0; i < pixels.bytes.size(); ++i) {
      pixels.bytes[i] = static_cast<char>((i * i * 7 + static_cast<std::size_t>(count)) >> 3);
    }
  } while (made.append(pixels, CMTime(count++, 30)));
  EXPECT_TRUE(made.input->isReadyForMoreMediaData());
  EXPECT_EQ(made.finish(), Status::failed);
  EXPECT_THAT(failureOf(made.writer->error()), hasCode(AVError::diskFull));
  EXPECT_TRUE(fs::is_empty(small.path()));
}

TEST(Writer, LeavesNothingWhenItIsLetGo) {
  Writing made(h264());
  made.start();
  EXPECT_TRUE(made.append(coded(0), kCMTimeZero));
  made.writer.reset();
  EXPECT_FALSE(made.append(coded(1), CMTime(1, 30)));
  made.adaptor.reset();
  made.input.reset();
  EXPECT_TRUE(fs::is_empty(made.directory.path()));
}

TEST(Writer, FailsWithASentenceWhenItIsMisused) {
  const CMTime time(5, 30);
  // With an input or without, whose session starts then, and which gets pictures, of which the last is refused.
  const std::tuple<const char*, bool, std::optional<CMTime>, std::vector<CMTime>> misuses[] = {
      {"a start without an input", false, {}, {}},
      {"samples before the session", true, {}, {kCMTimeZero}},
      {"a session before zero", true, CMTime(-1, 30), {}},
      {"pictures out of order", true, kCMTimeZero, {time, time}},
      {"a picture without a time", true, kCMTimeZero, {kCMTimeInvalid}},
      {"nothing written", true, kCMTimeZero, {}},
  };
  for (const auto& [sentence, hasInput, session, pictures] : misuses) {
    SCOPED_TRACE(sentence);
    const Writing made(h264(), AVFileTypeMPEG4);
    if (hasInput) made.writer->add(made.input);
    EXPECT_EQ(made.writer->startWriting(), hasInput);
    if (session) made.writer->startSession(*session);
    for (std::size_t i = 0; i < pictures.size(); ++i)
      EXPECT_EQ(made.append(coded(0), pictures[i]), i + 1 < pictures.size());
    EXPECT_EQ(made.finish(), Status::failed);
    const std::string words = hasInput && !session ? "before the writer's session was started" : " ";
    EXPECT_THAT(failureOf(made.writer->error()), testing::HasSubstr(words));
    EXPECT_FALSE(fs::exists(made.file));
  }
}

TEST(Writer, ThatDoesNotStartKeepsNobodyWaiting) {
  const Writing made(h264(160, 90, -1));
  made.writer->add(made.input);
  EXPECT_FALSE(made.writer->startWriting());
  EXPECT_EQ(made.writer->status(), Status::failed);
  EXPECT_TRUE(made.input->isReadyForMoreMediaData());
  EXPECT_FALSE(made.append(coded(0), kCMTimeZero));
}

TEST(Writer, IsNotMadeWhereNothingCanBeWritten) {
  const TemporaryDirectory directory;
  EXPECT_FALSE(AVAssetWriter::make(URL(directory.file("missing") / "a.mov"), AVFileTypeQuickTimeMovie));
  EXPECT_FALSE(AVAssetWriter::make(URL(directory.file("a.avi")), "public.avi"));
  const auto m4a = AVAssetWriter::make(URL(directory.file("a.m4a")), AVFileTypeAppleM4A).value();
  const SettingsDictionary plain{{AVFormatIDKey, kAudioFormatMPEG4AAC}};
  EXPECT_FALSE(m4a->canAdd(*Input::make(AVMediaTypeVideo, h264())));
  EXPECT_FALSE(m4a->canAdd(*Input::make(AVMediaTypeAudio, plain)));
  EXPECT_TRUE(m4a->canAdd(*Input::make(AVMediaTypeAudio, plain, CMFormatDescription::pcm(48'000, 2, 16))));
}

}  // namespace
}  // namespace clipworks::test
