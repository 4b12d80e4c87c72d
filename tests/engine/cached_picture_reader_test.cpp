#include <clipworks/engine/input/CachedPictureReader.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/md5.h>
}

#include <clipworks/engine/input/PictureReader.h>
#include <clipworks/engine/pictures/WholePictures.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using engine::CachedPictureReader;
using engine::Frame;
using engine::MediaFile;
using engine::PictureReader;

constexpr std::size_t roomy = std::size_t{256} << 20;

/// MD5 of the planes without padding, as the ffmpeg program counts it.
std::string hashOf(const Frame& frame) {
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(
      av_image_get_buffer_size(static_cast<AVPixelFormat>(frame->format), frame->width, frame->height, 1)));
  av_image_copy_to_buffer(bytes.data(), static_cast<int>(bytes.size()), frame->data, frame->linesize,
                          static_cast<AVPixelFormat>(frame->format), frame->width, frame->height, 1);
  std::array<std::uint8_t, 16> sum{};
  av_md5_sum(sum.data(), bytes.data(), bytes.size());
  std::string text;
  for (const int byte : sum) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

std::shared_ptr<const MediaFile> opened(const fs::path& path) {
  auto file = MediaFile::open(path);
  EXPECT_TRUE(file) << file.error().sentence;
  return file ? *file : nullptr;
}

int pictureStream(const MediaFile& file) {
  for (const auto& stream : file.streams()) {
    if (stream.kind == engine::StreamKind::video) return stream.index;
  }
  return -1;
}

CachedPictureReader cachedReader(const std::shared_ptr<const MediaFile>& file, std::size_t limit) {
  return std::move(*CachedPictureReader::open(file, pictureStream(*file), limit));
}

std::vector<std::string> linearHashes(const std::shared_ptr<const MediaFile>& file) {
  auto reader = PictureReader::open(file, pictureStream(*file));
  std::vector<std::string> hashes;
  for (std::size_t i = 0; i < reader->table().pictureCount(); ++i) hashes.push_back(hashOf(*reader->picture(i)));
  return hashes;
}

std::vector<std::uint32_t> backwards(std::size_t count) {
  std::vector<std::uint32_t> order(count);
  for (std::size_t i = 0; i < count; ++i) order[i] = static_cast<std::uint32_t>(count - 1 - i);
  return order;
}

std::vector<std::uint32_t> anyOrder(std::size_t count, std::size_t requests) {
  std::mt19937 random(20);
  std::vector<std::uint32_t> order(requests);
  for (auto& picture : order) picture = static_cast<std::uint32_t>(random() % count);
  return order;
}

enum class Requests { oneByOne, knownAhead };

/// The first picture that is not what decoding the whole track gives; empty when all are.
std::string firstDifference(CachedPictureReader& reader, const std::vector<std::uint32_t>& order, Requests requests,
                            const std::vector<std::string>& linear) {
  const std::span<const std::uint32_t> all(order);
  for (std::size_t i = 0; i < order.size(); ++i) {
    const auto upcoming = requests == Requests::knownAhead ? all.subspan(i + 1) : all.first(0);
    const auto frame = reader.picture(order[i], upcoming);
    if (!frame) return frame.error().sentence;
    if (hashOf(*frame) != linear[order[i]])
      return "picture " + std::to_string(order[i]) + ", request " + std::to_string(i);
  }
  return {};
}

void expectExactInAnyOrder(const std::shared_ptr<const MediaFile>& file, const std::vector<std::string>& linear) {
  const auto random = anyOrder(linear.size(), 200);
  for (const std::size_t limit : {roomy, std::size_t{2} << 20}) {
    SCOPED_TRACE(std::to_string(limit) + " bytes");
    for (const Requests requests : {Requests::oneByOne, Requests::knownAhead}) {
      auto reader = cachedReader(file, limit);
      EXPECT_EQ(firstDifference(reader, random, requests, linear), "") << "in any order";
      EXPECT_EQ(firstDifference(reader, backwards(linear.size()), requests, linear), "") << "backwards";
    }
  }
  for (std::size_t i = 0; i < linear.size(); i += 3) {
    auto reader = cachedReader(file, 0);
    const auto picture = static_cast<std::uint32_t>(i);
    EXPECT_EQ(firstDifference(reader, {picture, picture / 2}, Requests::oneByOne, linear), "") << "with no memory";
  }
}

struct ClipCase {
  const char* name;
  ClipOptions options;
};
std::ostream& operator<<(std::ostream& out, const ClipCase& clip) { return out << clip.name; }

class PictureReadersTest : public testing::TestWithParam<ClipCase> {};

TEST_P(PictureReadersTest, GiveInAnyOrderWhatFfmpegDecodes) {
  const BarCodeClip clip(GetParam().options);
  const auto file = opened(clip.path());
  const auto linear = linearHashes(file);
  EXPECT_EQ(linear, MediaJudge(clip.path()).pictureHashes());
  expectExactInAnyOrder(file, linear);
}

INSTANTIATE_TEST_SUITE_P(
    Clips, PictureReadersTest,
    testing::Values(ClipCase{"closed groups with references among the bidirectional pictures",
                             {.preset = "medium", .bFrames = 3, .audioCodec = ""}},
                    ClipCase{"open groups of H.264", {.gop = 15, .groups = GroupOfPictures::open, .audioCodec = ""}},
                    ClipCase{"open groups of HEVC with leading pictures",
                             {.videoCodec = "libx265",
                              .preset = "ultrafast",
                              .gop = 12,
                              .groups = GroupOfPictures::open,
                              .audioCodec = ""}},
                    ClipCase{"fields of ten bits",
                             {.pixelFormat = "yuv420p10le",
                              .audioCodec = "",
                              .outputArguments = {"-flags", "+ildct+ilme", "-x264-params", "tff=1"}}},
                    ClipCase{"a container whose samples only the demuxer finds",
                             {.audioCodec = "", .extension = ".mkv"}}));

TEST(PictureReadersTest, GiveInAnyOrderWhatRealClipsHold) {
  const char* folder = std::getenv("CLIPWORKS_MEDIA");
  if (folder == nullptr) GTEST_SKIP() << "CLIPWORKS_MEDIA names no folder with clips";
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (!entry.is_regular_file() || fs::file_size(entry.path()) > 1'500'000) continue;  // large ones take minutes
    SCOPED_TRACE(entry.path().filename().string());
    auto file = MediaFile::open(entry.path());
    if (!file || pictureStream(**file) < 0) continue;
    const auto linear = linearHashes(*file);
    auto reader = cachedReader(*file, std::size_t{48} << 20);
    EXPECT_EQ(firstDifference(reader, anyOrder(linear.size(), 40), Requests::oneByOne, linear), "") << "in any order";
    EXPECT_EQ(firstDifference(reader, backwards(linear.size()), Requests::knownAhead, linear), "") << "backwards";
  }
}

struct EffortCase {
  const char* name;
  int gop;
  std::size_t picturesKept;  // beside those in the decoder
  std::vector<std::uint32_t> order;
  double mostDecoded;  // of the clip's 120 samples
  Requests requests = Requests::knownAhead;
};
std::ostream& operator<<(std::ostream& out, const EffortCase& effort) { return out << effort.name; }

class DecodingEffortTest : public testing::TestWithParam<EffortCase> {};

TEST_P(DecodingEffortTest, StaysWithinItsBound) {
  const auto& [name, gop, picturesKept, order, mostDecoded, requests] = GetParam();
  const BarCodeClip clip({.frames = 120, .gop = gop, .audioCodec = ""});
  const auto file = opened(clip.path());
  const std::size_t pictureBytes = std::size_t{384} * 192 * 3 / 2;
  auto reader = cachedReader(file, (picturesKept + 8) * pictureBytes);
  for (std::size_t i = 0; i < order.size(); ++i) {
    const auto upcoming = std::span(order).subspan(requests == Requests::knownAhead ? i + 1 : order.size());
    ASSERT_TRUE(reader.picture(order[i], upcoming));
    ASSERT_LE(reader.bytesKept(), (picturesKept + 8) * pictureBytes);
  }
  EXPECT_LE(static_cast<double>(reader.samplesDecoded()), mostDecoded * 120);
}

std::vector<std::uint32_t> forwards(std::size_t count) {
  auto order = backwards(count);
  std::reverse(order.begin(), order.end());
  return order;
}

INSTANTIATE_TEST_SUITE_P(
    Runs, DecodingEffortTest,
    testing::Values(EffortCase{"forwards each sample is decoded once, whatever the memory", 30, 0, forwards(120), 1.0},
                    EffortCase{"backwards through groups that fit, once too", 30, 40, backwards(120), 1.0},
                    EffortCase{"backwards through a group three times the memory, twice", 120, 40, backwards(120), 2.5},
                    EffortCase{"any ten of one group, once", 120, 40, {90, 7, 110, 40, 41, 3, 64, 30, 99, 12}, 1.0},
                    EffortCase{"any ten of one group that fits, one by one, hardly more",
                               120,
                               120,
                               {90, 7, 110, 40, 41, 3, 64, 30, 99, 12},
                               1.2,
                               Requests::oneByOne},
                    EffortCase{"any ten of one three times the memory, one by one, twice",
                               120,
                               40,
                               {90, 7, 110, 40, 41, 3, 64, 30, 99, 12},
                               2.0,
                               Requests::oneByOne},
                    EffortCase{"backwards in steps through three times the memory, one by one, in windows",
                               120,
                               40,
                               {119, 109, 99, 89, 79, 69, 59, 49, 39, 29, 19, 9},
                               3.0,
                               Requests::oneByOne},
                    EffortCase{"many of one group that fits, one by one, in little more than two passes", 120, 200,
                               anyOrder(120, 80), 2.5, Requests::oneByOne},
                    EffortCase{"one far into a group, without what nothing refers to", 120, 40, {115}, 0.8}));

TEST(CachedPictureReaderTest, HoldsTheLastPictureWhereTheFileIsCut) {
  const BarCodeClip clip({.frames = 60, .audioCodec = "", .outputArguments = {"-movflags", "+faststart"}});
  const TemporaryDirectory directory;
  const fs::path path = directory.file("cut.mp4");
  fs::copy_file(clip.path(), path);
  fs::resize_file(path, fs::file_size(path) * 3 / 4);
  const auto whole = linearHashes(opened(clip.path()));
  auto reader = cachedReader(opened(path), roomy);
  const auto order = backwards(60);
  std::vector<std::string> hashes(60);
  for (const auto picture : order) hashes[picture] = hashOf(*reader.picture(picture));
  std::size_t held = 0;
  for (std::size_t i = 1; i < 60; ++i) {
    const bool isHeld = hashes[i] != whole[i];
    EXPECT_EQ(hashes[i], isHeld ? hashes[i - 1] : whole[i]) << i;
    held += isHeld ? 1 : 0;
  }
  EXPECT_GT(held, 5U);
  EXPECT_LT(held, 40U);
}

TEST(CachedPictureReaderTest, StopsOnRequest) {
  const BarCodeClip clip({.gop = 60, .audioCodec = ""});
  auto reader = cachedReader(opened(clip.path()), roomy);
  std::stop_source stop;
  stop.request_stop();
  EXPECT_EQ(reader.picture(50, {}, stop.get_token()).error().kind, engine::ErrorKind::cancelled);
  EXPECT_TRUE(reader.picture(50)) << "and goes on with the next";
}

TEST(WholePicturesTest, MakesInterlacedPicturesWholeTheSameInAnyOrder) {
  const BarCodeClip clip(
      {.frames = 30, .audioCodec = "", .outputArguments = {"-flags", "+ildct+ilme", "-x264-params", "tff=1"}});
  const auto file = opened(clip.path());
  const int stream = pictureStream(*file);
  ASSERT_FALSE(file->stream(stream).progressive);
  auto linear = PictureReader::open(file, stream);
  engine::WholePictures rising(true, 30);
  std::vector<std::string> whole;
  for (std::size_t i = 0; i < 30; ++i)
    whole.push_back(hashOf(*rising.picture(i, [&](std::size_t picture) { return linear->picture(picture); })));
  EXPECT_NE(whole, linearHashes(file));
  auto reader = cachedReader(file, roomy);
  engine::WholePictures anyhow(true, 30);
  auto order = backwards(30);
  for (const std::uint32_t picture : {17, 17, 2, 29, 16, 18}) order.push_back(picture);
  for (const auto picture : order) {
    const auto frame = anyhow.picture(picture, [&](std::size_t coded) { return reader.picture(coded); });
    EXPECT_EQ(hashOf(*frame), whole[picture]) << picture;
  }
  EXPECT_LE(reader.samplesDecoded(), 60) << "two passes over the clip, not one for each picture";
}

}  // namespace
}  // namespace clipworks::test
