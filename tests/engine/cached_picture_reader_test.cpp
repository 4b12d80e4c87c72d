#include <clipworks/engine/input/CachedPictureReader.h>

extern "C" {
#include <libavutil/md5.h>
}

#include <clipworks/engine/input/PictureReader.h>
#include <clipworks/engine/pictures/WholePictures.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

using File = std::shared_ptr<const MediaFile>;
using Hashes = std::vector<std::string>;
using Order = std::vector<std::uint32_t>;

constexpr std::size_t roomy = std::size_t{256} << 20;
const std::vector<std::string> fields{"-flags", "+ildct+ilme", "-x264-params", "tff=1"};

/// MD5 of the planes without padding, as the ffmpeg program counts it.
std::string hashOf(const Frame& frame) {
  const auto format = static_cast<AVPixelFormat>(frame->format);
  const int size = av_image_get_buffer_size(format, frame->width, frame->height, 1);
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
  av_image_copy_to_buffer(bytes.data(), size, frame->data, frame->linesize, format, frame->width, frame->height, 1);
  std::array<std::uint8_t, 16> sum{};
  av_md5_sum(sum.data(), bytes.data(), bytes.size());
  std::string text;
  for (const int byte : sum) text += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
  return text;
}

int pictureStream(const File& file) { return streamOf(*file, StreamKind::video)->index; }

CachedPictureReader cachedReader(const File& file, std::size_t limit = roomy) {
  return must(CachedPictureReader::open(file, pictureStream(file), limit));
}

Hashes linearHashes(const File& file) {
  auto reader = must(PictureReader::open(file, pictureStream(file)));
  Hashes hashes;
  while (hashes.size() < reader.table().pictureCount()) hashes.push_back(hashOf(must(reader.picture(hashes.size()))));
  return hashes;
}

Order forwards(std::size_t count) {
  Order order(count);
  std::iota(order.begin(), order.end(), 0U);
  return order;
}

Order backwards(std::size_t count) {
  Order order = forwards(count);
  std::ranges::reverse(order);
  return order;
}

Order anyOrder(std::size_t count, std::size_t requests) {
  std::mt19937 random(20);
  Order order(requests);
  for (auto& picture : order) picture = static_cast<std::uint32_t>(random() % count);
  return order;
}

enum class Requests { oneByOne, knownAhead };

std::span<const std::uint32_t> upcoming(const Order& order, std::size_t i, Requests requests) {
  return std::span(order).subspan(requests == Requests::knownAhead ? i + 1 : order.size());
}

/// Each picture is what decoding the whole track gives.
void expectLinear(CachedPictureReader& reader, const Order& order, Requests requests, const Hashes& linear) {
  for (std::size_t i = 0; i < order.size(); ++i) {
    const Frame frame = must(reader.picture(order[i], upcoming(order, i, requests)));
    ASSERT_EQ(hashOf(frame), linear[order[i]]) << "picture " << order[i] << ", request " << i;
  }
}

void expectWhatFfmpegDecodes(const char* name, const test::ClipOptions& options) {
  SCOPED_TRACE(name);
  const test::BarCodeClip clip(options);
  const auto file = must(MediaFile::open(clip.path()));
  const auto linear = linearHashes(file);
  EXPECT_EQ(linear, test::MediaJudge(clip.path()).pictureHashes());
  for (const std::size_t limit : {roomy, std::size_t{2} << 20}) {
    for (const Requests requests : {Requests::oneByOne, Requests::knownAhead}) {
      auto reader = cachedReader(file, limit);
      expectLinear(reader, anyOrder(linear.size(), 200), requests, linear);
      expectLinear(reader, backwards(linear.size()), requests, linear);
    }
  }
  for (std::uint32_t picture = 0; picture < linear.size(); picture += 3) {
    auto reader = cachedReader(file, 0);
    expectLinear(reader, {picture, picture / 2}, Requests::oneByOne, linear);
  }
}

TEST(PictureReaders, GiveInAnyOrderWhatFfmpegDecodes) {
  constexpr auto open = test::GroupOfPictures::open;
  expectWhatFfmpegDecodes("references among the bidirectional pictures",
                          {.preset = "medium", .bFrames = 3, .audioCodec = ""});
  expectWhatFfmpegDecodes("open groups of H.264", {.gop = 15, .groups = open, .audioCodec = ""});
  expectWhatFfmpegDecodes(
      "open groups of HEVC with leading pictures",
      {.videoCodec = "libx265", .preset = "ultrafast", .gop = 12, .groups = open, .audioCodec = ""});
  expectWhatFfmpegDecodes("fields of ten bits",
                          {.pixelFormat = "yuv420p10le", .audioCodec = "", .outputArguments = fields});
  expectWhatFfmpegDecodes("samples that only the demuxer finds", {.audioCodec = "", .extension = ".mkv"});
}

TEST(PictureReaders, GiveInAnyOrderWhatRealClipsHold) {
  const char* folder = std::getenv("CLIPWORKS_MEDIA");
  if (folder == nullptr) GTEST_SKIP() << "CLIPWORKS_MEDIA names no folder with clips";
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (!entry.is_regular_file() || entry.file_size() > 1'500'000) continue;  // large ones take minutes
    SCOPED_TRACE(entry.path().filename());
    const auto file = MediaFile::open(entry.path());
    if (!file || streamOf(**file, StreamKind::video) == nullptr) continue;
    const auto linear = linearHashes(*file);
    auto reader = cachedReader(*file, std::size_t{48} << 20);
    expectLinear(reader, anyOrder(linear.size(), 40), Requests::oneByOne, linear);
    expectLinear(reader, backwards(linear.size()), Requests::knownAhead, linear);
  }
}

/// How often each sample of a clip of 120 is decoded, with room for `kept` pictures beside those in the decoder.
double effort(int gop, std::size_t kept, const Order& order, Requests requests) {
  const test::BarCodeClip clip({.frames = 120, .gop = gop, .audioCodec = ""});
  const std::size_t limit = (kept + 8) * 384 * 192 * 3 / 2;
  auto reader = cachedReader(must(MediaFile::open(clip.path())), limit);
  for (std::size_t i = 0; i < order.size(); ++i) {
    must(reader.picture(order[i], upcoming(order, i, requests)));
    EXPECT_LE(reader.bytesKept(), limit);
  }
  return static_cast<double>(reader.samplesDecoded()) / 120;
}

TEST(CachedPictureReader, DecodesNoMoreThanItNeeds) {
  const Order anyTen{90, 7, 110, 40, 41, 3, 64, 30, 99, 12};
  EXPECT_LE(effort(30, 0, forwards(120), Requests::knownAhead), 1.0) << "forwards, whatever the memory";
  EXPECT_LE(effort(30, 40, backwards(120), Requests::knownAhead), 1.0) << "backwards through groups that fit";
  EXPECT_LE(effort(120, 40, backwards(120), Requests::knownAhead), 2.5) << "backwards through three times the memory";
  EXPECT_LE(effort(120, 40, anyTen, Requests::knownAhead), 1.0) << "any ten of one group";
  EXPECT_LE(effort(120, 120, anyTen, Requests::oneByOne), 1.2) << "any ten of one group that fits";
  EXPECT_LE(effort(120, 40, anyTen, Requests::oneByOne), 2.0) << "any ten of one three times the memory";
  const Order everyTenth{119, 109, 99, 89, 79, 69, 59, 49, 39, 29, 19, 9};
  EXPECT_LE(effort(120, 40, everyTenth, Requests::oneByOne), 3.0) << "back in steps through three times the memory";
  EXPECT_LE(effort(120, 200, anyOrder(120, 80), Requests::oneByOne), 2.5) << "many of one group that fits";
  EXPECT_LE(effort(120, 40, {115}, Requests::knownAhead), 0.8)
      << "one far into a group, without what nothing refers to";
}

TEST(CachedPictureReader, HoldsTheLastPictureWhereTheFileIsCut) {
  const test::BarCodeClip clip({.audioCodec = "", .outputArguments = {"-movflags", "+faststart"}});
  const test::TemporaryDirectory directory;
  const auto bytes = fileBytes(clip.path());
  const auto cut = writeTo(directory.file("cut.mp4"), bytes.substr(0, bytes.size() * 3 / 4));
  const auto whole = linearHashes(must(MediaFile::open(clip.path())));
  auto reader = cachedReader(must(MediaFile::open(cut)));
  Hashes hashes(60);
  for (const auto picture : backwards(60)) hashes[picture] = hashOf(must(reader.picture(picture)));
  int held = 0;
  for (std::size_t i = 1; i < 60; ++i) {
    if (hashes[i] == whole[i]) continue;
    EXPECT_EQ(hashes[i], hashes[i - 1]) << i;
    ++held;
  }
  EXPECT_GT(held, 5);
  EXPECT_LT(held, 40);
}

TEST(CachedPictureReader, StopsOnRequest) {
  const test::BarCodeClip clip({.gop = 60, .audioCodec = ""});
  auto reader = cachedReader(must(MediaFile::open(clip.path())));
  std::stop_source stop;
  stop.request_stop();
  EXPECT_EQ(reader.picture(50, {}, stop.get_token()).error().kind, ErrorKind::cancelled);
  EXPECT_TRUE(reader.picture(50)) << "and goes on with the next";
}

TEST(WholePictures, MakesInterlacedPicturesWholeTheSameInAnyOrder) {
  const test::BarCodeClip clip({.frames = 30, .audioCodec = "", .outputArguments = fields});
  const auto file = must(MediaFile::open(clip.path()));
  ASSERT_FALSE(file->stream(pictureStream(file)).progressive);
  auto linear = must(PictureReader::open(file, pictureStream(file)));
  WholePictures rising(true, 30);
  Hashes whole;
  for (std::size_t i = 0; i < 30; ++i)
    whole.push_back(hashOf(must(rising.picture(i, [&](std::size_t picture) { return linear.picture(picture); }))));
  EXPECT_NE(whole, linearHashes(file));
  auto reader = cachedReader(file);
  WholePictures anyhow(true, 30);
  auto order = backwards(30);
  order.insert(order.end(), {17, 17, 2, 29, 16, 18});
  for (const auto picture : order) {
    const auto frame = must(anyhow.picture(picture, [&](std::size_t coded) { return reader.picture(coded); }));
    EXPECT_EQ(hashOf(frame), whole[picture]) << picture;
  }
  EXPECT_LE(reader.samplesDecoded(), 60) << "two passes over the clip, not one for each picture";
}

}  // namespace
}  // namespace clipworks::engine
