#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <random>

#include <nlohmann/json.hpp>

#include <tests/stillpress/StillTesting.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

constexpr std::array<Color, 6> patches{
    {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {200, 40, 60}, {255, 255, 255}, {16, 16, 16}}};
constexpr int patchSide = 32;

Color patchAt(int x, int) { return patches[static_cast<std::size_t>(std::min(x / patchSide, 5))]; }

struct ColorCase {
  std::string name;
  YUVTags tags;
  AVPixelFormat format = AV_PIX_FMT_YUV420P;
  int width = 192;
  int height = 32;

  friend std::ostream& operator<<(std::ostream& out, const ColorCase& c) { return out << c.name; }
};

class StillColors : public testing::TestWithParam<std::tuple<ColorCase, std::string>> {};

TEST_P(StillColors, AreTheVideosInOtherDecoders) {
  const auto& [c, extension] = GetParam();
  const TemporaryDirectory directory;
  const auto still = stillOf(c.width, c.height, c.format, c.tags, patchAt);
  if (c.format == AV_PIX_FMT_YUVJ420P) still->frame->color_range = AVCOL_RANGE_UNSPECIFIED;
  const SeenStill seen = seenBy(converted(*converterFor(extension), still, directory.path()));
  ASSERT_EQ(seen.width, c.width);
  ASSERT_EQ(seen.height, c.height);
  for (int patch = 0; patch < 6; ++patch) {
    const auto got = seen.at(patch * patchSide + patchSide / 2, c.height / 2);
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_NEAR(got[i], patches[static_cast<std::size_t>(patch)][i], 4) << "patch " << patch << " channel " << i;
    }
  }
}

constexpr YUVTags video601{AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG};
constexpr YUVTags full709{AVCOL_SPC_BT709, AVCOL_RANGE_JPEG};
constexpr YUVTags full601{AVCOL_SPC_BT470BG, AVCOL_RANGE_JPEG};
constexpr YUVTags wide{AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, AVCOL_PRI_SMPTE432};

INSTANTIATE_TEST_SUITE_P(
    Matrices, StillColors,
    testing::Combine(testing::Values(ColorCase{"BT709_in_video_range", {}}, ColorCase{"BT709_in_full_range", full709},
                                     ColorCase{"BT601_in_video_range", video601},
                                     ColorCase{"BT601_in_full_range", full601},
                                     ColorCase{"full_range_told_by_the_format", full601, AV_PIX_FMT_YUVJ420P},
                                     ColorCase{"half_the_chroma", {}, AV_PIX_FMT_YUV422P},
                                     ColorCase{"all_of_the_chroma", {}, AV_PIX_FMT_YUV444P},
                                     ColorCase{"odd_sides", {}, AV_PIX_FMT_YUV420P, 193, 33},
                                     ColorCase{"wide_primaries_keep_their_numbers", wide}),
                     testing::Values("jpg", "png", "heic")),
    [](const auto& testCase) { return std::get<0>(testCase.param).name + "_" + std::get<1>(testCase.param); });

TEST(StillColors, UntaggedPicturesAreReadByTheirSize) {
  for (const auto& [side, matrix] : {std::pair{719, AVCOL_SPC_SMPTE170M}, std::pair{720, AVCOL_SPC_BT709}}) {
    const TemporaryDirectory directory;
    const auto still = stillOf(side, 1280, AV_PIX_FMT_YUV420P, {matrix}, [](int, int) { return Color{200, 40, 60}; });
    still->frame->colorspace = AVCOL_SPC_UNSPECIFIED;
    still->frame->color_range = AVCOL_RANGE_UNSPECIFIED;
    const auto pixel = seenBy(converted(*converterFor("png"), still, directory.path())).at(side / 2, 640);
    EXPECT_NEAR(pixel[0], 200, 2);
    EXPECT_NEAR(pixel[1], 40, 2);
  }
}

TEST(StillColors, WidePrimariesAreToldByAProfile) {
  for (const char* extension : {"jpg", "png", "heic"}) {
    for (const auto& [primaries, name] :
         {std::pair{AVCOL_PRI_SMPTE432, "Display P3"}, std::pair{AVCOL_PRI_BT2020, "BT.2020 primaries, sRGB curve"}}) {
      const TemporaryDirectory directory;
      const YUVTags tags{AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, primaries};
      const auto still = stillOf(64, 64, AV_PIX_FMT_YUV420P, tags, patchAt);
      const auto told = tagsOf(converted(*converterFor(extension), still, directory.path()));
      EXPECT_EQ(told.value("ProfileDescription", ""), name) << extension;
    }
  }
}

TEST(StillColors, SRGBIsTold) {
  const TemporaryDirectory directory;
  const auto still = stillOf(64, 64, AV_PIX_FMT_YUV420P, {}, patchAt);
  const auto png = tagsOf(converted(*converterFor("png"), still, directory.path()));
  EXPECT_EQ(png.value("SRGBRendering", -1), 0);
  const auto heic = tagsOf(converted(*converterFor("heic"), still, directory.path()));
  EXPECT_EQ(heic.value("ColorPrimaries", 0), 1);
  EXPECT_EQ(heic.value("TransferCharacteristics", 0), 13);
  EXPECT_EQ(heic.value("MatrixCoefficients", 0), 1);
}

std::vector<std::uint8_t> noise(std::size_t count) {
  std::mt19937 random(7);
  std::vector<std::uint8_t> bytes(count);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

TEST(StillPixels, OfPNGAreExact) {
  for (const auto& [width, height] : {std::pair{1, 1}, std::pair{333, 77}, std::pair{400, 2100}}) {
    const TemporaryDirectory directory;
    const std::size_t stride = static_cast<std::size_t>(width) * 4 + 12;
    const auto bgra = noise(stride * static_cast<std::size_t>(height));
    const auto image =
        CGImage::make(static_cast<std::size_t>(width), static_cast<std::size_t>(height), bgra.data(), stride);
    ASSERT_NE(image, nullptr);
    const SeenStill seen = seenBy(converted(*converterFor("png"), image->still(), directory.path()));
    ASSERT_EQ(seen.width, width);
    ASSERT_EQ(seen.height, height);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const auto* pixel = bgra.data() + static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x) * 4;
        ASSERT_EQ(seen.at(x, y), (std::array<int, 3>{pixel[2], pixel[1], pixel[0]})) << x << ", " << y;
      }
    }
  }
}

/// The same file twice: nothing of the time or of memory that was never written gets into it. What was recorded is told
/// once.
TEST(StillPixels, GiveTheSameBytesEveryTime) {
  const YUVTags tags{AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, AVCOL_PRI_SMPTE432};
  for (const char* extension : {"jpg", "png", "heic"}) {
    const TemporaryDirectory first;
    const TemporaryDirectory second;
    const auto bytesOf = [&](const TemporaryDirectory& directory) {
      const auto still = stillOf(101, 67, AV_PIX_FMT_YUV420P, tags, patchAt);
      still->metadata = {{"creation_time", "2024-05-06T07:08:09Z"}};
      std::ifstream file(converted(*converterFor(extension), still, directory.path()), std::ios::binary);
      return std::string(std::istreambuf_iterator<char>(file), {});
    };
    const std::string bytes = bytesOf(first);
    EXPECT_EQ(bytes, bytesOf(second)) << extension;
    EXPECT_EQ(bytes.find("eXIf"), bytes.rfind("eXIf")) << extension;
  }
}

}  // namespace
}  // namespace clipworks::test
