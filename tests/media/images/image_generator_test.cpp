#include <clipworks/media/images/AVAssetImageGenerator.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/engine/pictures/StillImage.h>
#include <clipworks/media/composition/AVMutableComposition.h>

#include <tests/support/BarCode.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

using testing::ElementsAre;

constexpr int black = -1;
constexpr std::chrono::seconds deadline{60};

GreyPicture luma(const CGImage& image) {
  const auto& frame = image.still()->frame;
  GreyPicture grey{frame->width, frame->height, {}};
  for (int y = 0; y < frame->height; ++y) {
    const auto* row = frame->data[0] + static_cast<std::ptrdiff_t>(y) * frame->linesize[0];
    grey.pixels.insert(grey.pixels.end(), row, row + frame->width);
  }
  return grey;
}

int numberOf(const CGImage& image) {
  const auto code = BarCode::read(luma(image));
  return code ? code->number : black;
}

std::shared_ptr<AVAsset> assetOf(const ClipOptions& options) { return AVAsset::make(URL(BarCodeClip(options).path())); }

std::shared_ptr<AVAssetImageGenerator> exactGenerator(const std::shared_ptr<AVAsset>& asset) {
  auto generator = AVAssetImageGenerator::make(asset);
  generator->setRequestedTimeToleranceBefore(kCMTimeZero);
  generator->setRequestedTimeToleranceAfter(kCMTimeZero);
  return generator;
}

CMTime thirtieths(std::int64_t count) { return {count, 30}; }

std::shared_ptr<AVMutableComposition> edited() {
  const auto clip = assetOf({.frames = 60, .audioSeconds = 2.5});
  const auto track = clip->tracks(AVMediaTypeVideo).front();
  auto composition = AVMutableComposition::make();
  auto made = composition->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
  // 10 … 19 at half speed, a second of black, then 50 … 59 and half a second without pictures.
  EXPECT_TRUE(made->insertTimeRange({thirtieths(10), thirtieths(10)}, track, kCMTimeZero));
  made->scaleTimeRange({kCMTimeZero, thirtieths(10)}, thirtieths(20));
  EXPECT_TRUE(made->insertTimeRange({thirtieths(50), thirtieths(25)}, track, thirtieths(50)));
  return composition;
}

struct Shown {
  CMTime at;
  int number;
  CMTime since;
};

struct TimeCase {
  const char* name;
  std::shared_ptr<AVAsset> (*asset)();
  std::vector<Shown> shown;
};
std::ostream& operator<<(std::ostream& out, const TimeCase& c) { return out << c.name; }

class PictureAtTimeTest : public testing::TestWithParam<TimeCase> {};

TEST_P(PictureAtTimeTest, IsTheOneOnScreen) {
  const auto generator = exactGenerator(GetParam().asset());
  for (const Shown& shown : GetParam().shown) {
    SCOPED_TRACE(shown.at.seconds());
    CMTime since;
    const auto image = generator->copyCGImage(shown.at, &since);
    ASSERT_TRUE(image) << image.error().description();
    EXPECT_EQ(numberOf(**image), shown.number);
    EXPECT_EQ(since, shown.since) << since.seconds();
  }
}

INSTANTIATE_TEST_SUITE_P(Assets, PictureAtTimeTest,
                         testing::Values(TimeCase{"of a clip whose sound goes on after its pictures",
                                                  [] { return assetOf({.frames = 60, .audioSeconds = 2.5}); },
                                                  {{kCMTimeZero, 0, kCMTimeZero},
                                                   {CMTime(33'333, 1'000'000), 0, kCMTimeZero},
                                                   {thirtieths(1), 1, thirtieths(1)},
                                                   {CMTime(59'999, 30'000), 59, thirtieths(59)},
                                                   {CMTime(24, 10), 59, thirtieths(59)}}},
                                         TimeCase{"of a clip that begins late and runs unevenly",
                                                  [] {
                                                    return assetOf({.frameTimes = {300, 400, 900, 1000},
                                                                    .lastFrameLength = 500,
                                                                    .timescale = 1000,
                                                                    .audioCodec = ""});
                                                  },
                                                  {{kCMTimeZero, 0, CMTime(3, 10)},
                                                   {CMTime(899, 1000), 1, CMTime(4, 10)},
                                                   {CMTime(9, 10), 2, CMTime(9, 10)},
                                                   {CMTime(15, 10), 3, CMTime(1, 1)}}},
                                         TimeCase{
                                             "of a composition slowed down, with a hole and without its last pictures",
                                             [] { return std::shared_ptr<AVAsset>(edited()); },
                                             {{kCMTimeZero, 10, kCMTimeZero},
                                              {thirtieths(3), 11, thirtieths(2)},
                                              {CMTime(19'999, 30'000), 19, thirtieths(18)},
                                              {thirtieths(20), black, thirtieths(20)},
                                              {CMTime(49'999, 30'000), black, thirtieths(20)},
                                              {thirtieths(50), 50, thirtieths(50)},
                                              {thirtieths(74), 59, thirtieths(59)},
                                              {thirtieths(75), 59, thirtieths(59)}}}));

TEST(ImageGeneratorTest, FailsWhereThereIsNoPicture) {
  const auto code = [](const std::shared_ptr<AVAsset>& asset, const CMTime& time) {
    const auto image = exactGenerator(asset)->copyCGImage(time);
    return image ? 0 : image.error().code();
  };
  const auto clip = assetOf({.frames = 60, .audioSeconds = 1});
  for (const CMTime& time : {CMTime(-1, 600), CMTime(2001, 1000), kCMTimeInvalid, kCMTimePositiveInfinity}) {
    EXPECT_EQ(code(clip, time), static_cast<int>(AVError::invalidTimeRange)) << time.seconds();
  }
  EXPECT_EQ(code(clip, CMTime(2, 1)), 0) << "the end gives the last picture";
  EXPECT_EQ(code(assetOf({.frames = 0, .audioSeconds = 1}), kCMTimeZero),
            static_cast<int>(AVError::invalidSourceMedia));
  EXPECT_EQ(code(AVAsset::make(URL("/nowhere.mp4")), kCMTimeZero), static_cast<int>(AVError::invalidSourceMedia));
  EXPECT_EQ(code(nullptr, kCMTimeZero), static_cast<int>(AVError::invalidSourceMedia));
}

TEST(ImageGeneratorTest, SnapsToAnAccessPointWithinTheToleranceOnly) {
  const auto generator = AVAssetImageGenerator::make(assetOf({.frames = 60, .gop = 30, .audioCodec = ""}));
  const auto numberAt = [&](std::int64_t picture) { return numberOf(**generator->copyCGImage(thirtieths(picture))); };
  EXPECT_EQ(numberAt(10), 0);
  EXPECT_EQ(numberAt(20), 30) << "the nearer one";
  generator->setRequestedTimeToleranceAfter(thirtieths(9));
  EXPECT_EQ(numberAt(20), 0);
  generator->setRequestedTimeToleranceBefore(thirtieths(19));
  EXPECT_EQ(numberAt(20), 20);
  EXPECT_EQ(numberAt(21), 30);
}

struct ShapeCase {
  const char* name;
  ClipOptions options;
  CGAffineTransform transform;  // of the composition's track
  CGSize maximumSize;
  int width, height;
  std::optional<Orientation> seen;
};
std::ostream& operator<<(std::ostream& out, const ShapeCase& c) { return out << c.name; }

class ImageShapeTest : public testing::TestWithParam<ShapeCase> {};

TEST_P(ImageShapeTest, IsUprightAndFitsTheBox) {
  const auto& shape = GetParam();
  const auto clip = assetOf(shape.options);
  auto composition = AVMutableComposition::make();
  auto track = composition->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
  ASSERT_TRUE(
      track->insertTimeRange({kCMTimeZero, clip->duration()}, clip->tracks(AVMediaTypeVideo).front(), kCMTimeZero));
  track->setPreferredTransform(shape.transform);
  const auto generator = exactGenerator(composition);
  generator->setAppliesPreferredTrackTransform(true);
  generator->setMaximumSize(shape.maximumSize);
  const auto image = generator->copyCGImage(kCMTimeZero);
  ASSERT_TRUE(image) << image.error().description();
  EXPECT_EQ((*image)->width(), static_cast<std::size_t>(shape.width));
  EXPECT_EQ((*image)->height(), static_cast<std::size_t>(shape.height));
  const auto code = BarCode::read(luma(**image));
  EXPECT_EQ(code ? std::optional(code->orientation) : std::nullopt, shape.seen);
}

const ClipOptions small{.frames = 2, .audioCodec = ""};
const ClipOptions wide{.frames = 2, .audioCodec = "", .outputArguments = {"-aspect", "32:9"}};
const ClipOptions odd{.width = 321, .height = 181, .frames = 2, .pixelFormat = "yuv444p", .audioCodec = ""};

INSTANTIATE_TEST_SUITE_P(
    Shapes, ImageShapeTest,
    testing::Values(
        ShapeCase{"as it is", small, CGAffineTransformIdentity, {0, 0}, 320, 180, Orientation{false, 0}},
        ShapeCase{"a quarter turn", small, {0, 1, -1, 0, 180, 0}, {0, 0}, 180, 320, Orientation{false, 1}},
        ShapeCase{"a mirror of odd sides", odd, {-1, 0, 0, 1, 321, 0}, {0, 0}, 321, 181, Orientation{true, 0}},
        ShapeCase{"a turn into a box", small, {0, -1, 1, 0, 0, 320}, {100, 100}, 56, 100, Orientation{false, 3}},
        ShapeCase{"never enlarged", small, CGAffineTransformIdentity, {4000, 4000}, 320, 180, Orientation{false, 0}},
        ShapeCase{
            "one side of the box is free", small, CGAffineTransformIdentity, {0, 91}, 162, 91, Orientation{false, 0}},
        ShapeCase{
            "pixels twice as wide as high", wide, CGAffineTransformIdentity, {0, 0}, 640, 180, Orientation{false, 0}},
        ShapeCase{"an eighth of a turn",
                  small,
                  {M_SQRT1_2, M_SQRT1_2, -M_SQRT1_2, M_SQRT1_2, 0, 0},
                  {0, 0},
                  354,
                  354,
                  std::nullopt},
        ShapeCase{"a transform that leaves nothing is none",
                  small,
                  {1, 1, 1, 1, 0, 0},
                  {0, 0},
                  320,
                  180,
                  Orientation{false, 0}}));

struct KindCase {
  const char* name;
  ClipOptions options;
  int primaries, transfer, matrix;
};
std::ostream& operator<<(std::ostream& out, const KindCase& c) { return out << c.name; }

class ImageKindTest : public testing::TestWithParam<KindCase> {};

TEST_P(ImageKindTest, HasEightBitsAndSaysHowItsNumbersAreMeant) {
  const auto image = exactGenerator(assetOf(GetParam().options))->copyCGImage(thirtieths(3));
  ASSERT_TRUE(image) << image.error().description();
  const auto& frame = (*image)->still()->frame;
  EXPECT_EQ(frame->format, AV_PIX_FMT_YUV420P);
  EXPECT_EQ(frame->color_primaries, GetParam().primaries);
  EXPECT_EQ(frame->color_trc, GetParam().transfer);
  EXPECT_EQ(frame->colorspace, GetParam().matrix);
  EXPECT_EQ(frame->color_range, AVCOL_RANGE_MPEG);
  EXPECT_EQ(numberOf(**image), 3);
}

const ClipOptions deep{
    .frames = 5, .videoCodec = "libx265", .preset = "ultrafast", .pixelFormat = "yuv420p10le", .audioCodec = ""};
ClipOptions hlg() {
  ClipOptions options = deep;
  options.outputArguments = {"-color_primaries", "bt2020", "-color_trc", "arib-std-b67", "-colorspace", "bt2020nc"};
  return options;
}

INSTANTIATE_TEST_SUITE_P(Kinds, ImageKindTest,
                         testing::Values(KindCase{"8 bits without a word on colour",
                                                  ClipOptions{.frames = 5, .audioCodec = ""}, AVCOL_PRI_SMPTE170M,
                                                  AVCOL_TRC_SMPTE170M, AVCOL_SPC_SMPTE170M},
                                         KindCase{"10 bits of standard range", deep, AVCOL_PRI_SMPTE170M,
                                                  AVCOL_TRC_SMPTE170M, AVCOL_SPC_SMPTE170M},
                                         KindCase{"10 bits of high dynamic range", hlg(), AVCOL_PRI_BT709,
                                                  AVCOL_TRC_BT709, AVCOL_SPC_BT709}));

// Green of BT.601's 525 lines is yellower than that of sRGB, which stills are read as: 74, 252, 0 by zscale's own
// reckoning.
TEST(ImageGeneratorTest, ColoursToldByOtherPrimariesThanThoseOfStillsAreConverted) {
  const TemporaryDirectory directory;
  const auto greenOf = [&](const char* primaries) {
    const auto clip = directory.file(std::string(primaries) + ".mp4");
    const ProgramResult made = runProgram(
        {"ffmpeg", "-v", "error", "-f", "lavfi", "-i",
         "color=0x00ff00:s=96x64:d=0.2,format=rgb24,scale=out_color_matrix=bt601,format=yuv420p", "-c:v", "libx264",
         "-qp", "1", "-color_primaries", primaries, "-color_trc", "bt709", "-colorspace", "smpte170m", clip});
    EXPECT_TRUE(made.succeeded()) << made;
    const auto image = exactGenerator(AVAsset::make(URL(clip)))->copyCGImage(kCMTimeZero);
    const auto bytes = (*image)->copyData();
    const std::size_t at = bytes.size() / 2;
    return std::array<int, 3>{bytes[at + 2], bytes[at + 1], bytes[at]};
  };
  const auto converted = greenOf("smpte170m");
  EXPECT_NEAR(converted[0], 74, 3);
  EXPECT_NEAR(converted[1], 252, 3);
  EXPECT_LT(greenOf("bt709")[0], 4);
}

// What x265 writes for a display of 0 to 400 cd/m² and a brightest pixel of 300, and the boxes that say the same:
// ISO/IEC 14496-12, 12.1.5.
constexpr const char* dimMastering =
    "hdr-opt=0:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(4000000,50):max-cll=300,100";
constexpr char dimBoxes[] =
    "\0\0\0\x20mdcv\x33\xC2\x86\xC4\x1D\x4C\x0B\xB8\x84\xD0\x3E\x80\x3D\x13\x40\x42\x00\x3D\x09\x00\0\0\0\x32"
    "\0\0\0\x0C"
    "clli\x01\x2C\0\x64";

/// The movie with boxes added to its sample description. Its index lies behind its samples.
std::filesystem::path described(const std::filesystem::path& movie, const std::filesystem::path& copy,
                                const std::string& boxes) {
  std::ifstream in(movie, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  const auto sizeAt = [&](std::size_t at) {
    std::uint32_t size = 0;
    for (std::size_t i = at; i < at + 4; ++i) size = size << 8 | static_cast<std::uint8_t>(bytes[i]);
    return size;
  };
  std::size_t at = bytes.rfind("moov") - 4;
  std::size_t end = 0;
  for (const char* name : {"moov", "trak", "mdia", "minf", "stbl", "stsd", "hvc1"}) {
    at = bytes.find(name, at) - 4;
    const std::size_t size = sizeAt(at);
    end = at + size;
    for (std::size_t i = 0; i < 4; ++i) bytes.at(at + i) = static_cast<char>((size + boxes.size()) >> (24 - 8 * i));
  }
  std::ofstream(copy, std::ios::binary) << bytes.insert(end, boxes);
  return copy;
}

TEST(ImageGeneratorTest, TakesTheBrightnessOfAProgrammeFromWhereverItIsSaid) {
  ClipOptions options = deep;
  options.outputArguments = {"-color_primaries", "bt2020", "-color_trc", "smpte2084", "-colorspace", "bt2020nc"};
  const BarCodeClip silent(options);
  options.outputArguments.insert(options.outputArguments.end(), {"-x265-params", dimMastering});
  const auto pixelsOf = [](const std::filesystem::path& clip) {
    return (*exactGenerator(AVAsset::make(URL(clip)))->copyCGImage(thirtieths(3)))->copyData();
  };
  const TemporaryDirectory directory;
  const std::string boxes(dimBoxes, sizeof dimBoxes - 1);
  const auto container = pixelsOf(described(silent.path(), directory.file("container.mp4"), boxes));
  EXPECT_EQ(container, pixelsOf(BarCodeClip(options).path())) << "in the container, in the pictures";
  EXPECT_NE(container, pixelsOf(silent.path())) << "nowhere";
}

/// What the handler was told, call by call.
struct Told {
  std::vector<std::int64_t> times;
  std::vector<int> numbers;
  std::vector<AVAssetImageGeneratorResult> results;
};

class RequestsTest : public testing::Test {
 protected:
  /// Asks for `times` and lets the generator go; `eachTime` is called from the handler.
  Told ask(std::shared_ptr<AVAssetImageGenerator> generator, const std::vector<CMTime>& times,
           const std::function<void(AVAssetImageGenerator&)>& eachTime = {}) {
    auto told = std::make_shared<Told>();
    auto gone = std::make_shared<std::promise<void>>();
    // Set when the handler is destroyed.
    const std::shared_ptr<void> guard(nullptr, [gone](void*) { gone->set_value(); });
    std::weak_ptr<AVAssetImageGenerator> weak = generator;
    generator->generateCGImagesAsynchronously(
        times, [=, guard = guard, busy = std::make_shared<std::atomic<int>>(0)](
                   const CMTime& time, const std::shared_ptr<const CGImage>& image, const CMTime&,
                   AVAssetImageGeneratorResult result, const std::optional<NSError>& error) {
          EXPECT_EQ(busy->fetch_add(1), 0) << "one call at a time";
          EXPECT_EQ(image == nullptr, result != AVAssetImageGeneratorResult::succeeded);
          EXPECT_EQ(error.has_value(), result != AVAssetImageGeneratorResult::succeeded);
          told->times.push_back(time.value);
          told->numbers.push_back(image == nullptr ? -2 : numberOf(*image));
          told->results.push_back(result);
          if (eachTime) eachTime(*weak.lock());
          busy->fetch_sub(1);
        });
    generator.reset();
    const_cast<std::shared_ptr<void>&>(guard).reset();
    EXPECT_EQ(gone->get_future().wait_for(deadline), std::future_status::ready) << "the handler was not let go";
    return *told;
  }
};

constexpr auto succeeded = AVAssetImageGeneratorResult::succeeded;
constexpr auto failed = AVAssetImageGeneratorResult::failed;
constexpr auto cancelled = AVAssetImageGeneratorResult::cancelled;

TEST_F(RequestsTest, AreServedInTheirOrderAlsoWhenNobodyElseHoldsTheGenerator) {
  const auto told = ask(exactGenerator(assetOf({.audioCodec = ""})),
                        {thirtieths(40), thirtieths(7), thirtieths(700), thirtieths(7), thirtieths(59), thirtieths(41)},
                        [](AVAssetImageGenerator& generator) {
                          EXPECT_TRUE(generator.copyCGImage(thirtieths(5)))
                              << "another request from within the handler";
                        });
  EXPECT_THAT(told.times, ElementsAre(40, 7, 700, 7, 59, 41));
  EXPECT_THAT(told.numbers, ElementsAre(40, 7, -2, 7, 59, 41));
  EXPECT_THAT(told.results, ElementsAre(succeeded, succeeded, failed, succeeded, succeeded, succeeded));
}

TEST_F(RequestsTest, ThatAreCancelledStillGetTheirCalls) {
  const auto generator = exactGenerator(assetOf({.audioCodec = ""}));
  const auto told = ask(generator, {thirtieths(1), thirtieths(2), thirtieths(3)},
                        [](AVAssetImageGenerator& self) { self.cancelAllCGImageGeneration(); });
  EXPECT_THAT(told.times, ElementsAre(1, 2, 3));
  EXPECT_THAT(told.results, ElementsAre(succeeded, cancelled, cancelled));
  EXPECT_THAT(ask(generator, {thirtieths(4)}).numbers, ElementsAre(4)) << "later requests are not concerned";
}

TEST(ImageGeneratorDeathTest, AHandlerThatBlocksForEverDoesNotHoldUpTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const BarCodeClip clip({.frames = 2, .audioCodec = ""});
  EXPECT_EXIT(
      {
        std::promise<void> called;
        const auto generator = exactGenerator(AVAsset::make(URL(clip.path())));
        generator->generateCGImagesAsynchronously({kCMTimeZero}, [&](auto&&...) {
          called.set_value();
          std::promise<void>().get_future().wait();
        });
        if (called.get_future().wait_for(deadline) != std::future_status::ready) std::exit(1);
        EXPECT_TRUE(generator->copyCGImage(kCMTimeZero)) << "nor other requests";
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace clipworks::test
