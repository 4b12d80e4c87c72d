#include <clipworks/media/samples/AVAssetWriter.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/samples/AVAssetWriterInputPixelBufferAdaptor.h>

#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/SmallFileSystem.h>
#include <tests/support/TemporaryDirectory.h>
#include <tests/support/Tone.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
constexpr std::chrono::seconds patience{100};

/// Rows of BGRA with a bar code in black and white.
struct CodedPixels {
  CodedPixels(int width_, int height_, int number) : width(width_), height(height_) {
    bytes.assign(static_cast<std::size_t>(width * height * 4), 128);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) paint(x, y, number);
    }
  }
  void paint(int x, int y, int number) {
    const auto cell = [](int at, int side, int cells) {
      const double in = (static_cast<double>(at) / side - BarCode::panelStart) / BarCode::panelLength * cells;
      return in < 0 || in >= cells ? -1 : static_cast<int>(in);
    };
    const int column = cell(x, width, BarCode::columns);
    const int row = cell(y, height, BarCode::rows);
    if (column < 0 || row < 0) return;
    const std::uint8_t level = BarCode::isWhite(number, column, row) ? 255 : 0;
    std::fill_n(bytes.begin() + (y * width + x) * 4, 3, level);
  }
  [[nodiscard]] std::shared_ptr<CVPixelBuffer> buffer() {
    return CVPixelBufferCreateWithBytes(static_cast<std::size_t>(width), static_cast<std::size_t>(height),
                                        kCVPixelFormatType_32BGRA, bytes.data(), static_cast<std::size_t>(width) * 4,
                                        {}, {});
  }
  int width;
  int height;
  std::vector<std::uint8_t> bytes;
};

SettingsDictionary h264(double width, double height, double bitRate = 0) {
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

/// The test tone, `count` samples from `from` on, all channels alike.
std::shared_ptr<CMSampleBuffer> toneBuffer(int rate, int channels, std::int64_t from, std::int64_t count,
                                           const CMTime& time) {
  const Sound tone = makeTone(rate, static_cast<double>(from) / rate, static_cast<double>(count) / rate);
  std::vector<std::int16_t> values;
  for (std::int64_t i = 0; i < count; ++i) {
    values.insert(values.end(), static_cast<std::size_t>(channels),
                  static_cast<std::int16_t>(std::lround(tone.samples.at(static_cast<std::size_t>(i)) * 32'000)));
  }
  std::shared_ptr<CMSampleBuffer> buffer;
  EXPECT_EQ(
      CMSampleBufferCreate(CMBlockBuffer::make(values.data(), values.size() * 2), true, {},
                           CMFormatDescription::pcm(rate, static_cast<std::uint32_t>(channels), 16),
                           static_cast<std::size_t>(count), {{CMTime(1, rate), time, kCMTimeInvalid}}, {}, &buffer),
      noErr);
  return buffer;
}

bool waitUntilReady(const AVAssetWriterInput& input) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!input.isReadyForMoreMediaData()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

/// Finishes and waits.
AVAssetWriterStatus finish(AVAssetWriter& writer) {
  auto ended = std::make_shared<std::promise<void>>();
  writer.finishWriting([ended] { ended->set_value(); });
  EXPECT_EQ(ended->get_future().wait_for(patience), std::future_status::ready) << "the writer did not end";
  return writer.status();
}

class Writer : public testing::Test {
 protected:
  /// A started writer with one input for pictures.
  void start(const SettingsDictionary& settings, const CMTime& at = kCMTimeZero,
             AVFileType type = AVFileTypeQuickTimeMovie, const CGAffineTransform& transform = {}) {
    writer_ = AVAssetWriter::make(URL(file_), type).value();
    input_ = AVAssetWriterInput::make(settings.find(AVVideoCodecKey) != nullptr ? AVMediaTypeVideo : AVMediaTypeAudio,
                                      settings);
    input_->setTransform(transform);
    adaptor_ = AVAssetWriterInputPixelBufferAdaptor::make(input_);
    ASSERT_TRUE(writer_->canAdd(*input_));
    writer_->add(input_);
    ASSERT_TRUE(writer_->startWriting());
    writer_->startSession(at);
  }
  bool append(int number, const CMTime& time, int width = 160, int height = 90) {
    EXPECT_TRUE(waitUntilReady(*input_)) << "no room in time";
    CodedPixels pixels(width, height, number);
    const bool appended = adaptor_->append(pixels.buffer(), time);
    std::fill(pixels.bytes.begin(), pixels.bytes.end(), 0);  // consumed
    return appended;
  }

  TemporaryDirectory directory_;
  fs::path file_ = directory_.path() / "made.mov";
  std::shared_ptr<AVAssetWriter> writer_;
  std::shared_ptr<AVAssetWriterInput> input_;
  std::shared_ptr<AVAssetWriterInputPixelBufferAdaptor> adaptor_;
};

TEST_F(Writer, GivesEachPictureItsTime) {
  const std::vector<std::int64_t> times{30, 50, 130, 160, 240, 430, 440, 460, 480, 500, 900};
  start(h264(160, 90, 400'000), CMTime(30, 600), AVFileTypeQuickTimeMovie, {0, 1, -1, 0, 90, 0});
  EXPECT_TRUE(append(99, CMTime(20, 600))) << "before the session: taken, but not written";
  for (std::size_t i = 0; i < times.size(); ++i) EXPECT_TRUE(append(static_cast<int>(i), CMTime(times[i], 600)));
  EXPECT_FALSE(fs::exists(file_)) << "no name before it is whole";
  ASSERT_EQ(finish(*writer_), AVAssetWriterStatus::completed) << writer_->error()->description();

  const MediaJudge judge(file_);
  const auto pictures = judge.pictures();
  ASSERT_EQ(pictures.size(), times.size());
  for (std::size_t i = 0; i < times.size(); ++i) {
    EXPECT_EQ(pictures[i].number, static_cast<int>(i));
    EXPECT_NEAR(pictures[i].seconds, static_cast<double>(times[i]) / 600, 1e-4);
  }
  EXPECT_EQ(judge.stream("video").rotation, 90);
  EXPECT_EQ(judge.stream("video").tag, "avc1");
  EXPECT_EQ(judge.warnings(), "");
  const auto [length, scale] = judge.movieHeaderDuration();
  EXPECT_DOUBLE_EQ(static_cast<double>(length) / static_cast<double>(scale), (900 + 400) / 600.0)
      << "the last picture is shown as long as the one before it";
  const auto track = AVAsset::make(URL(file_))->tracks(AVMediaTypeVideo).front();
  EXPECT_EQ(track->timeRange().start, CMTime(30, 600)) << "the time before the session stays empty";
}

struct ColourCase {
  std::string name;
  std::array<std::uint8_t, 3> bgr;
  int width;
  int height;
  SettingsDictionary attachments;
  std::string matrix;
  std::string range;
  friend std::ostream& operator<<(std::ostream& out, const ColourCase& c) { return out << c.name; }
};

class WriterColours : public Writer, public testing::WithParamInterface<ColourCase> {};

TEST_P(WriterColours, ComeBackAsTheyWere) {
  const ColourCase& c = GetParam();
  start(h264(c.width, c.height));
  CodedPixels pixels(c.width, c.height, 0);
  for (std::size_t i = 0; i < pixels.bytes.size(); ++i) pixels.bytes[i] = i % 4 < 3 ? c.bgr.at(i % 4) : 0;
  const auto buffer = pixels.buffer();
  buffer->setAttachments(c.attachments);
  EXPECT_TRUE(adaptor_->append(buffer, kCMTimeZero));
  ASSERT_EQ(finish(*writer_), AVAssetWriterStatus::completed);
  const auto stream = MediaJudge(file_).stream("video");
  EXPECT_EQ(stream.colorSpace, c.matrix);
  EXPECT_EQ(stream.colorRange, c.range);
  // zscale goes by the tags, with no shortcut.
  const auto shown = runProgram({"ffmpeg", "-v", "error", "-i", file_, "-vf",
                                 "zscale=f=bilinear,format=gbrp,format=bgr24", "-f", "rawvideo", "-"});
  ASSERT_EQ(shown.standardOutput.size(), static_cast<std::size_t>(stream.width * stream.height * 3)) << shown;
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(static_cast<std::uint8_t>(shown.standardOutput[i + 3 * 50]), c.bgr.at(i), 4) << "colour " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Matrices, WriterColours,
    testing::Values(
        ColourCase{"small_pictures_by_BT601", {40, 90, 200}, 160, 90, {}, "smpte170m", "tv"},
        ColourCase{"large_ones_by_BT709", {200, 60, 50}, 1280, 720, {}, "bt709", "tv"},
        ColourCase{"odd_sizes", {30, 160, 60}, 161, 91, {}, "smpte170m", "tv"},
        ColourCase{"by_attachment_BT709_in_full_range",
                   {255, 0, 0},
                   160,
                   90,
                   {{kCVImageBufferYCbCrMatrixKey, 1}, {kCVImageBufferFullRangeKey, true}},
                   "bt709",
                   "pc"},
        ColourCase{
            "by_attachment_BT2020", {60, 180, 90}, 160, 90, {{kCVImageBufferYCbCrMatrixKey, 9}}, "bt2020nc", "tv"}),
    [](const auto& testCase) { return testCase.param.name; });

TEST_F(Writer, RoundsOddSizesUpAndScalesOtherOnes) {
  start(h264(161, 91), kCMTimeZero, AVFileTypeMPEG4);
  EXPECT_TRUE(append(1, CMTime(0, 30), 161, 91));
  EXPECT_TRUE(append(2, CMTime(1, 30), 320, 180));
  ASSERT_EQ(finish(*writer_), AVAssetWriterStatus::completed) << writer_->error()->description();
  const auto stream = MediaJudge(file_).stream("video");
  EXPECT_EQ(stream.width, 162);
  EXPECT_EQ(stream.height, 92);
  EXPECT_THAT(numbersOf(MediaJudge(file_).pictures()), testing::ElementsAre(1, 2));
}

TEST_F(Writer, MakesAppendsWaitRatherThanHoldingPictures) {
  start(h264(1920, 1080));
  // Pictures of noise, each unlike the one before, take the encoder far longer than it takes to hand them over.
  std::mt19937 noise(1);
  std::array<std::vector<std::uint32_t>, 2> pixels;
  std::array<std::shared_ptr<CVPixelBuffer>, 2> pictures;
  for (std::size_t i = 0; i < 2; ++i) {
    pixels[i].resize(1920 * 1080 * 3 / 2 / sizeof(std::uint32_t));
    std::generate(pixels[i].begin(), pixels[i].end(), std::ref(noise));
    auto* const luma = reinterpret_cast<std::uint8_t*>(pixels[i].data());
    pictures[i] = CVPixelBufferCreateWithPlanarBytes(1920, 1080, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, luma,
                                                     1920, luma + 1920 * 1080, 1920, nullptr);
  }
  constexpr int most = 1000;
  int taken = 0;
  for (; taken < most && input_->isReadyForMoreMediaData(); ++taken)
    adaptor_->append(pictures[taken % 2], CMTime(taken, 30));
  EXPECT_LT(taken, most) << "there has to be a time without room";
  writer_->cancelWriting();
  EXPECT_TRUE(input_->isReadyForMoreMediaData()) << "nobody waits for ever";
  EXPECT_FALSE(adaptor_->append(pictures[0], CMTime(taken, 30)));
  EXPECT_EQ(finish(*writer_), AVAssetWriterStatus::cancelled);
  EXPECT_TRUE(fs::is_empty(directory_.path()));
}

struct SoundCase {
  std::string name;
  int rate;
  int channels;
  friend std::ostream& operator<<(std::ostream& out, const SoundCase& c) { return out << c.name; }
};

class WriterSound : public Writer, public testing::WithParamInterface<SoundCase> {};

TEST_P(WriterSound, IsConvertedToTheSampleAndStartsAtZero) {
  const auto [name, rate, channels] = GetParam();
  start(aac(44'100, 2), kCMTimeZero, AVFileTypeAppleM4A);
  // Two seconds and a little, in portions of all sizes, without valid times.
  const std::int64_t total = 2 * rate + 777;
  for (std::int64_t at = 0, size = 1; at < total; at += size) {
    size = std::min<std::int64_t>(size * 3 % 5000 + 1, total - at);
    ASSERT_TRUE(waitUntilReady(*input_));
    ASSERT_TRUE(input_->append(toneBuffer(rate, channels, at, size, kCMTimeInvalid)));
  }
  ASSERT_EQ(finish(*writer_), AVAssetWriterStatus::completed) << writer_->error()->description();

  const auto stream = MediaJudge(file_).stream("audio");
  EXPECT_EQ(stream.sampleRate, 44'100);
  EXPECT_EQ(stream.channels, 2);
  const auto track = AVAsset::make(URL(file_))->tracks(AVMediaTypeAudio).front();
  const std::int64_t expected = (total * 44'100 + rate / 2) / rate;
  EXPECT_EQ(track->timeRange().end(), CMTime(expected, 44'100));
  const Sound sound = MediaJudge(file_).sound();
  const auto lag = lagMilliseconds(makeTone(16'000, 0, 2), sound.part(0, 2));
  ASSERT_TRUE(lag);
  EXPECT_NEAR(*lag, 0, 0.1);
  const double inBoth = std::sqrt(2.0);  // as the judge folds two equal channels
  EXPECT_NEAR(sound.part(0.1, 1.9).level() / inBoth * 32'768 / 32'000, makeTone(16'000, 0.1, 1.8).level(), 0.005);
}

INSTANTIATE_TEST_SUITE_P(Sources, WriterSound,
                         testing::Values(SoundCase{"at_the_same_rate", 44'100, 2}, SoundCase{"at_48000", 48'000, 2},
                                         SoundCase{"in_mono_at_16000", 16'000, 1}),
                         [](const auto& testCase) { return testCase.param.name; });

TEST_F(Writer, LosesNoneOfSixChannels) {
  start(aac(48'000, 2), kCMTimeZero, AVFileTypeAppleM4A);
  const Sound tone = makeTone(48'000, 0, 6);
  std::vector<std::int16_t> values;  // each second in another channel
  for (std::size_t i = 0; i < tone.samples.size(); ++i) {
    for (std::size_t channel = 0; channel < 6; ++channel) {
      values.push_back(static_cast<std::int16_t>(i / 48'000 == channel ? std::lround(tone.samples[i] * 32'000) : 0));
    }
  }
  std::shared_ptr<CMSampleBuffer> buffer;
  ASSERT_EQ(CMSampleBufferCreate(CMBlockBuffer::make(values.data(), values.size() * 2), true, {},
                                 CMFormatDescription::pcm(48'000, 6, 16), tone.samples.size(), {}, {}, &buffer),
            noErr);
  EXPECT_TRUE(input_->append(buffer));
  ASSERT_EQ(finish(*writer_), AVAssetWriterStatus::completed);
  for (int second = 0; second < 6; ++second) EXPECT_EQ(toneSecondAt(MediaJudge(file_).sound(), second + 0.5), second);
}

TEST_F(Writer, PutsTimedSoundWhereItBelongs) {
  start(aac(48'000, 1), CMTime(1, 1), AVFileTypeMPEG4);
  const auto second = [](double s) { return std::llround(s * 48'000); };
  for (const auto& [from, to] : {std::pair{1.0, 2.0}, std::pair{2.5, 3.5}, std::pair{3.2, 4.2}}) {
    EXPECT_TRUE(input_->append(toneBuffer(48'000, 1, second(from), second(to - from), CMTime(second(from), 48'000))));
  }
  ASSERT_EQ(finish(*writer_), AVAssetWriterStatus::completed);
  const Sound sound = MediaJudge(file_).sound();
  for (const double t : {1.1, 1.8, 2.7, 3.4, 4.05}) EXPECT_EQ(toneSecondAt(sound, t), static_cast<int>(t)) << t;
  for (const double t : {0.5, 2.1, 2.35}) EXPECT_EQ(toneSecondAt(sound, t), -1) << t;
  const auto lag = lagMilliseconds(makeTone(16'000, 2.6, 1.5), sound.part(2.6, 4.1));
  ASSERT_TRUE(lag);
  EXPECT_NEAR(*lag, 0, 0.1);
}

TEST_F(Writer, WritesPicturesAndSoundTogether) {
  writer_ = AVAssetWriter::make(URL(file_), AVFileTypeMPEG4).value();
  const auto sound = AVAssetWriterInput::make(AVMediaTypeAudio, aac(48'000, 2));
  const auto unused = AVAssetWriterInput::make(AVMediaTypeAudio, aac(48'000, 2));
  input_ = AVAssetWriterInput::make(AVMediaTypeVideo, h264(160, 90));
  adaptor_ = AVAssetWriterInputPixelBufferAdaptor::make(input_);
  for (const auto& input : {sound, input_, unused}) writer_->add(input);
  writer_->setMetadata({{"title", "Two at once"}});
  ASSERT_TRUE(writer_->startWriting());
  writer_->startSession(kCMTimeZero);
  EXPECT_TRUE(sound->append(toneBuffer(48'000, 2, 0, 48'000, kCMTimeZero)));
  for (int i = 0; i < 30; ++i) EXPECT_TRUE(append(i, CMTime(i, 30)));
  ASSERT_EQ(finish(*writer_), AVAssetWriterStatus::completed) << writer_->error()->description();
  const MediaJudge judge(file_);
  EXPECT_EQ(judge.streams().size(), 2U) << "a track without samples is left out";
  EXPECT_EQ(judge.pictures().size(), 30U);
  EXPECT_EQ(toneSecondAt(judge.sound(), 0.5), 0);
  EXPECT_EQ(AVAsset::make(URL(file_))->metadata()["title"], "Two at once");
}

TEST_F(Writer, SaysWhenTheDiskIsFull) {
  const SmallFileSystem small(64);
  if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
  file_ = small.path() / "made.mov";
  start(h264(640, 360));
  CodedPixels pixels(640, 360, 0);
  int count = 0;
  do {
    ASSERT_LT(count, 2000) << "the failure must show";
    ASSERT_TRUE(waitUntilReady(*input_));
    for (std::size_t i = 0; i < pixels.bytes.size(); ++i)
      pixels.bytes[i] = static_cast<std::uint8_t>((i * i * 7 + static_cast<std::size_t>(count)) >> 3);
  } while (adaptor_->append(pixels.buffer(), CMTime(count++, 30)));
  EXPECT_TRUE(input_->isReadyForMoreMediaData());
  EXPECT_EQ(finish(*writer_), AVAssetWriterStatus::failed);
  EXPECT_EQ(writer_->error()->code(), static_cast<int>(AVError::diskFull));
  EXPECT_TRUE(fs::is_empty(small.path()));
}

TEST_F(Writer, LeavesNothingWhenItIsLetGo) {
  start(h264(160, 90));
  EXPECT_TRUE(append(0, kCMTimeZero));
  writer_.reset();
  EXPECT_FALSE(append(1, CMTime(1, 30)));
  adaptor_.reset();
  input_.reset();
  EXPECT_TRUE(fs::is_empty(directory_.path()));
}

struct MisuseCase {
  std::string name;
  void (*misuse)(AVAssetWriter&, AVAssetWriterInput&, AVAssetWriterInputPixelBufferAdaptor&);
  friend std::ostream& operator<<(std::ostream& out, const MisuseCase& c) { return out << c.name; }
};

class WriterMisuse : public Writer, public testing::WithParamInterface<MisuseCase> {};

TEST_P(WriterMisuse, FailsWithASentence) {
  writer_ = AVAssetWriter::make(URL(file_), AVFileTypeMPEG4).value();
  input_ = AVAssetWriterInput::make(AVMediaTypeVideo, h264(160, 90));
  adaptor_ = AVAssetWriterInputPixelBufferAdaptor::make(input_);
  GetParam().misuse(*writer_, *input_, *adaptor_);
  EXPECT_EQ(finish(*writer_), AVAssetWriterStatus::failed);
  ASSERT_TRUE(writer_->error());
  EXPECT_FALSE(writer_->error()->localizedDescription().empty());
  EXPECT_FALSE(fs::exists(file_));
}

using WriterInput = AVAssetWriterInput;
using Adaptor = AVAssetWriterInputPixelBufferAdaptor;
void startWith(AVAssetWriter& writer, WriterInput& input) {
  writer.add(std::shared_ptr<WriterInput>(std::shared_ptr<void>(), &input));
  EXPECT_TRUE(writer.startWriting());
}

INSTANTIATE_TEST_SUITE_P(
    Of, WriterMisuse,
    testing::Values(MisuseCase{"a_start_without_an_input", [](AVAssetWriter& writer, WriterInput&,
                                                              Adaptor&) { EXPECT_FALSE(writer.startWriting()); }},
                    MisuseCase{"samples_before_the_session",
                               [](AVAssetWriter& writer, WriterInput& input, Adaptor& adaptor) {
                                 startWith(writer, input);
                                 EXPECT_FALSE(adaptor.append(CodedPixels(160, 90, 0).buffer(), kCMTimeZero));
                               }},
                    MisuseCase{"a_session_before_zero",
                               [](AVAssetWriter& writer, WriterInput& input, Adaptor&) {
                                 startWith(writer, input);
                                 writer.startSession(CMTime(-1, 30));
                               }},
                    MisuseCase{"pictures_out_of_order",
                               [](AVAssetWriter& writer, WriterInput& input, Adaptor& adaptor) {
                                 startWith(writer, input);
                                 writer.startSession(kCMTimeZero);
                                 EXPECT_TRUE(adaptor.append(CodedPixels(160, 90, 0).buffer(), CMTime(5, 30)));
                                 EXPECT_FALSE(adaptor.append(CodedPixels(160, 90, 0).buffer(), CMTime(5, 30)));
                               }},
                    MisuseCase{"a_picture_without_a_time",
                               [](AVAssetWriter& writer, WriterInput& input, Adaptor& adaptor) {
                                 startWith(writer, input);
                                 writer.startSession(kCMTimeZero);
                                 EXPECT_FALSE(adaptor.append(CodedPixels(160, 90, 0).buffer(), kCMTimeInvalid));
                               }},
                    MisuseCase{"nothing_written",
                               [](AVAssetWriter& writer, WriterInput& input, Adaptor&) {
                                 startWith(writer, input);
                                 writer.startSession(kCMTimeZero);
                               }}),
    [](const auto& testCase) { return testCase.param.name; });

TEST_F(Writer, ThatDoesNotStartKeepsNobodyWaiting) {
  const auto writer = *AVAssetWriter::make(URL(directory_.path() / "out.mov"), AVFileTypeQuickTimeMovie);
  const auto input = AVAssetWriterInput::make(AVMediaTypeVideo, h264(160, 90, -1));
  const auto adaptor = AVAssetWriterInputPixelBufferAdaptor::make(input, {});
  writer->add(input);
  EXPECT_FALSE(writer->startWriting());
  EXPECT_EQ(writer->status(), AVAssetWriterStatus::failed);
  EXPECT_TRUE(input->isReadyForMoreMediaData());
  EXPECT_FALSE(adaptor->append(CodedPixels(160, 90, 0).buffer(), kCMTimeZero));
}

TEST_F(Writer, IsNotMadeWhereNothingCanBeWritten) {
  EXPECT_FALSE(AVAssetWriter::make(URL(directory_.path() / "missing" / "a.mov"), AVFileTypeQuickTimeMovie));
  EXPECT_FALSE(AVAssetWriter::make(URL(file_), "public.avi"));
  const auto m4a = AVAssetWriter::make(URL(file_), AVFileTypeAppleM4A).value();
  EXPECT_FALSE(m4a->canAdd(*AVAssetWriterInput::make(AVMediaTypeVideo, h264(160, 90))));
  EXPECT_FALSE(m4a->canAdd(*AVAssetWriterInput::make(AVMediaTypeAudio, {{AVFormatIDKey, kAudioFormatMPEG4AAC}})));
  EXPECT_TRUE(m4a->canAdd(*AVAssetWriterInput::make(AVMediaTypeAudio, {{AVFormatIDKey, kAudioFormatMPEG4AAC}},
                                                    CMFormatDescription::pcm(48'000, 2, 16))));
}

}  // namespace
}  // namespace clipworks::test
