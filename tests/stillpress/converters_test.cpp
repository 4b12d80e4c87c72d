#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include <nlohmann/json.hpp>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/ToneMapper.h>
#include <tests/stillpress/StillTesting.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;

/// A picture of a video, decoded by the ffmpeg program, with the video's own samples.
std::shared_ptr<engine::StillImage> pictureOf(const fs::path& video, int number) {
  const ProbedStream facts = MediaJudge(video).stream("video");
  const std::string raw = rawPicture(video, number, "yuv420p");
  auto still = std::make_shared<engine::StillImage>();
  still->frame = std::move(engine::allocateFrame(facts.width, facts.height, AV_PIX_FMT_YUV420P).value());
  const auto* from = reinterpret_cast<const std::uint8_t*>(raw.data());
  for (int plane = 0; plane < 3; ++plane) {
    const int width = plane == 0 ? facts.width : (facts.width + 1) / 2;
    const int height = plane == 0 ? facts.height : (facts.height + 1) / 2;
    av_image_copy_plane(still->frame->data[plane], still->frame->linesize[plane], from, width, width, height);
    from += width * height;
  }
  still->frame->colorspace = facts.colorSpace == "bt709" ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
  still->frame->color_range = AVCOL_RANGE_MPEG;
  return still;
}

std::vector<fs::path> clips() {
  std::vector<fs::path> paths{
      BarCodeClip({.width = 640, .height = 360, .frames = 3, .outputArguments = {"-colorspace", "bt709"}}).path()};
  const char* folder = std::getenv("CLIPWORKS_MEDIA");
  if (folder == nullptr) return paths;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".mov" && entry.path().extension() != ".mp4") continue;
    const ProbedStream facts = MediaJudge(entry.path()).stream("video");
    // ffmpeg reads untagged video by a rule of its own.
    if (facts.pixelFormat == "yuv420p" && !facts.colorSpace.empty() && facts.colorSpace != "unknown")
      paths.push_back(entry.path());
  }
  return paths;
}

TEST(Converters, KeepThePicturesOfVideosWithin40Decibels) {
  for (const auto& clip : clips()) {
    const auto still = pictureOf(clip, 1);
    const std::string raw = rawPicture(clip, 1, "rgb24");
    const std::vector<std::uint8_t> expected(raw.begin(), raw.end());
    for (const char* extension : {"jpg", "png", "heic"}) {
      const TemporaryDirectory directory;
      const fs::path path = converted(*converterFor(extension), still, directory.path());
      const double quality = psnr(seenBy(path).rgb, expected);
      EXPECT_GE(quality, 40) << extension << " of " << clip.filename();
      std::cout << clip.filename().string() << " " << extension << ": " << quality << " dB, " << fs::file_size(path)
                << " bytes\n";
    }
  }
}

// What the tone mapper makes of 80 equal steps of a PQ signal: the last ones are less than a level apart, mixed of two.
TEST(Converters, KeepTheStepsOfAGreyRamp) {
  constexpr int steps = 80;
  constexpr int strip = 16;
  const engine::Frame ramp = std::move(engine::allocateFrame(steps * strip, 64, AV_PIX_FMT_YUV420P10).value());
  ramp->color_trc = AVCOL_TRC_SMPTE2084;
  for (int plane = 0; plane < 3; ++plane) {
    for (int y = 0; y < (plane == 0 ? 64 : 32); ++y) {
      auto* row =
          reinterpret_cast<std::uint16_t*>(ramp->data[plane] + static_cast<std::ptrdiff_t>(y) * ramp->linesize[plane]);
      for (int x = 0; x < (plane == 0 ? steps * strip : steps * strip / 2); ++x) {
        row[x] = static_cast<std::uint16_t>(plane == 0 ? 64 + x / strip * 876 / (steps - 1) : 512);
      }
    }
  }
  const auto still = std::make_shared<engine::StillImage>();
  still->frame = std::move(engine::ToneMapper().map(ramp).value());
  still->isDithered = true;
  for (const char* extension : {"jpg", "png", "heic"}) {
    const TemporaryDirectory directory;
    const SeenStill seen = seenBy(converted(*converterFor(extension), still, directory.path()));
    std::vector<double> sums(steps);
    for (int y = 0; y < 64; ++y) {
      for (int x = 0; x < steps * strip; ++x) {
        if (x % strip >= 4 && x % strip < 12) sums[static_cast<std::size_t>(x / strip)] += seen.at(x, y)[1];
      }
    }
    for (std::size_t i = 1; i < sums.size(); ++i) EXPECT_GT(sums[i], sums[i - 1]) << extension << " " << i;
  }
}

using Metadata = std::map<std::string, std::string>;

fs::path stillWith(const Metadata& metadata, ImageConverter& converter, const TemporaryDirectory& directory) {
  const auto still = stillOf(64, 48, AV_PIX_FMT_YUV420P, {}, [](int, int) { return Color{90, 90, 90}; });
  still->metadata = metadata;
  return converted(converter, still, directory.path());
}

const Metadata phone{{"creation_time", "2019-07-24T08:25:57.000000Z"},
                     {"org.maker.creationdate", "2019-07-24T11:25:40+0300"},
                     {"org.maker.location.ISO6709", "-32.0929+034.8620+028.516/"},
                     {"org.maker.make", "Maker"},
                     {"org.maker.model", "Phone 6"},
                     {"org.maker.software", "12.3"}};

class EveryFormat : public testing::TestWithParam<std::string> {};

TEST_P(EveryFormat, TellsWhenWhereAndWithWhatTheRecordingWasMade) {
  const TemporaryDirectory directory;
  const auto told = tagsOf(stillWith(phone, *converterFor(GetParam()), directory));
  EXPECT_EQ(told.value("DateTimeOriginal", ""), "2019:07:24 11:25:40") << told;
  EXPECT_EQ(told.value("OffsetTimeOriginal", ""), "+03:00");
  EXPECT_EQ(told.value("ModifyDate", ""), "2019:07:24 11:25:40");
  EXPECT_NEAR(told.value("GPSLatitude", 0.0), -32.0929, 1e-6);
  EXPECT_NEAR(told.value("GPSLongitude", 0.0), 34.8620, 1e-6);
  EXPECT_NEAR(told.value("GPSAltitude", 0.0), 28.516, 1e-3);
  EXPECT_EQ(told.value("Make", ""), "Maker");
  EXPECT_EQ(told.value("Model", ""), "Phone 6");
  EXPECT_EQ(told.value("ExifImageWidth", 0), 64);
}

TEST_P(EveryFormat, TellsNothingWhenToldSoOrWhenThereIsNothing) {
  const TemporaryDirectory directory;
  const auto converter = converterFor(GetParam());
  converter->setKeepsRecordingMetadata(false);
  EXPECT_FALSE(tagsOf(stillWith(phone, *converter, directory)).contains("DateTimeOriginal"));
  EXPECT_FALSE(
      tagsOf(stillWith({{"major_brand", "isom"}}, *converterFor(GetParam()), directory)).contains("ExifVersion"));
  const auto made = converterFor(GetParam());
  made->setKeepsRecordingMetadata(false);
  EXPECT_FALSE(tagsOf(stillWith(phone, *made, directory)).contains("DateTimeOriginal"));
}

TEST_P(EveryFormat, FailsWithoutAnImage) {
  const auto converter = converterFor(GetParam());
  EXPECT_EQ(converter->fileExtension(), GetParam());
  for (const auto& image : {std::optional<UIImage>(), std::optional<UIImage>(UIImage(nullptr))}) {
    converter->setImage(image);
    std::optional<ConverterError::Code> code;
    converter->convert([&](const auto& result) {
      if (!result) code = result.error().code();
    });
    EXPECT_EQ(code, ConverterError::Code::noImage);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, EveryFormat, testing::Values("jpg", "png", "heic"),
                         [](const auto& testCase) { return testCase.param; });

struct SizeCase {
  std::string name;
  std::string extension;
  int width;
  int height;
  std::string words;  ///< of the failure; empty when it works

  friend std::ostream& operator<<(std::ostream& out, const SizeCase& c) { return out << c.name; }
};

class StillSizes : public testing::TestWithParam<SizeCase> {};

TEST_P(StillSizes, WorkOrFailClearly) {
  const SizeCase& c = GetParam();
  const TemporaryDirectory directory;
  auto still = std::make_shared<engine::StillImage>();
  still->frame = std::move(engine::blackFrame(c.width, c.height, AV_PIX_FMT_YUV420P, false).value());
  try {
    const SeenStill seen = seenBy(converted(*converterFor(c.extension), still, directory.path()));
    EXPECT_EQ(c.words, "") << "it worked";
    EXPECT_EQ(seen.width, c.width);
    EXPECT_EQ(seen.height, c.height);
    EXPECT_LT(seen.at(c.width - 1, c.height - 1)[0], 3);
  } catch (const std::exception& error) {
    ASSERT_NE(c.words, "") << error.what();
    EXPECT_THAT(error.what(), testing::HasSubstr(c.words));
  }
}

INSTANTIATE_TEST_SUITE_P(Table, StillSizes,
                         testing::Values(SizeCase{"JPEG_of_one_pixel", "jpg", 1, 1, ""},
                                         SizeCase{"JPEG_of_the_longest_side", "jpg", 16384, 9, ""},
                                         SizeCase{"JPEG_beyond", "jpg", 16, 16386, "16 × 16386 is too large"},
                                         SizeCase{"PNG_of_the_longest_side", "png", 9, 16384, ""},
                                         SizeCase{"HEIC_of_the_shortest_side", "heic", 16, 16, ""},
                                         SizeCase{"HEIC_below", "heic", 15, 40, "15 × 40 is too small for HEIC"},
                                         SizeCase{"HEIC_of_the_longest_side", "heic", 16384, 64, ""},
                                         SizeCase{"HEIC_of_the_most_pixels", "heic", 8192, 4352, ""},
                                         SizeCase{"HEIC_beyond", "heic", 8192, 4354,
                                                  "8192 × 4354 is too large for HEIC"}),
                         [](const auto& testCase) { return testCase.param.name; });

/// One process, blocks of all sizes that the encoder chooses by the picture's, up and down.
TEST(HEIC, PicturesOfAnySizeFollowEachOther) {
  for (const int side : {16, 40, 200, 33, 64, 17, 500}) {
    const TemporaryDirectory directory;
    const auto still = stillOf(side, side, AV_PIX_FMT_YUV420P, {}, [](int, int) { return Color{10, 200, 90}; });
    const SeenStill seen = seenBy(converted(*converterFor("heic"), still, directory.path()));
    EXPECT_EQ(seen.width, side);
    EXPECT_NEAR(seen.at(side / 2, side / 2)[1], 200, 4);
  }
}

}  // namespace
}  // namespace clipworks::test
