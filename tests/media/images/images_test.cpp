#include <clipworks/media/images/AVAssetImageGenerator.h>

#include <array>
#include <atomic>

#include <clipworks/engine/pictures/StillImage.h>
#include <clipworks/media/composition/AVMutableComposition.h>
#include <clipworks/media/images/UIImage.h>

#include <tests/media/MediaTesting.h>
#include <tests/media/composition/FakeTrack.h>

namespace clipworks::test {
namespace {

GreyPicture luma(const CGImage& image) {
  const auto& frame = image.still()->frame;
  return greyOf(frame->data[0], image.width(), image.height(), static_cast<std::size_t>(frame->linesize[0]));
}

constexpr int black = -1;
int numberOf(const CGImage& image) { return BarCode::read(luma(image)).value_or(BarCode{black, {}}).number; }

std::shared_ptr<AVAssetImageGenerator> exactGenerator(const std::shared_ptr<AVAsset>& asset) {
  auto generator = AVAssetImageGenerator::make(asset);
  generator->setRequestedTimeToleranceBefore(kCMTimeZero);
  generator->setRequestedTimeToleranceAfter(kCMTimeZero);
  return generator;
}

CMTime thirtieths(std::int64_t count) { return {count, 30}; }

std::shared_ptr<AVMutableComposition> composed() {
  const auto track = assetOf({.frames = 60, .audioSeconds = 2.5})->tracks(AVMediaTypeVideo).front();
  auto composition = AVMutableComposition::make();
  auto made = composition->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
  // 10 … 19 at half speed, a second of black, then 50 … 59 and half a second without pictures.
  EXPECT_TRUE(made->insertTimeRange({thirtieths(10), thirtieths(10)}, track, kCMTimeZero));
  made->scaleTimeRange({kCMTimeZero, thirtieths(10)}, thirtieths(20));
  EXPECT_TRUE(made->insertTimeRange({thirtieths(50), thirtieths(25)}, track, thirtieths(50)));
  return composition;
}

/// "number since time, " of the pictures at `times`.
std::string shownAt(const std::vector<CMTime>& times, const std::shared_ptr<AVAsset>& asset) {
  const auto generator = exactGenerator(asset);
  std::string shown;
  for (const CMTime& time : times) {
    CMTime since;
    const auto image = generator->copyCGImage(time, &since);
    shown += (image ? std::to_string(numberOf(**image)) : failureOf(image)) + " since " + text(since) + ", ";
  }
  return shown;
}

TEST(PictureAtTime, IsTheOneOnScreen) {
  EXPECT_EQ(shownAt({kCMTimeZero, {33'333, 1'000'000}, thirtieths(1), {59'999, 30'000}, {24, 10}},
                    assetOf({.frames = 60, .audioSeconds = 2.5})),
            "0 since 0, 0 since 0, 1 since 1/30, 59 since 59/30, 59 since 59/30, ");
  // Pictures begin late and run unevenly.
  ClipOptions late{.frameTimes = {300, 400, 900, 1000}, .lastFrameLength = 500, .timescale = 1000, .audioCodec = ""};
  EXPECT_EQ(shownAt({kCMTimeZero, {899, 1000}, {9, 10}, {15, 10}}, assetOf(late)),
            "0 since 3/10, 1 since 2/5, 2 since 9/10, 3 since 1, ");
  EXPECT_EQ(shownAt({kCMTimeZero,
                     thirtieths(3),
                     {19'999, 30'000},
                     thirtieths(20),
                     {49'999, 30'000},
                     thirtieths(50),
                     thirtieths(74),
                     thirtieths(75)},
                    composed()),
            "10 since 0, 11 since 1/15, 19 since 3/5, -1 since 2/3, -1 since 2/3, 50 since 5/3, 59 since 59/30, "
            "59 since 59/30, ");
}

TEST(ImageGeneratorTest, FailsWhereThereIsNoPicture) {
  const auto failure = [](const std::shared_ptr<AVAsset>& asset, const CMTime& time) {
    return failureOf(exactGenerator(asset)->copyCGImage(time));
  };
  const auto clip = assetOf({.frames = 60, .audioSeconds = 1});
  for (const CMTime& time : {CMTime(-1, 600), CMTime(2001, 1000), kCMTimeInvalid, kCMTimePositiveInfinity}) {
    EXPECT_THAT(failure(clip, time), hasCode(AVError::invalidTimeRange)) << time.seconds();
  }
  EXPECT_EQ(failure(clip, CMTime(2, 1)), "") << "the end gives the last picture";
  for (const auto& none : {assetOf({.frames = 0, .audioSeconds = 1}), assetAt("/nowhere.mp4"), {}}) {
    EXPECT_THAT(failure(none, kCMTimeZero), hasCode(AVError::invalidSourceMedia));
  }
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

TEST(ImageGeneratorTest, ImagesAreUprightAndFitTheBox) {
  const ClipOptions wide{.frames = 2, .audioCodec = "", .outputArguments = {"-aspect", "32:9"}};
  const ClipOptions odd{.width = 321, .height = 181, .frames = 2, .pixelFormat = "yuv444p", .audioCodec = ""};
  const CGAffineTransform anEighth{M_SQRT1_2, M_SQRT1_2, -M_SQRT1_2, M_SQRT1_2, 0, 0};
  struct {
    const char* name;
    CGSize size;
    std::optional<Orientation> seen = Orientation();
    CGAffineTransform transform = CGAffineTransformIdentity;  // of the composition's track
    CGSize maximumSize = {0, 0};
    ClipOptions clip = {.frames = 2, .audioCodec = ""};
  } const cases[] = {
      {"as it is", {320, 180}},
      {"a quarter turn", {180, 320}, Orientation{false, 1}, {0, 1, -1, 0, 180, 0}},
      {"a mirror of odd sides", {321, 181}, Orientation{true, 0}, {-1, 0, 0, 1, 321, 0}, {0, 0}, odd},
      {"a turn into a box", {56, 100}, Orientation{false, 3}, {0, -1, 1, 0, 0, 320}, {100, 100}},
      {"never enlarged", {320, 180}, Orientation(), {}, {4000, 4000}},
      {"one side of the box is free", {162, 91}, Orientation(), {}, {0, 91}},
      {"pixels twice as wide as high", {640, 180}, Orientation(), {}, {0, 0}, wide},
      {"an eighth of a turn", {354, 354}, std::nullopt, anEighth},
      {"a transform that leaves nothing is none", {320, 180}, Orientation(), {1, 1, 1, 1, 0, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto clip = assetOf(c.clip);
    auto composition = AVMutableComposition::make();
    auto track = composition->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
    const auto source = clip->tracks(AVMediaTypeVideo).front();
    ASSERT_TRUE(track->insertTimeRange({kCMTimeZero, clip->duration()}, source, kCMTimeZero));
    track->setPreferredTransform(c.transform);
    const auto generator = exactGenerator(composition);
    generator->setAppliesPreferredTrackTransform(true);
    generator->setMaximumSize(c.maximumSize);
    const auto image = generator->copyCGImage(kCMTimeZero);
    ASSERT_EQ(failureOf(image), "");
    EXPECT_EQ(CGSize(static_cast<double>((*image)->width()), static_cast<double>((*image)->height())), c.size);
    const auto code = BarCode::read(luma(**image));
    EXPECT_EQ(code ? std::optional(code->orientation) : std::nullopt, c.seen);
  }
}

const ClipOptions deep{
    .frames = 5, .videoCodec = "libx265", .preset = "ultrafast", .pixelFormat = "yuv420p10le", .audioCodec = ""};
ClipOptions ofHighRange(const std::string& transfer) {
  ClipOptions options = deep;
  options.outputArguments = {"-color_primaries", "bt2020", "-color_trc", transfer, "-colorspace", "bt2020nc"};
  return options;
}

TEST(ImageGeneratorTest, ImagesHaveEightBitsAndSayHowTheirNumbersAreMeant) {
  using Facts = std::vector<int>;
  const Facts plain{AV_PIX_FMT_YUV420P, AVCOL_PRI_SMPTE170M, AVCOL_TRC_SMPTE170M, AVCOL_SPC_SMPTE170M,
                    AVCOL_RANGE_MPEG};
  const Facts large{AV_PIX_FMT_YUV420P, AVCOL_PRI_BT709, AVCOL_TRC_BT709, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG};
  const std::pair<ClipOptions, Facts> cases[] = {
      {{.frames = 5, .audioCodec = ""}, plain}, {deep, plain}, {ofHighRange("arib-std-b67"), large}};
  for (const auto& [options, facts] : cases) {
    SCOPED_TRACE(testing::PrintToString(options.outputArguments) + options.pixelFormat);
    const auto image = exactGenerator(assetOf(options))->copyCGImage(thirtieths(3));
    ASSERT_EQ(failureOf(image), "");
    const AVFrame& frame = *(*image)->still()->frame;
    EXPECT_EQ((Facts{frame.format, frame.color_primaries, frame.color_trc, frame.colorspace, frame.color_range}),
              facts);
    EXPECT_EQ(numberOf(**image), 3);
  }
}

// Green of BT.601's 525 lines is yellower than that of sRGB, which stills are read as: 74, 252, 0 by zscale's own
// reckoning.
TEST(ImageGeneratorTest, ColoursToldByOtherPrimariesThanThoseOfStillsAreConverted) {
  const TemporaryDirectory directory;
  const auto greenOf = [&](const char* primaries) {
    const auto clip = directory.file(std::string(primaries) + ".mp4");
    run("ffmpeg -v error -f lavfi -i "
        "color=0x00ff00:s=96x64:d=0.2,format=rgb24,scale=out_color_matrix=bt601,format=yuv420p -c:v libx264 -qp 1 "
        "-color_trc bt709 -colorspace smpte170m -color_primaries " +
        std::string(primaries) + " " + clip.string());
    const auto image = exactGenerator(assetAt(clip))->copyCGImage(kCMTimeZero);
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
fs::path described(const fs::path& movie, const fs::path& copy, const std::string& boxes) {
  std::string bytes = fileBytes(movie);
  std::size_t at = bytes.rfind("moov") - 4;
  std::size_t end = 0;
  for (const char* name : {"moov", "trak", "mdia", "minf", "stbl", "stsd", "hvc1"}) {
    at = bytes.find(name, at) - 4;
    std::uint32_t size = 0;
    for (std::size_t i = at; i < at + 4; ++i) size = size << 8 | static_cast<std::uint8_t>(bytes[i]);
    end = at + size;
    putNumber(bytes, at, size + static_cast<std::uint32_t>(boxes.size()));
  }
  return writeTo(copy, bytes.insert(end, boxes));
}

TEST(ImageGeneratorTest, TakesTheBrightnessOfAProgrammeFromWhereverItIsSaid) {
  ClipOptions options = ofHighRange("smpte2084");
  const BarCodeClip silent(options);
  options.outputArguments.insert(options.outputArguments.end(), {"-x265-params", dimMastering});
  const auto pixelsOf = [](const fs::path& clip) {
    return (*exactGenerator(assetAt(clip))->copyCGImage(thirtieths(3)))->copyData();
  };
  const TemporaryDirectory directory;
  const std::string boxes(dimBoxes, sizeof dimBoxes - 1);
  const auto container = pixelsOf(described(silent.path(), directory.file("container.mp4"), boxes));
  EXPECT_EQ(container, pixelsOf(BarCodeClip(options).path())) << "in the container, in the pictures";
  EXPECT_NE(container, pixelsOf(silent.path())) << "nowhere";
}

/// What the handler was told call by call: the time, and the picture or what became of the request.
using Told = std::vector<std::pair<std::int64_t, int>>;
constexpr int failed = -2;
constexpr int cancelled = -3;

/// Asks for `times` and lets the generator go; `eachTime` is called from the handler.
Told ask(
    std::shared_ptr<AVAssetImageGenerator> generator, const std::vector<CMTime>& times,
    const std::function<void(AVAssetImageGenerator&)>& eachTime = [](AVAssetImageGenerator&) {}) {
  const auto told = std::make_shared<Told>();
  const auto busy = std::make_shared<std::atomic<int>>(0);
  const auto gone = std::make_shared<std::promise<void>>();
  // Set when the handler is destroyed.
  std::shared_ptr<void> guard(nullptr, [gone](void*) { gone->set_value(); });
  const std::weak_ptr<AVAssetImageGenerator> weak = generator;
  generator->generateCGImagesAsynchronously(
      times,
      [=, guard = std::move(guard)](const CMTime& time, const std::shared_ptr<const CGImage>& image, const CMTime&,
                                    AVAssetImageGeneratorResult result, const std::optional<NSError>& error) {
        EXPECT_EQ(busy->fetch_add(1), 0) << "one call at a time";
        const bool succeeded = result == AVAssetImageGeneratorResult::succeeded;
        EXPECT_EQ(image != nullptr, succeeded);
        EXPECT_EQ(error.has_value(), !succeeded);
        const bool hasFailed = result == AVAssetImageGeneratorResult::failed;
        told->emplace_back(time.value, image != nullptr ? numberOf(*image) : hasFailed ? failed : cancelled);
        eachTime(*weak.lock());
        busy->fetch_sub(1);
      });
  generator.reset();
  EXPECT_EQ(gone->get_future().wait_for(patience), std::future_status::ready) << "the handler was not let go";
  return *told;
}

TEST(ImageRequests, AreServedInTheirOrderAlsoWhenNobodyElseHoldsTheGenerator) {
  const auto told = ask(exactGenerator(assetOf({.audioCodec = ""})),
                        {thirtieths(40), thirtieths(7), thirtieths(700), thirtieths(7), thirtieths(59), thirtieths(41)},
                        [](AVAssetImageGenerator& generator) {
                          EXPECT_TRUE(generator.copyCGImage(thirtieths(5)))
                              << "another request from within the handler";
                        });
  EXPECT_EQ(told, (Told{{40, 40}, {7, 7}, {700, failed}, {7, 7}, {59, 59}, {41, 41}}));
}

TEST(ImageRequests, ThatAreCancelledStillGetTheirCalls) {
  const auto generator = exactGenerator(assetOf({.audioCodec = ""}));
  const auto told = ask(generator, {thirtieths(1), thirtieths(2), thirtieths(3)},
                        [](AVAssetImageGenerator& self) { self.cancelAllCGImageGeneration(); });
  EXPECT_EQ(told, (Told{{1, 1}, {2, cancelled}, {3, cancelled}}));
  EXPECT_EQ(ask(generator, {thirtieths(4)}), (Told{{4, 4}})) << "later requests are not concerned";
}

TEST(Image, OfBytesKeepsThemAndIsNoneOfImpossibleSizes) {
  std::vector<std::uint8_t> rows(3 * 20);
  for (std::size_t i = 0; i < rows.size(); ++i) rows[i] = static_cast<std::uint8_t>(i);
  const auto image = CGImage::make(4, 3, rows.data(), 20);
  std::fill(rows.begin(), rows.end(), std::uint8_t{0});
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(UIImage(image).size(), (CGSize{4, 3}));
  const auto data = image->copyData();
  ASSERT_EQ(data.size(), 48U);
  EXPECT_EQ(std::vector(data.begin() + 16, data.begin() + 24),
            (std::vector<std::uint8_t>{20, 21, 22, 255, 24, 25, 26, 255}));
  for (const auto& [width, height] : {std::pair{0, 1}, {1, 0}, {16385, 1}}) {
    EXPECT_EQ(CGImage::make(static_cast<std::size_t>(width), static_cast<std::size_t>(height), rows.data(), 4),
              nullptr);
  }
}

}  // namespace
}  // namespace clipworks::test
