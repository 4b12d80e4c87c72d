#include <algorithm>
#include <ostream>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include <clipworks/media/composition/AVMutableVideoComposition.h>

#include "ExportTesting.h"

// Exports whose pictures cannot stay as they are coded.

namespace clipworks::test {
namespace {

using testing::Each;
using testing::Gt;
using testing::HasSubstr;
using testing::IsEmpty;

/// How alike the pictures of `output` and, in front, of `source` are: structural similarity of Y, Cb and Cr, 1 for
/// equal ones. `filter` brings the source's pictures to the size of the output's.
std::vector<double> similarity(const std::filesystem::path& output, const std::filesystem::path& source, int pictures,
                               const std::string& filter) {
  const std::string graph = "[0:v]trim=end_frame=" + std::to_string(pictures) +
                            ",settb=1/1000,setpts=N,format=yuv444p[a];[1:v]settb=1/1000,setpts=N," + filter +
                            "format=yuv444p[b];[b][a]scale2ref=flags=bicubic[c][d];[c][d]ssim=shortest=1";
  const ProgramResult result = runProgram({"ffmpeg", "-nostdin", "-hide_banner", "-noautorotate", "-i", output,
                                           "-noautorotate", "-i", source, "-an", "-lavfi", graph, "-f", "null", "-"});
  static const std::regex line(R"(SSIM Y:([0-9.]+).* U:([0-9.]+).* V:([0-9.]+))");
  std::smatch match;
  if (!std::regex_search(result.standardError, match, line)) {
    ADD_FAILURE() << result;
    return {};
  }
  return {std::stod(match[1]), std::stod(match[2]), std::stod(match[3])};
}

struct Encoding {
  const char* sentence;
  ClipOptions options;
  std::string_view preset;
  const char* pixelFormat = "yuv420p";
  int width = 320;
  int height = 180;
  /// Of structure, for each plane; lower where the size changes.
  double likeness = 0.97;
};
void PrintTo(const Encoding& c, std::ostream* out) { *out << c.sentence; }

ClipOptions sized(int width, int height, ClipOptions options) {
  options.width = width;
  options.height = height;
  if (options.frameTimes.empty()) options.frames = 24;
  if (options.videoCodec == "libx265") options.preset = "ultrafast";
  return options;
}

class EncodedLoop : public testing::TestWithParam<Encoding> {};

TEST_P(EncodedLoop, ShowsEveryPictureAgainFromOneEncoding) {
  const auto& c = GetParam();
  const BarCodeClip clip(c.options);
  const double length = lengthOf(clip.path());
  const TemporaryDirectory directory;
  constexpr int count = 3;
  const auto exported = exportAsset(loopOf(clip.path(), count), c.preset, directory.file("loop.mp4"));
  ASSERT_EQ(exported.failure(), "");
  EXPECT_FALSE(exported.tracks.at(0).copied);
  const bool isHEVC = c.preset == AVAssetExportPresetHEVCHighestQuality;
  EXPECT_EQ(exported.tracks.at(0).encoder, isHEVC ? "libx265" : "libx264");
  EXPECT_THAT(exported.tracks.at(0).remark, HasSubstr("encoded"));

  const MediaJudge output(directory.file("loop.mp4"));
  expectPictures(output.pictures(), loopedPictures(clip.times(), length, count), 0.0001);
  const ProbedStream video = output.stream("video");
  const ProbedStream source = MediaJudge(clip.path()).stream("video");
  EXPECT_EQ(video.tag, isHEVC ? "hvc1" : "avc1");
  EXPECT_EQ(video.pixelFormat, c.pixelFormat);
  EXPECT_EQ(video.width, c.width);
  EXPECT_EQ(video.height, c.height);
  EXPECT_EQ(video.matrix, source.matrix);
  EXPECT_EQ(output.warnings(), "");

  const auto hashes = hashesOf(output.codedSamples("video"));
  const std::size_t once = clip.times().size();
  ASSERT_EQ(hashes.size(), count * once);
  for (std::size_t i = once; i < hashes.size(); ++i) {
    ASSERT_EQ(hashes[i], hashes[i - once]) << "sample " << i << " was encoded again";
  }
  EXPECT_THAT(similarity(directory.file("loop.mp4"), clip.path(), static_cast<int>(once), ""),
              testing::AllOf(testing::SizeIs(3), Each(Gt(c.likeness))));
}

const std::vector<std::int64_t> unevenTimes{0,      1001,   2002,   4004,   5005,   9000,   10'000, 10'500, 28'500,
                                            29'500, 30'500, 32'502, 33'503, 35'000, 36'001, 38'000, 39'001, 41'003};

constexpr auto toH264 = AVAssetExportPresetHighestQuality;
constexpr auto toHEVC = AVAssetExportPresetHEVCHighestQuality;
constexpr auto toLow = AVAssetExportPresetLowQuality;

INSTANTIATE_TEST_SUITE_P(
    Sources, EncodedLoop,
    testing::Values(
        Encoding{"HEVC to H.264", sized(320, 180, {.videoCodec = "libx265"}), toH264},
        Encoding{"H.264 at a variable rate to HEVC",
                 sized(320, 180, {.frameTimes = unevenTimes, .lastFrameLength = 3000, .timescale = 30'000}), toHEVC},
        Encoding{"H.264 turned a quarter to HEVC", sized(320, 180, {.rotation = 90}), toHEVC},
        Encoding{"MPEG-4 of odd sides to H.264", sized(161, 121, {.videoCodec = "mpeg4"}), toH264, "yuv420p", 162, 122,
                 0.8},
        Encoding{"H.264 in 4:2:2 to H.264", sized(320, 180, {.pixelFormat = "yuv422p"}), toH264},
        Encoding{"H.264 in 4:4:4 to HEVC", sized(320, 180, {.pixelFormat = "yuv444p"}), toHEVC},
        Encoding{"10 bits to H.264 of 8", sized(320, 180, {.pixelFormat = "yuv420p10le"}), toH264},
        Encoding{"10 bits to HEVC of 10", sized(320, 180, {.pixelFormat = "yuv420p10le"}), toHEVC, "yuv420p10le"},
        Encoding{"full range to full range", sized(320, 180, {.pixelFormat = "yuvj420p"}), toHEVC, "yuvj420p"},
        Encoding{"tall H.264 to low quality", sized(360, 720, {}), toLow, "yuv420p", 240, 480, 0.85},
        Encoding{"small H.264 to low quality, not enlarged", sized(160, 90, {}), toLow, "yuv420p", 160, 90, 0.85}));

TEST(LowQuality, KeepsToItsBitRates) {
  const BarCodeClip clip({.width = 1280, .height = 720, .frames = 120, .preset = "ultrafast"});
  const TemporaryDirectory directory;
  const auto exported =
      exportAsset(AVAsset::make(URL(clip.path())), AVAssetExportPresetLowQuality, directory.file("low.mp4"));
  ASSERT_EQ(exported.failure(), "");
  const MediaJudge output(directory.file("low.mp4"));
  EXPECT_LE(output.stream("video").bitRate, 500'000);
  EXPECT_GE(output.stream("video").bitRate, 100'000) << "nor far below what the pictures may take";
  EXPECT_EQ(output.stream("video").width, 480);
  EXPECT_NEAR(static_cast<double>(output.stream("audio").bitRate), 128'000, 20'000);
  EXPECT_EQ(output.stream("audio").codec, "aac");
}

CMTime at(std::int64_t milliseconds) { return {milliseconds, 1000}; }
CMTimeRange span(std::int64_t from, std::int64_t to) { return {at(from), at(to - from)}; }

BarCodeClip smallClip(GroupOfPictures groups = GroupOfPictures::closed) {
  return BarCodeClip({.width = 160, .height = 90, .frames = 90, .timescale = 30, .gop = 30, .groups = groups});
}

/// The pictures `first` … `last` of a clip of 30 a second: the first at `start`, the others where they are shown when
/// the clip's time `sourceStart` is at `start`. All in milliseconds.
void append(std::vector<SeenPicture>& to, double start, double sourceStart, int first, int last) {
  for (int number = first; number <= last; ++number) {
    to.push_back({std::max(start, start + number * 1000.0 / 30 - sourceStart) / 1000, number, {}});
  }
}

struct Cut {
  const char* sentence;
  std::int64_t from;
  std::int64_t to;
  int first;
  int last;
  bool copied = false;
  GroupOfPictures groups = GroupOfPictures::closed;
};
void PrintTo(const Cut& c, std::ostream* out) { *out << c.sentence; }

class CutClips : public testing::TestWithParam<Cut> {};

TEST_P(CutClips, ShowsItsPicturesFromTheExactInstant) {
  const auto& c = GetParam();
  const auto clip = smallClip(c.groups).path();
  const TemporaryDirectory directory;
  const auto exported = exportAsset(cutOf({{clip, c.from, c.to}, {clip, c.from, c.to}}),
                                    AVAssetExportPresetHighestQuality, directory.file("cut.mp4"));
  ASSERT_EQ(exported.failure(), "");
  EXPECT_EQ(exported.tracks.at(0).copied, c.copied) << exported.tracks.at(0).remark;

  const MediaJudge output(directory.file("cut.mp4"));
  const auto from = static_cast<double>(c.from);
  const double length = static_cast<double>(c.to) - from;
  std::vector<SeenPicture> expected;
  append(expected, 0, from, c.first, c.last);
  append(expected, length, from, c.first, c.last);
  expectPictures(output.pictures(), expected, 0.0001);
  EXPECT_NEAR(output.duration(), 2 * length / 1000, 0.001);
  EXPECT_EQ(output.warnings(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Cuts, CutClips,
    testing::Values(Cut{"whole groups of pictures", 1000, 2000, 30, 59, true},
                    Cut{"a start between two pictures, the first of which stays on screen", 510, 1500, 15, 44},
                    Cut{"a start between two groups' pictures", 990, 2000, 29, 59},
                    Cut{"an open group of pictures", 1000, 2000, 30, 59, false, GroupOfPictures::open},
                    Cut{"an end inside a group", 1000, 1550, 30, 46},
                    Cut{"the last two pictures, to the end", 2950, 3000, 88, 89}));

TEST(CutClip, AnOpenGroupWithoutLeadingPicturesIsNotCopied) {
  // Its first picture decodes by itself, but its numbering goes on from the group before: a repeat would fall back.
  ClipOptions options{.width = 160, .height = 90, .frames = 60, .timescale = 30, .videoCodec = "libx265"};
  options.preset = "ultrafast";
  options.bFrames = 0;
  options.groups = GroupOfPictures::open;
  const auto clip = BarCodeClip(options).path();
  const TemporaryDirectory directory;
  const auto exported = exportAsset(cutOf({{clip, 1000, 2000}, {clip, 1000, 2000}}),
                                    AVAssetExportPresetHEVCHighestQuality, directory.file("open.mp4"));
  ASSERT_EQ(exported.failure(), "");
  EXPECT_FALSE(exported.tracks.at(0).copied);
  EXPECT_THAT(exported.tracks.at(0).remark, HasSubstr("open group"));
  std::vector<SeenPicture> expected;
  append(expected, 0, 1000, 30, 59);
  append(expected, 1000, 1000, 30, 59);
  expectPictures(MediaJudge(directory.file("open.mp4")).pictures(), expected, 0.0001);
}

TEST(CutClip, WithinOnePictureShowsItOnceHoweverOftenItPlays) {
  const auto clip = smallClip().path();
  const TemporaryDirectory directory;
  const auto exported = exportAsset(cutOf({{clip, 505, 525}, {clip, 505, 525}, {clip, 505, 525}}),
                                    AVAssetExportPresetHighestQuality, directory.file("still.mp4"));
  ASSERT_EQ(exported.failure(), "");
  const MediaJudge output(directory.file("still.mp4"));
  EXPECT_EQ(numbersOf(output.pictures()), std::vector<int>{15});
  EXPECT_NEAR(output.duration(), 0.06, 0.001);
}

TEST(JoinedClips, AreEncodedIntoThePicturesOfTheFirst) {
  const auto one = smallClip().path();
  const BarCodeClip two({.width = 320, .height = 240, .frames = 60, .videoCodec = "mpeg4"});
  const TemporaryDirectory directory;
  const auto exported = exportAsset(cutOf({{one, 0, 1000}, {two.path(), 1000, 1500}, {one, 0, 500}}),
                                    AVAssetExportPresetHighestQuality, directory.file("joined.mp4"));
  ASSERT_EQ(exported.failure(), "");
  const MediaJudge output(directory.file("joined.mp4"));
  std::vector<SeenPicture> expected;
  append(expected, 0, 0, 0, 29);
  append(expected, 1000, 1000, 30, 44);
  append(expected, 1500, 0, 0, 14);
  expectPictures(output.pictures(), expected, 0.0001);
  EXPECT_EQ(output.stream("video").width, 160);
  EXPECT_EQ(output.warnings(), "");
}

/// What ffprobe tells of mastering and light level: of the track's description and of the first picture, line by line.
std::string lightOf(const std::filesystem::path& path) {
  const auto told = [&](const std::string& entries) {
    const ProgramResult result =
        runProgram({"ffprobe", "-v", "error", "-select_streams", "v", "-read_intervals", "%+#1", "-show_entries",
                    entries + "=red_x,red_y,green_x,green_y,blue_x,blue_y,white_point_x,"
                              "white_point_y,min_luminance,max_luminance,max_content,max_average",
                    "-of", "default=noprint_wrappers=1", path});
    EXPECT_TRUE(result.succeeded()) << result;
    return result.standardOutput;
  };
  return "track\n" + told("stream_side_data") + "picture\n" + told("frame_side_data");
}

TEST(RenderedPictures, OfHighDynamicRangeStaySoInHEVC) {
  ClipOptions options = sized(320, 180, {.videoCodec = "libx265", .pixelFormat = "yuv420p10le", .audioCodec = ""});
  options.outputArguments = {"-color_primaries",
                             "bt2020",
                             "-color_trc",
                             "smpte2084",
                             "-colorspace",
                             "bt2020nc",
                             "-x265-params",
                             "log-level=none:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)"
                             "L(40000000,50):max-cll=3210,400"};
  const BarCodeClip clip(options);
  const auto composition = loopOf(clip.path(), 1);
  const auto layer = AVMutableVideoCompositionLayerInstruction::make(composition->tracks(AVMediaTypeVideo).at(0));
  layer->setTransform({0, 1, -1, 0, 180, 0}, kCMTimeZero);
  const auto instruction = AVMutableVideoCompositionInstruction::make();
  instruction->setTimeRange({kCMTimeZero, composition->duration()});
  instruction->setLayerInstructions({layer});
  const auto turned = AVMutableVideoComposition::make();
  turned->setRenderSize({180, 320});
  turned->setInstructions({instruction});
  turned->setFrameDuration({1, 30});
  const TemporaryDirectory directory;
  const auto exported = exportAsset(composition, toHEVC, directory.file("turned.mp4"),
                                    [&](AVAssetExportSession& session) { session.setVideoComposition(turned); });
  ASSERT_EQ(exported.failure(), "");
  const MediaJudge output(directory.file("turned.mp4"));
  const ProbedStream video = output.stream("video");
  EXPECT_EQ(video.pixelFormat, "yuv420p10le");
  EXPECT_EQ(video.colorPrimaries, "bt2020");
  EXPECT_EQ(video.colorTransfer, "smpte2084");
  EXPECT_EQ(video.colorSpace, "bt2020nc");
  EXPECT_EQ(video.colorRange, "tv");
  const std::string light =
      "red_x=34000/50000\nred_y=16000/50000\ngreen_x=13250/50000\ngreen_y=34500/50000\nblue_x=7500/50000\n"
      "blue_y=3000/50000\nwhite_point_x=15635/50000\nwhite_point_y=16450/50000\nmin_luminance=50/10000\n"
      "max_luminance=40000000/10000\nmax_content=3210\nmax_average=400\n";
  EXPECT_EQ(lightOf(directory.file("turned.mp4")), "track\n" + light + "picture\n" + light);
  EXPECT_EQ(numbersOf(output.pictures()), numbersOf(MediaJudge(clip.path()).pictures()));
  EXPECT_THAT(similarity(directory.file("turned.mp4"), clip.path(), 24, "transpose=clock,"),
              testing::AllOf(testing::SizeIs(3), Each(Gt(0.97))));
}

TEST(EmptyRange, IsBlackAndSilent) {
  const BarCodeClip clip({.width = 160, .height = 90, .frames = 60});
  const auto asset = AVAsset::make(URL(clip.path()));
  const auto composition = AVMutableComposition::make();
  for (const auto type : {AVMediaTypeVideo, AVMediaTypeAudio}) {
    const auto track = composition->addMutableTrack(type, kCMPersistentTrackID_Invalid);
    const auto source = asset->tracks(type).at(0);
    ASSERT_TRUE(track->insertTimeRange(span(0, 1000), source, kCMTimeZero));
    track->insertEmptyTimeRange(span(1000, 1400));
    ASSERT_TRUE(track->insertTimeRange(span(1000, 2000), source, at(1400)));
  }
  const TemporaryDirectory directory;
  const auto exported = exportAsset(composition, AVAssetExportPresetHighestQuality, directory.file("hole.mp4"));
  ASSERT_EQ(exported.failure(), "");
  const MediaJudge output(directory.file("hole.mp4"));
  std::vector<SeenPicture> expected;
  append(expected, 0, 0, 0, 29);
  expected.push_back({1.0, -1, {}});
  append(expected, 1400, 1000, 30, 59);
  expectPictures(output.pictures(), expected, 0.0001);

  const ProgramResult seen = runProgram({"ffmpeg", "-nostdin", "-hide_banner", "-i", directory.file("hole.mp4"), "-an",
                                         "-vf", "blackdetect=d=0.3:pic_th=1:pix_th=0.02", "-f", "null", "-"});
  EXPECT_THAT(seen.standardError, HasSubstr("black_start:1 black_end:1.4 ")) << "not black, or not as long";
  const Sound sound = output.sound();
  EXPECT_EQ(toneSecondAt(sound, 0.9), 0);
  EXPECT_LT(sound.part(1.03, 1.37).level(), 0.003);
  EXPECT_EQ(toneSecondAt(sound, 1.45), 1);
}

TEST(ScaledRange, ShowsTheSamePicturesForLonger) {
  const auto composition = cutOf({{smallClip().path(), 0, 2000}});
  composition->compositionTracks().front()->scaleTimeRange(span(500, 1500), at(2500));
  const TemporaryDirectory directory;
  const auto exported = exportAsset(composition, AVAssetExportPresetHighestQuality, directory.file("slow.mp4"));
  ASSERT_EQ(exported.failure(), "");
  const MediaJudge output(directory.file("slow.mp4"));
  std::vector<SeenPicture> expected;
  for (int number = 0; number < 60; ++number) {
    const double time = number / 30.0;
    expected.push_back({time < 0.5 ? time : time < 1.5 ? 0.5 + (time - 0.5) * 2.5 : time + 1.5, number, {}});
  }
  expectPictures(output.pictures(), expected, 0.0001);
  EXPECT_NEAR(output.duration(), 3.5, 0.001);
}

TEST(SoundAlone, MakesAFileWithoutPictures) {
  const BarCodeClip clip({.frames = 0, .sampleRate = 44'100, .audioSeconds = 2.2, .extension = ".m4a"});
  const TemporaryDirectory directory;
  for (const int count : {1, 3}) {
    const auto path = directory.file(std::to_string(count) + ".mp4");
    const auto exported = exportAsset(loopOf(clip.path(), count), AVAssetExportPresetHighestQuality, path);
    ASSERT_EQ(exported.failure(), "");
    ASSERT_EQ(exported.tracks.size(), 1U);
    EXPECT_EQ(exported.tracks.front().copied, count == 1);
    const MediaJudge output(path);
    EXPECT_EQ(output.streams().size(), 1U);
    EXPECT_NEAR(output.duration(), count * 2.2, 0.03);
    EXPECT_EQ(output.warnings(), "");
    const double start = (count - 1) * MediaJudge(clip.path()).duration();
    const Sound last = output.sound().part(start, start + 2);
    EXPECT_NEAR(lagMilliseconds(makeTone(16'000, 0, 2), last).value(), 0, count == 1 ? 0.1 : 1);
  }
}

TEST(Passthrough, RefusesWhatItCannotCopy) {
  const TemporaryDirectory directory;
  const Part part{smallClip().path(), 500, 1500};
  const auto exported = exportAsset(cutOf({part, part}), AVAssetExportPresetPassthrough, directory.file("cut.mp4"));
  EXPECT_EQ(exported.status, AVAssetExportSessionStatus::failed);
  ASSERT_TRUE(exported.error);
  EXPECT_EQ(exported.error->code(), static_cast<int>(AVError::operationNotSupportedForAsset));
  EXPECT_THAT(exported.error->localizedDescription(), HasSubstr("inside a group"));
  EXPECT_THAT(filesIn(directory.path()), IsEmpty());
}

TEST(TwoTracksOfSound, AreMixed) {
  const BarCodeClip two({.frames = 0, .audioSeconds = 2, .extension = ".m4a"});
  const auto composition = cutOf({{smallClip().path(), 0, 900}}, AVMediaTypeAudio);
  const auto track = composition->addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
  const auto source = AVAsset::make(URL(two.path()))->tracks(AVMediaTypeAudio).at(0);
  ASSERT_TRUE(track->insertTimeRange(span(1000, 2000), source, at(900)));
  const TemporaryDirectory directory;
  const auto exported = exportAsset(composition, AVAssetExportPresetPassthrough, directory.file("mix.mp4"));
  ASSERT_EQ(exported.failure(), "");
  ASSERT_EQ(exported.tracks.size(), 1U);
  EXPECT_EQ(exported.tracks[0].encoder, "aac");
  const Sound sound = MediaJudge(directory.file("mix.mp4")).sound();
  EXPECT_EQ(toneSecondAt(sound, 0.5), 0);
  EXPECT_EQ(toneSecondAt(sound, 1.2), 1);
  EXPECT_NEAR(lagMilliseconds(makeTone(16'000, 1, 0.9), sound.part(0.9, 1.8)).value(), 0, 0.1);
}

}  // namespace
}  // namespace clipworks::test
