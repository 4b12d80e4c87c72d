#include <clipworks/engine/input/PictureDecoder.h>

#include <clipworks/engine/input/PictureReader.h>

#include <tests/engine/EngineTesting.h>
#include <tests/support/TwoFormatsClip.h>

namespace clipworks::engine {
namespace {

using Pixel = std::array<int, 3>;

constexpr Pixel white{235, 128, 128};
constexpr Pixel red{81, 90, 240};  // BT.601
constexpr Pixel black{16, 128, 128};

/// The levels at a place, in steps of 8 bits.
Pixel pixelAt(const AVFrame& frame, int x, int y) {
  const auto& pixels = pixelsOf(frame);
  const int more = pixels.comp[0].depth - 8;
  const auto level = [&](int plane) {
    const int right = plane > 0 ? pixels.log2_chroma_w : 0;
    const int down = plane > 0 ? pixels.log2_chroma_h : 0;
    return (sampleAt(frame, plane, x >> right, y >> down) + (1 << more) / 2) >> more;
  };
  return {level(0), level(1), level(2)};
}

MATCHER_P(IsNearly, pixel, "") {
  return std::ranges::equal(arg, pixel, [](int a, int b) { return std::abs(a - b) <= 2; });
}

PictureReader readerOf(const std::filesystem::path& path) {
  const auto file = must(MediaFile::open(path, {.takesAnyCodec = true}));
  return must(PictureReader::open(file, file->streams().front().index));
}

TEST(PictureDecoder, TakesTheParametersOfEachSampleDescriptionWhereverItStarts) {
  auto reader = readerOf(test::twoFormatsClip());
  for (const std::size_t picture : {0, 11, 12, 23, 20, 13, 5, 19, 12, 0}) {
    SCOPED_TRACE("picture " + std::to_string(picture));
    const Frame frame = must(reader.picture(picture));
    EXPECT_EQ(std::pair(frame->width, frame->height), std::pair(256, 128));
    const bool isSecond = picture >= 12;
    EXPECT_THAT(pixelAt(*frame, 128, 64), IsNearly(isSecond ? red : white));
    EXPECT_THAT(pixelAt(*frame, 68, 1), IsNearly(isSecond ? red : white));
    for (const int x : {60, 196}) EXPECT_THAT(pixelAt(*frame, x, 64), IsNearly(isSecond ? black : white)) << x;
  }
}

/// A stream that changes its size by headers of its own goes the same way, pixel aspect included.
TEST(PictureDecoder, FitsPicturesOfAnotherSizeIntoTheFirst) {
  const test::TemporaryDirectory directory;
  const auto half = [&](const std::string& filter, const std::string& start) {
    runFFmpeg({"-f", "lavfi", "-i", "color=c=white:r=25," + filter, "-frames:v", "25", "-c:v", "libx264", "-pix_fmt",
               "yuv420p", "-bf", "0", "-output_ts_offset", start, directory.file("half.ts")});
    return fileBytes(directory.file("half.ts"));
  };
  // The second half is shown 192 × 120, which is 160 × 100 here.
  const auto both = half("scale=160:120,setsar=1", "0") + half("scale=96:120,setsar=2", "1");
  auto reader = readerOf(writeTo(directory.file("both.ts"), both));
  const Frame frame = must(reader.picture(reader.table().pictureCount() - 1));
  EXPECT_EQ(std::pair(frame->width, frame->height), std::pair(160, 120));
  for (const int y : {7, 113}) EXPECT_THAT(pixelAt(*frame, 80, y), IsNearly(black)) << y;
  EXPECT_THAT(pixelAt(*frame, 3, 13), IsNearly(white));
  EXPECT_THAT(pixelAt(*frame, 156, 106), IsNearly(white));
}

/// Full chroma of builds before 151 is decoded otherwise, and only the first sample tells the build.
TEST(PictureDecoder, KnowsTheEncodersBuildFromTheFirstSampleOn) {
  const test::TemporaryDirectory directory;
  const auto made = directory.file("new.mp4");
  runFFmpeg({"-f", "lavfi", "-i", "testsrc2=s=160x120:r=25", "-frames:v", "12", "-c:v", "libx264", "-pix_fmt",
             "yuv444p", "-qp", "20", "-g", "6", made});
  std::string bytes = fileBytes(made);
  bytes.replace(bytes.find("x264 - core 1"), 15, "x264 - core 120");
  // Told of a build that did not make it, the decoder makes something else of it.
  const Frame seen = must(readerOf(writeTo(directory.file("old.mp4"), bytes)).picture(6));
  const Frame right = must(readerOf(made).picture(6));
  int differences = 0;
  forEachSample(*seen, [&](int plane, int x, int y) {
    differences += sampleAt(*seen, plane, x, y) == sampleAt(*right, plane, x, y) ? 0 : 1;
  });
  EXPECT_GT(differences, 160 * 120 / 4);
}

/// Patches of red, green, blue and light grey; BT.601, video range.
void expectPatches(const std::string& codec, const std::string& kind, const std::string& extension, int depth,
                   const std::vector<std::string>& more = {}) {
  SCOPED_TRACE(codec + ' ' + kind);
  const test::TemporaryDirectory directory;
  const auto clip = directory.file("clip." + extension);
  const std::string patches =
      "color=red:s=32x32:r=25:d=0.2[r];color=0x00ff00:s=32x32:d=0.2[g];color=blue:s=32x32:d=0.2[b];"
      "color=0xc6c6c6:s=32x32:d=0.2[w];[r][g][b][w]hstack=4,format=rgba,"
      "scale=flags=accurate_rnd+full_chroma_int+full_chroma_inp+bicubic";
  runFFmpeg({"-f", "lavfi", "-i", patches, "-frames:v", "2", "-c:v", codec, "-pix_fmt", kind, clip}, more);
  const Frame frame = must(readerOf(clip).picture(1));
  EXPECT_EQ(pixelsOf(*frame).comp[0].depth, depth);
  int x = -16;
  for (const Pixel& wanted : {red, Pixel{145, 54, 34}, {41, 240, 110}, {186, 128, 128}})
    EXPECT_THAT(pixelAt(*frame, x += 32, 8), IsNearly(wanted)) << x;
}

// All kinds of whole numbers are in planar_pictures_test.cpp.
TEST(PictureDecoder, ReadsPicturesInTheirColours) {
  expectPatches("qtrle", "argb", "mov", 8);
  expectPatches("exr", "gbrpf32le", "mov", 16);
  const std::string palette = "split[a][b];[a]palettegen=reserve_transparent=0[p];[b][p]paletteuse=dither=none";
  expectPatches("zmbv", "pal8", "avi", 8, {"-vf", palette});
}

}  // namespace
}  // namespace clipworks::engine
