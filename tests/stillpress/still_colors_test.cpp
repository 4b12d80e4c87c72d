#include <random>

#include <tests/stillpress/StillTesting.h>

namespace clipworks::test {
namespace {

constexpr std::array<Color, 6> patches{
    {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {200, 40, 60}, {255, 255, 255}, {16, 16, 16}}};
constexpr int patchSide = 32;

Color patchAt(int x) { return patches[static_cast<std::size_t>(std::min(x / patchSide, 5))]; }

struct ColorCase {
  const char* name;
  YUVTags tags{};
  AVPixelFormat format = AV_PIX_FMT_YUV420P;
  int width = 192;
  int height = 32;
};

TEST(StillColors, AreTheVideosInOtherDecoders) {
  const YUVTags full601{AVCOL_SPC_BT470BG, AVCOL_RANGE_JPEG};
  const std::vector<ColorCase> cases{
      {"BT.709 in video range"},
      {"BT.709 in full range", {AVCOL_SPC_BT709, AVCOL_RANGE_JPEG}},
      {"BT.601 in video range", {AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG}},
      {"BT.601 in full range", full601},
      {"full range told by the format", full601, AV_PIX_FMT_YUVJ420P},
      {"half the chroma", {}, AV_PIX_FMT_YUV422P},
      {"all of the chroma", {}, AV_PIX_FMT_YUV444P},
      {"odd sides", {}, AV_PIX_FMT_YUV420P, 193, 33},
      {"wide primaries, which keep their numbers", {AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, AVCOL_PRI_SMPTE432}},
  };
  for (const auto& c : cases) {
    const auto still = stillOf(c.width, c.height, c.format, c.tags, patchAt);
    if (c.format == AV_PIX_FMT_YUVJ420P) still->frame->color_range = AVCOL_RANGE_UNSPECIFIED;
    for (const auto* extension : formats) {
      SCOPED_TRACE(std::string(c.name) + " in " + extension);
      const SeenStill seen(extension, still);
      ASSERT_EQ(std::pair(seen.width, seen.height), std::pair(c.width, c.height));
      for (int x = patchSide / 2; x < 6 * patchSide; x += patchSide) {
        const auto got = seen.at(x, c.height / 2);
        for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(got[i], patchAt(x)[i], 4) << "at " << x << " channel " << i;
      }
    }
  }
}

TEST(StillColors, UntaggedPicturesAreReadByTheirSize) {
  for (const auto& [side, matrix] : {std::pair{719, AVCOL_SPC_SMPTE170M}, std::pair{720, AVCOL_SPC_BT709}}) {
    const auto still = stillOf(side, 1280, AV_PIX_FMT_YUV420P, {matrix}, [](int) { return Color{200, 40, 60}; });
    still->frame->colorspace = AVCOL_SPC_UNSPECIFIED;
    still->frame->color_range = AVCOL_RANGE_UNSPECIFIED;
    const auto pixel = SeenStill("png", still).at(side / 2, 640);
    EXPECT_NEAR(pixel[0], 200, 2);
    EXPECT_NEAR(pixel[1], 40, 2);
  }
}

TEST(StillColors, AreToldByProfilesAndTags) {
  for (const auto* extension : formats) {
    for (const auto& [primaries, name] :
         {std::pair{AVCOL_PRI_SMPTE432, "Display P3"}, std::pair{AVCOL_PRI_BT2020, "BT.2020 primaries, sRGB curve"}}) {
      const YUVTags tags{AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, primaries};
      const StillFile file(extension, stillOf(64, 64, AV_PIX_FMT_YUV420P, tags, patchAt));
      EXPECT_EQ(file.tags().value("ProfileDescription", ""), name) << extension;
    }
  }
  const auto still = stillOf(64, 64, AV_PIX_FMT_YUV420P, {}, patchAt);
  EXPECT_EQ(StillFile("png", still).tags().value("SRGBRendering", -1), 0);
  const auto heic = StillFile("heic", still).tags();
  EXPECT_EQ(heic.value("ColorPrimaries", 0), 1);
  EXPECT_EQ(heic.value("TransferCharacteristics", 0), 13);
  EXPECT_EQ(heic.value("MatrixCoefficients", 0), 1);
}

TEST(StillPixels, OfPNGAreExact) {
  for (const auto& [width, height] : {std::pair{1U, 1U}, std::pair{333U, 77U}, std::pair{400U, 2100U}}) {
    const std::size_t stride = width * 4 + 12;
    std::vector<std::uint8_t> bgra(stride * height);
    std::generate(bgra.begin(), bgra.end(),
                  [random = std::mt19937(7)]() mutable { return static_cast<std::uint8_t>(random()); });
    const auto image = CGImage::make(width, height, bgra.data(), stride);
    ASSERT_NE(image, nullptr);
    std::string rgb;
    for (std::size_t y = 0; y < height; ++y) {
      for (const auto* pixel = &bgra[y * stride]; pixel < &bgra[y * stride] + width * 4; pixel += 4) {
        rgb.insert(rgb.end(), {static_cast<char>(pixel[2]), static_cast<char>(pixel[1]), static_cast<char>(pixel[0])});
      }
    }
    const SeenStill seen("png", image->still());
    EXPECT_EQ(seen.width, static_cast<int>(width));
    EXPECT_TRUE(seen.rgb == rgb) << width << " × " << height;
  }
}

/// The same file twice: nothing of the time or of memory that was never written gets into it. What was recorded is told
/// once.
TEST(StillPixels, GiveTheSameBytesEveryTime) {
  const YUVTags tags{AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, AVCOL_PRI_SMPTE432};
  for (const std::string extension : formats) {
    const auto bytesOf = [&] {
      const auto still = stillOf(101, 67, AV_PIX_FMT_YUV420P, tags, patchAt);
      still->metadata = {{"creation_time", "2024-05-06T07:08:09Z"}};
      return fileBytes(StillFile(extension, still).path);
    };
    const std::string bytes = bytesOf();
    EXPECT_EQ(bytes, bytesOf()) << extension;
    EXPECT_EQ(bytes.find("eXIf"), bytes.rfind("eXIf")) << extension;
  }
}

}  // namespace
}  // namespace clipworks::test
