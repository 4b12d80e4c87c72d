#include <regex>

#include <clipworks/media/composition/AVMutableVideoComposition.h>

#include "ExportTesting.h"

// Exports whose pictures cannot stay as they are coded.

namespace clipworks::test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::Gt;
using testing::HasSubstr;
using testing::SizeIs;

/// How alike the pictures of `output` and, in front, of `source` are: structural similarity of Y, Cb and Cr, 1 for
/// equal ones. `filter` brings the source's pictures to the size of the output's.
std::vector<double> similarity(const fs::path& output, const fs::path& source, int pictures,
                               const std::string& filter) {
  const std::string graph = "[0:v]trim=end_frame=" + std::to_string(pictures) +
                            ",settb=1/1000,setpts=N,format=yuv444p[a];[1:v]settb=1/1000,setpts=N," + filter +
                            "format=yuv444p[b];[b][a]scale2ref=flags=bicubic[c][d];[c][d]ssim=shortest=1";
  const ProgramResult result = run("ffmpeg -nostdin -hide_banner -noautorotate -i " + output.string() +
                                   " -noautorotate -i " + source.string() + " -an -lavfi " + graph + " -f null -");
  static const std::regex line(R"(SSIM Y:([0-9.]+).* U:([0-9.]+).* V:([0-9.]+))");
  std::smatch match;
  EXPECT_TRUE(std::regex_search(result.standardError, match, line)) << result;
  return {std::stod(match[1]), std::stod(match[2]), std::stod(match[3])};
}

struct Encoding {
  const char* sentence;
  ClipOptions options;
  std::string_view preset;
  /// Pixel format and size.
  std::string form = "yuv420p 320 180";
  /// Of structure, for each plane; lower where the size changes.
  double likeness = 0.97;
};

void expectOneEncoding(const Encoding& c) {
  const BarCodeClip clip(c.options);
  constexpr int count = 3;
  const auto exported = exportAsset(loopOf(clip.path(), count), c.preset);
  const ExportedTrack& track = exported.tracks.at(0);
  EXPECT_FALSE(track.copied);
  EXPECT_EQ(track.encoder, c.preset == toHEVC ? "libx265" : "libx264");
  EXPECT_THAT(track.remark, HasSubstr("encoded"));

  const MediaJudge& output = exported.output;
  expectPictures(output.pictures(), loopedPictures(clip.times(), lengthOf(clip.path()), count), 0.0001);
  const ProbedStream video = output.stream("video");
  EXPECT_EQ(video.tag, c.preset == toHEVC ? "hvc1" : "avc1");
  EXPECT_EQ(video.pixelFormat + ' ' + std::to_string(video.width) + ' ' + std::to_string(video.height), c.form);
  EXPECT_EQ(video.matrix, MediaJudge(clip.path()).stream("video").matrix);
  EXPECT_EQ(output.warnings(), "");

  const auto hashes = hashesOf(output.codedSamples("video"));
  const std::size_t once = clip.times().size();
  ASSERT_EQ(hashes.size(), count * once);
  for (std::size_t i = once; i < hashes.size(); ++i) {
    ASSERT_EQ(hashes[i], hashes[i - once]) << "sample " << i << " was encoded again";
  }
  EXPECT_THAT(similarity(exported.path, clip.path(), static_cast<int>(once), ""),
              AllOf(SizeIs(3), Each(Gt(c.likeness))));
}

TEST(EncodedLoop, ShowsEveryPictureAgainFromOneEncoding) {
  const std::vector<std::int64_t> uneven{0,      1001,   2002,   4004,   5005,   9000,   10'000, 10'500, 28'500,
                                         29'500, 30'500, 32'502, 33'503, 35'000, 36'001, 38'000, 39'001, 41'003};
  const Encoding cases[] = {
      {"HEVC", {.frames = 24, .videoCodec = "libx265", .preset = "ultrafast"}, toH264},
      {"a variable rate", {.frameTimes = uneven, .lastFrameLength = 3000, .timescale = 30'000}, toHEVC},
      {"a quarter turn", {.frames = 24, .rotation = 90}, toHEVC},
      {"odd sides", {.width = 161, .height = 121, .frames = 24, .videoCodec = "mpeg4"}, toH264, "yuv420p 162 122", 0.8},
      {"4:2:2", {.frames = 24, .pixelFormat = "yuv422p"}, toH264},
      {"4:4:4", {.frames = 24, .pixelFormat = "yuv444p"}, toHEVC},
      {"10 bits to 8", {.frames = 24, .pixelFormat = "yuv420p10le"}, toH264},
      {"10 bits to 10", {.frames = 24, .pixelFormat = "yuv420p10le"}, toHEVC, "yuv420p10le 320 180"},
      {"full range", {.frames = 24, .pixelFormat = "yuvj420p"}, toHEVC, "yuvj420p 320 180"},
      {"a tall one made small", {.width = 360, .height = 720, .frames = 24}, toLow, "yuv420p 240 480", 0.85},
      {"a small one, not enlarged", small({.frames = 24}), toLow, "yuv420p 160 90", 0.85},
  };
  for (const Encoding& c : cases) {
    SCOPED_TRACE(c.sentence);
    expectOneEncoding(c);
  }
}

TEST(LowQuality, KeepsToItsBitRates) {
  const auto exported =
      exportAsset(assetOf({.width = 1280, .height = 720, .frames = 120, .preset = "ultrafast"}), toLow);
  const ProbedStream video = exported.output.stream("video");
  EXPECT_THAT(video.bitRate, AllOf(testing::Ge(100'000), testing::Le(500'000)));
  EXPECT_EQ(video.width, 480);
  EXPECT_NEAR(static_cast<double>(exported.output.stream("audio").bitRate), 128'000, 20'000);
  EXPECT_EQ(exported.output.stream("audio").codec, "aac");
}

const ClipOptions smallClip = small({.frames = 90, .timescale = 30});

/// The pictures `first` … `last` of a clip of 30 a second: the first at `start`, the others where they are shown when
/// the clip's time `sourceStart` is at `start`. All in milliseconds.
struct Run {
  std::int64_t start, sourceStart;
  int first, last;
};
std::vector<SeenPicture> shown(const std::vector<Run>& runs) {
  std::vector<SeenPicture> pictures;
  for (const auto& [start, sourceStart, first, last] : runs) {
    for (int number = first; number <= last; ++number) {
      const double time = static_cast<double>(start - sourceStart) + number * 1000.0 / 30;
      pictures.push_back({std::max(static_cast<double>(start), time) / 1000, number, {}});
    }
  }
  return pictures;
}

TEST(CutClips, ShowTheirPicturesFromTheExactInstant) {
  ClipOptions open = smallClip;
  open.groups = GroupOfPictures::open;
  // Its first picture decodes by itself, but its numbering goes on from the group before: a repeat has to start anew.
  ClipOptions hevc = open;
  hevc.videoCodec = "libx265";
  hevc.preset = "ultrafast";
  hevc.bFrames = 0;
  struct {
    const char* sentence;
    std::int64_t from, to;
    int first, last;
    const char* remark = "encoded";
    ClipOptions clip = smallClip;
    std::string_view preset = toH264;
  } const cases[] = {
      {"whole groups of pictures", 1000, 2000, 30, 59, ""},
      {"a start between two pictures, the first of which stays on screen", 510, 1500, 15, 44},
      {"a start between two groups' pictures", 990, 2000, 29, 59},
      {"an open group of pictures", 1000, 2000, 30, 59, "encoded", open},
      {"an open group of HEVC, which starts anew", 1000, 2000, 30, 59, "", hevc, toHEVC},
      {"an end inside a group", 1000, 1550, 30, 46},
      {"the last two pictures, to the end", 2950, 3000, 88, 89},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.sentence);
    const Part part{BarCodeClip(c.clip).path(), c.from, c.to};
    const auto exported = exportAsset(cutOf({part, part}), c.preset);
    EXPECT_EQ(exported.tracks.at(0).copied, *c.remark == 0);
    EXPECT_THAT(exported.tracks.at(0).remark, HasSubstr(c.remark));
    const auto expected = shown({{0, c.from, c.first, c.last}, {c.to - c.from, c.from, c.first, c.last}});
    expectPictures(exported.output.pictures(), expected, 0.0001);
    EXPECT_NEAR(exported.output.duration(), static_cast<double>(2 * (c.to - c.from)) / 1000, 0.001);
    EXPECT_EQ(exported.output.warnings(), "");
  }
}

TEST(CutClips, WithinOnePictureShowItOnceHoweverOftenTheyPlay) {
  const Part part{BarCodeClip(smallClip).path(), 505, 525};
  const auto exported = exportAsset(cutOf({part, part, part}));
  EXPECT_EQ(numbersOf(exported.output.pictures()), std::vector<int>{15});
  EXPECT_NEAR(exported.output.duration(), 0.06, 0.001);
}

TEST(JoinedClips, AreEncodedIntoThePicturesOfTheFirst) {
  const auto one = BarCodeClip(smallClip).path();
  const auto two = BarCodeClip({.width = 320, .height = 240, .frames = 60, .videoCodec = "mpeg4"}).path();
  const auto exported = exportAsset(cutOf({{one, 0, 1000}, {two, 1000, 1500}, {one, 0, 500}}));
  expectPictures(exported.output.pictures(), shown({{0, 0, 0, 44}, {1500, 0, 0, 14}}), 0.0001);
  EXPECT_EQ(exported.output.stream("video").width, 160);
  EXPECT_EQ(exported.output.warnings(), "");
}

/// What ffprobe tells of mastering and light level: of the track's description and of the first picture, line by line.
std::string lightOf(const fs::path& path) {
  const auto told = [&](const std::string& entries) {
    return run("ffprobe -v error -select_streams v -read_intervals %+#1 -show_entries " + entries +
               "=red_x,red_y,green_x,green_y,blue_x,blue_y,white_point_x,white_point_y,min_luminance,max_luminance,"
               "max_content,max_average -of default=noprint_wrappers=1 " +
               path.string())
        .standardOutput;
  };
  return "track\n" + told("stream_side_data") + "picture\n" + told("frame_side_data");
}

TEST(RenderedPictures, OfHighDynamicRangeStaySoInHEVC) {
  ClipOptions options{.frames = 24, .videoCodec = "libx265", .preset = "ultrafast", .audioCodec = ""};
  options.pixelFormat = "yuv420p10le";
  options.outputArguments = {"-color_primaries", "bt2020", "-color_trc", "smpte2084", "-colorspace", "bt2020nc"};
  options.outputArguments.insert(
      options.outputArguments.end(),
      {"-x265-params",
       "log-level=none:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)"
       "L(40000000,50):max-cll=3210,400"});
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
  const auto exported =
      exportAsset(composition, toHEVC, [&](Session& session) { session.setVideoComposition(turned); });
  const ProbedStream video = exported.output.stream("video");
  EXPECT_THAT(
      (std::vector{video.pixelFormat, video.colorPrimaries, video.colorTransfer, video.colorSpace, video.colorRange}),
      testing::ElementsAre("yuv420p10le", "bt2020", "smpte2084", "bt2020nc", "tv"));
  const std::string light =
      "red_x=34000/50000\nred_y=16000/50000\ngreen_x=13250/50000\ngreen_y=34500/50000\nblue_x=7500/50000\n"
      "blue_y=3000/50000\nwhite_point_x=15635/50000\nwhite_point_y=16450/50000\nmin_luminance=50/10000\n"
      "max_luminance=40000000/10000\nmax_content=3210\nmax_average=400\n";
  EXPECT_EQ(lightOf(exported.path), "track\n" + light + "picture\n" + light);
  EXPECT_EQ(numbersOf(exported.output.pictures()), numbersOf(MediaJudge(clip.path()).pictures()));
  EXPECT_THAT(similarity(exported.path, clip.path(), 24, "transpose=clock,"), AllOf(SizeIs(3), Each(Gt(0.97))));
}

TEST(EmptyRange, IsBlackAndSilent) {
  const auto composition = loopOf(BarCodeClip(small({.frames = 60})).path(), 1);
  for (const auto& track : composition->compositionTracks()) track->insertEmptyTimeRange(span(1000, 1400));
  const auto exported = exportAsset(composition);
  expectPictures(exported.output.pictures(), shown({{0, 0, 0, 29}, {1000, 0, -1, -1}, {1400, 1000, 30, 59}}), 0.0001);

  const ProgramResult seen = run("ffmpeg -nostdin -hide_banner -i " + exported.path.string() +
                                 " -an -vf blackdetect=d=0.3:pic_th=1:pix_th=0.02 -f null -");
  EXPECT_THAT(seen.standardError, HasSubstr("black_start:1 black_end:1.4 ")) << "not black, or not as long";
  const Sound sound = exported.output.sound();
  EXPECT_EQ(toneSecondAt(sound, 0.9), 0);
  EXPECT_LT(sound.part(1.03, 1.37).level(), 0.003);
  EXPECT_EQ(toneSecondAt(sound, 1.45), 1);
}

TEST(SoundAlone, MakesAFileWithoutPictures) {
  const BarCodeClip clip({.frames = 0, .sampleRate = 44'100, .audioSeconds = 2.2, .extension = ".m4a"});
  for (const int count : {1, 3}) {
    const auto exported = exportAsset(loopOf(clip.path(), count));
    ASSERT_EQ(exported.tracks.size(), 1U);
    EXPECT_EQ(exported.tracks.front().copied, count == 1);
    EXPECT_EQ(exported.output.streams().size(), 1U);
    EXPECT_NEAR(exported.output.duration(), count * 2.2, 0.03);
    EXPECT_EQ(exported.output.warnings(), "");
    const double start = (count - 1) * MediaJudge(clip.path()).duration();
    const Sound last = exported.output.sound().part(start, start + 2);
    EXPECT_NEAR(lagOf(makeTone(16'000, 0, 2), last), 0, count == 1 ? 0.1 : 1);
  }
}

}  // namespace
}  // namespace clipworks::test
