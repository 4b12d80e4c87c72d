#include <clipworks/engine/input/PictureDecoder.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/engine/input/CachedPictureReader.h>
#include <clipworks/engine/input/PictureReader.h>

#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>
#include <tests/support/TwoFormatsClip.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using engine::Frame;
using engine::PictureReader;

using Pixel = std::array<int, 3>;

/// The levels at a place, in steps of 8 bits.
Pixel pixelAt(const Frame& frame, int x, int y) {
  const auto& pixels = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
  Pixel levels{};
  for (int plane = 0; plane < 3; ++plane) {
    const int across = plane > 0 ? x >> pixels.log2_chroma_w : x;
    const int down = plane > 0 ? y >> pixels.log2_chroma_h : y;
    const std::uint8_t* row = frame->data[plane] + static_cast<std::ptrdiff_t>(down) * frame->linesize[plane];
    const int depth = pixels.comp[0].depth;
    const int level = depth == 8 ? row[across] : reinterpret_cast<const std::uint16_t*>(row)[across];
    levels[static_cast<std::size_t>(plane)] = (level + (1 << (depth - 8)) / 2) >> (depth - 8);
  }
  return levels;
}

/// The greatest difference of a level.
int distance(const Pixel& a, const Pixel& b) {
  return std::max({std::abs(a[0] - b[0]), std::abs(a[1] - b[1]), std::abs(a[2] - b[2])});
}

std::shared_ptr<const engine::MediaFile> opened(const fs::path& path) {
  auto file = engine::MediaFile::open(path);
  if (!file) throw std::runtime_error(file.error().sentence);
  return *file;
}

PictureReader readerOf(const fs::path& path) {
  const auto file = opened(path);
  return std::move(*PictureReader::open(file, file->streams().front().index));
}

void run(const std::vector<std::string>& command) {
  const auto made = runProgram(command);
  if (!made.succeeded()) throw std::runtime_error(made.standardError);
}

constexpr Pixel white{235, 128, 128};
constexpr Pixel red{81, 90, 240};  // BT.601
constexpr Pixel black{16, 128, 128};

TEST(PictureDecoder, TakesTheParametersOfEachSampleDescriptionWhereverItStarts) {
  const std::vector<std::size_t> inAnyOrder{0, 11, 12, 23, 20, 13, 5, 19, 12, 0};
  auto reader = readerOf(twoFormatsClip());
  for (const std::size_t picture : inAnyOrder) {
    SCOPED_TRACE("picture " + std::to_string(picture));
    const auto frame = reader.picture(picture);
    ASSERT_TRUE(frame) << frame.error().sentence;
    EXPECT_EQ(std::pair((*frame)->width, (*frame)->height), std::pair(256, 128));
    const bool isSecond = picture >= 12;
    EXPECT_LE(distance(pixelAt(*frame, 128, 64), isSecond ? red : white), 2);
    EXPECT_LE(distance(pixelAt(*frame, 60, 64), isSecond ? black : white), 2);
    EXPECT_LE(distance(pixelAt(*frame, 68, 1), isSecond ? red : white), 2);
    EXPECT_LE(distance(pixelAt(*frame, 196, 64), isSecond ? black : white), 2);
  }
}

/// A stream that changes its size by headers of its own goes the same way, pixel aspect included.
TEST(PictureDecoder, FitsPicturesOfAnotherSizeIntoTheFirst) {
  const TemporaryDirectory directory;
  const auto half = [&](const std::string& name, const std::string& filter, const std::string& start) {
    run({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=c=white:r=25," + filter, "-frames:v", "25", "-c:v",
         "libx264", "-pix_fmt", "yuv420p", "-bf", "0", "-output_ts_offset", start, directory.file(name)});
  };
  half("a.ts", "scale=160:120,setsar=1", "0");
  half("b.ts", "scale=96:120,setsar=2", "1");  // shown 192 × 120, which is 160 × 100 here
  std::ofstream(directory.file("c.ts"), std::ios::binary)
      << std::ifstream(directory.file("a.ts"), std::ios::binary).rdbuf()
      << std::ifstream(directory.file("b.ts"), std::ios::binary).rdbuf();
  auto reader = readerOf(directory.file("c.ts"));
  const auto frame = reader.picture(reader.table().pictureCount() - 1);
  ASSERT_TRUE(frame) << frame.error().sentence;
  EXPECT_EQ(std::pair((*frame)->width, (*frame)->height), std::pair(160, 120));
  EXPECT_LE(distance(pixelAt(*frame, 80, 7), black), 2);
  EXPECT_LE(distance(pixelAt(*frame, 3, 13), white), 2);
  EXPECT_LE(distance(pixelAt(*frame, 156, 106), white), 2);
  EXPECT_LE(distance(pixelAt(*frame, 80, 113), black), 2);
}

/// Full chroma of builds before 151 is decoded otherwise, and only the first sample tells the build.
TEST(PictureDecoder, KnowsTheEncodersBuildFromTheFirstSampleOn) {
  const TemporaryDirectory directory;
  run({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=s=160x120:r=25", "-frames:v", "12", "-c:v", "libx264",
       "-pix_fmt", "yuv444p", "-qp", "20", "-g", "6", directory.file("new.mp4")});
  std::ifstream in(directory.file("new.mp4"), std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(in), {}};
  const auto at = bytes.find("x264 - core 1");
  ASSERT_NE(at, std::string::npos);
  bytes.replace(at, 15, "x264 - core 120");
  std::ofstream(directory.file("old.mp4"), std::ios::binary) << bytes;

  // Told of a build that did not make it, the decoder makes something else of it.
  const auto seen = readerOf(directory.file("old.mp4")).picture(6);
  const auto right = readerOf(directory.file("new.mp4")).picture(6);
  ASSERT_TRUE(seen && right);
  int differences = 0;
  for (int y = 0; y < 120; ++y) {
    for (int x = 0; x < 160; ++x) differences += pixelAt(*seen, x, y) == pixelAt(*right, x, y) ? 0 : 1;
  }
  EXPECT_GT(differences, 160 * 120 / 4);
}

struct KindCase {
  const char* codec;
  const char* format;  // as ffmpeg is asked for it
  const char* extension;
  int depth;  // of what is read
  enum Colours { all, grey, bitMap } colours = all;
  std::vector<std::string> more{};
};
std::ostream& operator<<(std::ostream& out, const KindCase& c) {
  return out << c.codec << ' ' << c.format << ' ' << c.extension;
}

class PictureKindsTest : public testing::TestWithParam<KindCase> {};

/// Patches of red, green, blue and light grey, half of them transparent where the kind can be; BT.601, video range.
TEST_P(PictureKindsTest, AreReadInTheirColours) {
  const auto& c = GetParam();
  const TemporaryDirectory directory;
  const std::string clip = directory.file(std::string("clip.") + c.extension);
  std::vector<std::string> command{
      "ffmpeg",
      "-v",
      "error",
      "-f",
      "lavfi",
      "-i",
      "color=red:s=32x32:r=25:d=0.2[r];color=0x00ff00:s=32x32:d=0.2[g];color=blue:s=32x32:d=0.2[b];color=0xc6c6c6:s="
      "32x32:d=0.2[w];"
      "[r][g][b][w]hstack=4,format=rgba,geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='if(lt(Y,16),255,128)',"
      "scale=flags=accurate_rnd+full_chroma_int+full_chroma_inp+bicubic",
      "-frames:v",
      "2",
      "-c:v",
      c.codec,
      "-pix_fmt",
      c.format,
      "-strict",
      "-2"};
  command.insert(command.end(), c.more.begin(), c.more.end());
  command.push_back(clip);
  run(command);

  auto reader = readerOf(clip);
  const auto frame = reader.picture(1);
  ASSERT_TRUE(frame) << frame.error().sentence;
  const auto format = static_cast<AVPixelFormat>((*frame)->format);
  const auto& pixels = *av_pix_fmt_desc_get(format);
  EXPECT_EQ(pixels.comp[0].depth, c.depth);
  std::array<Pixel, 4> expected{Pixel{81, 90, 240}, {145, 54, 34}, {41, 240, 110}, {186, 128, 128}};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (c.colours != KindCase::all) expected[i][1] = expected[i][2] = 128;
    if (c.colours == KindCase::bitMap) expected[i][0] = expected[i][0] > 125 ? 235 : 16;
    const int x = static_cast<int>(i) * 32 + 16;
    EXPECT_LE(distance(pixelAt(*frame, x, 8), expected[i]), 2) << "patch " << i;
    const std::string kind = c.format;
    const bool isTransparent =
        kind.find('a') != std::string::npos && kind.find("gray") == std::string::npos && kind != "pal8";
    if (!isTransparent) continue;
    Pixel half = expected[i];
    for (int plane = 0; plane < 3; ++plane)
      half[static_cast<std::size_t>(plane)] =
          (half[static_cast<std::size_t>(plane)] + black[static_cast<std::size_t>(plane)]) / 2;
    EXPECT_LE(distance(pixelAt(*frame, x, 24), half), 2) << "transparent patch " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, PictureKindsTest,
    testing::Values(KindCase{"qtrle", "argb", "mov", 8}, KindCase{"qtrle", "gray", "mov", 8, KindCase::grey},
                    KindCase{"rawvideo", "yuyv422", "mov", 8}, KindCase{"rawvideo", "bgra", "avi", 8},
                    KindCase{"rawvideo", "nv12", "avi", 8}, KindCase{"rawvideo", "gray", "avi", 8, KindCase::grey},
                    KindCase{"rawvideo", "rgb24", "mkv", 8}, KindCase{"rawvideo", "yuv420p10be", "mkv", 10},
                    KindCase{"png", "monob", "mov", 8, KindCase::bitMap}, KindCase{"png", "rgba64be", "mov", 16},
                    KindCase{"ffv1", "gray10le", "mkv", 10, KindCase::grey}, KindCase{"ffv1", "gbrp12le", "mkv", 12},
                    KindCase{"ffv1", "yuva422p10le", "mkv", 10}, KindCase{"huffyuv", "bgra", "avi", 8},
                    KindCase{"v210", "yuv422p10le", "mov", 10}, KindCase{"exr", "gbrpf32le", "mov", 16},
                    KindCase{"prores_ks", "yuva444p10le", "mov", 12, KindCase::all, {"-profile:v", "4444"}},
                    KindCase{"libx264rgb", "rgb24", "mp4", 8, KindCase::all, {"-qp", "0"}},
                    KindCase{
                        "zmbv",
                        "pal8",
                        "avi",
                        8,
                        KindCase::all,
                        {"-vf", "split[a][b];[a]palettegen=reserve_transparent=0[p];[b][p]paletteuse=dither=none"}}));

}  // namespace
}  // namespace clipworks::test
