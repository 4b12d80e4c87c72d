#include <clipworks/engine/pictures/ToneMapper.h>
#include <clipworks/media/images/AVAssetImageGenerator.h>
#include <tests/stillpress/StillTesting.h>

namespace clipworks::test {
namespace {

TEST(Converters, KeepThePicturesOfVideosWithin40Decibels) {
  const auto clip = BarCodeClip({.frames = 3, .outputArguments = {"-colorspace", "bt709"}}).path();
  const auto picture = AVAssetImageGenerator::make(AVAsset::make(URL(clip)))->copyCGImage(kCMTimeZero).value();
  const std::string expected =
      outputOf({"ffmpeg", "-v", "error", "-i", clip, "-vf", "scale=flags=bicubic+accurate_rnd+full_chroma_int",
                "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "rgb24", "-"});
  for (const auto* extension : formats) {
    const std::string seen = SeenStill(extension, picture->still()).rgb;
    ASSERT_EQ(seen.size(), expected.size());
    double sum = 0;
    for (std::size_t i = 0; i < seen.size(); ++i) {
      sum += std::pow(static_cast<std::uint8_t>(seen[i]) - static_cast<std::uint8_t>(expected[i]), 2);
    }
    EXPECT_GE(10 * std::log10(255.0 * 255.0 * static_cast<double>(seen.size()) / sum), 40) << extension;
  }
}

// What the tone mapper makes of 80 equal steps of a PQ signal: the last ones are less than a level apart, mixed of two.
TEST(Converters, KeepTheStepsOfAGreyRamp) {
  constexpr int steps = 80;
  constexpr int strip = 16;
  const engine::Frame ramp = std::move(engine::blackFrame(steps * strip, 64, AV_PIX_FMT_YUV420P10, false).value());
  ramp->color_trc = AVCOL_TRC_SMPTE2084;
  for (int y = 0; y < 64; ++y) {
    auto* row = reinterpret_cast<std::uint16_t*>(ramp->data[0] + y * ramp->linesize[0]);
    for (int x = 0; x < steps * strip; ++x) row[x] = static_cast<std::uint16_t>(64 + x / strip * 876 / (steps - 1));
  }
  const auto still = std::make_shared<engine::StillImage>();
  still->frame = std::move(engine::ToneMapper().map(ramp).value());
  still->isDithered = true;
  for (const auto* extension : formats) {
    const SeenStill seen(extension, still);
    double before = -1;
    for (int step = 0; step < steps; ++step) {
      double sum = 0;
      for (int i = 0; i < 64 * 8; ++i) sum += seen.at(step * strip + 4 + i % 8, i / 8)[1];
      EXPECT_GT(sum, before) << extension << " " << step;
      before = sum;
    }
  }
}

TEST(Converters, TellWhenWhereAndWithWhatTheRecordingWasMade) {
  const auto still = stillOf(64, 48, AV_PIX_FMT_YUV420P, {}, [](int) { return Color{90, 90, 90}; });
  const Still bare(new engine::StillImage{engine::shareFrame(still->frame), {{"major_brand", "isom"}}});
  still->metadata = {{"creation_time", "2019-07-24T08:25:57.000000Z"},
                     {"org.maker.creationdate", "2019-07-24T11:25:40+0300"},
                     {"org.maker.location.ISO6709", "-32.0929+034.8620+028.516/"},
                     {"org.maker.make", "Maker"},
                     {"org.maker.model", "Phone 6"},
                     {"org.maker.software", "12.3"}};
  for (const auto* extension : formats) {
    const auto told = StillFile(extension, still).tags();
    EXPECT_EQ(told.value("DateTimeOriginal", ""), "2019:07:24 11:25:40") << told;
    EXPECT_EQ(told.value("OffsetTimeOriginal", ""), "+03:00");
    EXPECT_EQ(told.value("ModifyDate", ""), "2019:07:24 11:25:40");
    EXPECT_NEAR(told.value("GPSLatitude", 0.0), -32.0929, 1e-6);
    EXPECT_NEAR(told.value("GPSLongitude", 0.0), 34.8620, 1e-6);
    EXPECT_NEAR(told.value("GPSAltitude", 0.0), 28.516, 1e-3);
    EXPECT_EQ(told.value("Make", ""), "Maker");
    EXPECT_EQ(told.value("Model", ""), "Phone 6");
    EXPECT_EQ(told.value("ExifImageWidth", 0), 64);
    EXPECT_FALSE(StillFile(extension, still, false).tags().contains("DateTimeOriginal")) << "told to be silent";
    EXPECT_FALSE(StillFile(extension, bare).tags().contains("ExifVersion")) << "nothing to tell";
  }
}

TEST(Converters, FailWithoutAnImage) {
  for (const auto* extension : formats) {
    const auto converter = converterFor(extension);
    EXPECT_EQ(converter->fileExtension(), extension);
    for (const auto& image : {std::optional<UIImage>(), std::optional(UIImage(nullptr))}) {
      converter->setImage(image);
      std::optional<ConverterError::Code> code;
      converter->convert([&](const auto& result) { code = result ? code : result.error().code(); });
      EXPECT_EQ(code, ConverterError::Code::noImage);
    }
  }
}

TEST(Converters, WorkOrFailClearlyAtEverySize) {
  const std::vector<std::tuple<std::string, int, int, std::string>> cases{
      {"jpg", 1, 1, ""},
      {"jpg", 16384, 9, ""},
      {"jpg", 16, 16386, "16 × 16386 is too large"},
      {"png", 9, 16384, ""},
      {"heic", 16, 16, ""},
      {"heic", 15, 40, "15 × 40 is too small for HEIC"},
      {"heic", 16384, 64, ""},
      {"heic", 8192, 4352, ""},  // the most pixels
      {"heic", 8192, 4354, "8192 × 4354 is too large for HEIC"},
  };
  for (const auto& [extension, width, height, words] : cases) {
    auto still = std::make_shared<engine::StillImage>();
    still->frame = std::move(engine::blackFrame(width, height, AV_PIX_FMT_YUV420P, false).value());
    try {
      const SeenStill seen(extension, still);
      EXPECT_EQ(std::tuple(seen.width, seen.height, words), std::tuple(width, height, ""));
      EXPECT_LT(seen.at(width - 1, height - 1)[0], 3);
    } catch (const std::exception& error) {
      EXPECT_NE(words, "") << error.what();
      EXPECT_THAT(error.what(), testing::HasSubstr(words));
    }
  }
}

/// One process, blocks of all sizes that the encoder chooses by the picture's, up and down.
TEST(HEIC, PicturesOfAnySizeFollowEachOther) {
  for (const int side : {16, 40, 200, 33, 64, 17, 500}) {
    const auto still = stillOf(side, side, AV_PIX_FMT_YUV420P, {}, [](int) { return Color{10, 200, 90}; });
    const SeenStill seen("heic", still);
    EXPECT_EQ(seen.width, side);
    EXPECT_NEAR(seen.at(side / 2, side / 2)[1], 200, 4);
  }
}

}  // namespace
}  // namespace clipworks::test
