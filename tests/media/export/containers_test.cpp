#include <algorithm>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "ExportTesting.h"

// Each container that is let in, with each codec that belongs there: every picture in its place, the sound where it is
// in the file. docs/compatibility.md has the same table.

namespace clipworks::test {
namespace {

/// An encoder of the ffmpeg program, and the name that readers of the page know.
struct Codec {
  const char* encoder;
  const char* name;
};

struct Container {
  const char* name;
  const char* extension;
  std::vector<Codec> pictures;  // each with the first sound
  std::vector<Codec> sound;     // each with the first pictures
  std::vector<std::string> arguments{};
};

constexpr Codec h264{"libx264", "H.264"}, hevc{"libx265", "HEVC"}, mpeg4{"mpeg4", "MPEG-4"}, mjpeg{"mjpeg", "MJPEG"},
    mpeg2{"mpeg2video", "MPEG-2"}, mpeg1{"mpeg1video", "MPEG-1"}, vp8{"libvpx", "VP8"}, vp9{"libvpx-vp9", "VP9"},
    prores{"prores", "ProRes"}, h263{"h263", "H.263"}, wmv2{"wmv2", "WMV 8"}, msmpeg4{"msmpeg4", "MS MPEG-4"},
    sorenson{"flv", "Sorenson H.263"}, theora{"libtheora", "Theora"};
constexpr Codec aac{"aac", "AAC"}, mp3{"libmp3lame", "MP3"}, mp2{"mp2", "MP2"}, ac3{"ac3", "AC-3"},
    opus{"libopus", "Opus"}, vorbis{"libvorbis", "Vorbis"}, flac{"flac", "FLAC"}, alac{"alac", "ALAC"},
    pcm{"pcm_s16le", "PCM"}, wma{"wmav2", "WMA 2"};

const std::vector<Container> containers{
    {"MP4", ".mp4", {h264, hevc, mpeg4, mjpeg, mpeg2, vp9}, {aac, mp3, mp2, ac3, opus, flac}},
    {"QuickTime", ".mov", {h264, mpeg4, mjpeg, prores}, {pcm, aac, mp3, alac}},
    {"3GPP", ".3gp", {h263, mpeg4, h264}, {aac}},
    {"MP4 in fragments", ".mp4", {h264}, {aac}, {"-movflags", "frag_keyframe+empty_moov"}},
    {"Matroska", ".mkv", {h264, hevc, mpeg4, mpeg2, vp9}, {aac, mp3, mp2, ac3, opus, vorbis, flac, pcm}},
    {"Matroska that begins at 7 s, without a length", ".mkv", {h264}, {aac}, {"-output_ts_offset", "7", "-live", "1"}},
    {"WebM", ".webm", {vp8, vp9}, {opus, vorbis}},
    {"AVI", ".avi", {mpeg4, h264, mjpeg, msmpeg4}, {pcm, mp3, mp2, ac3, aac}},
    {"MPEG transport stream", ".ts", {h264, hevc, mpeg2}, {aac, mp3, mp2, ac3}},
    {"MPEG transport stream whose clock wraps around", ".ts", {h264}, {aac}, {"-output_ts_offset", "95443"}},
    {"MPEG program stream", ".mpg", {mpeg2, mpeg1}, {mp2, ac3}},
    {"ASF", ".asf", {wmv2, msmpeg4}, {wma}},
    {"Flash", ".flv", {h264, sorenson}, {aac, mp3}},
    {"Flash without a length", ".flv", {h264}, {mp3}, {"-flvflags", "no_duration_filesize"}},
    {"Ogg", ".ogv", {theora}, {vorbis, opus, flac}},
};

struct Clip {
  const Container* container;
  Codec pictures;
  Codec sound;
};
void PrintTo(const Clip& clip, std::ostream* out) {
  *out << clip.container->name << ", " << clip.pictures.name << ", " << clip.sound.name;
}

std::vector<Clip> allClips() {
  std::vector<Clip> clips;
  for (const auto& container : containers) {
    for (const auto& pictures : container.pictures) clips.push_back({&container, pictures, container.sound.front()});
    for (std::size_t i = 1; i < container.sound.size(); ++i) {
      clips.push_back({&container, container.pictures.front(), container.sound[i]});
    }
  }
  return clips;
}

ClipOptions optionsFor(const Clip& clip) {
  const std::string codec = clip.pictures.encoder;
  const bool reorders = codec == "libx264" || codec == "libx265" || codec == "mpeg4" || codec.starts_with("mpeg2");
  ClipOptions options;
  const bool isOld = !codec.starts_with("lib") && codec != "prores";
  options.width = isOld ? 352 : 160;  // bar codes are read where the codec is coarse, too
  options.height = isOld ? 288 : 96;
  options.frames = 36;
  options.rate = {25, 1};
  options.gop = 12;
  options.videoCodec = codec;
  options.bFrames = reorders ? 2 : 0;
  options.pixelFormat = codec == "mjpeg" ? "yuvj420p" : codec == "prores" ? "yuv422p10le" : "yuv420p";
  options.audioCodec = clip.sound.encoder;
  options.sampleRate = std::string(clip.sound.encoder) == "libopus" ? 48'000 : 44'100;
  options.extension = clip.container->extension;
  options.outputArguments = clip.container->arguments;
  for (const char* argument :
       {"-strict", "-2", isOld ? "-q:v" : "-b:v", isOld ? "2" : "2M", "-deadline", "realtime", "-cpu-used", "8"}) {
    options.outputArguments.emplace_back(argument);
  }
  return options;
}

/// How much later the sound is heard than the pictures that belong to it are seen, in milliseconds. The tone runs with
/// the pictures' own numbers.
double soundBehindPictures(const ClipOptions& options, const Sound& sound, const std::vector<SeenPicture>& pictures,
                           double from) {
  const double length = 0.9 * options.frames * options.rate.den / options.rate.num;
  const auto first = std::find_if(pictures.begin(), pictures.end(),
                                  [&](const auto& p) { return p.number == 0 && p.seconds > from - 0.001; });
  if (first == pictures.end()) return 1e9;
  const auto lag =
      lagMilliseconds(makeTone(sound.rate, 0, length), sound.part(first->seconds, first->seconds + length));
  return lag.value_or(1e9);
}

/// What a file cannot say: AVI has no place for an encoder's delay, and ffmpeg writes Opus into Matroska that much
/// early.
double delayThatIsNotTold(const Clip& clip, const ClipOptions& options) {
  const std::string sound = clip.sound.encoder;
  const double samples = sound == "libmp3lame" ? 1105
                         : sound == "mp2"      ? 481
                         : sound == "ac3"      ? 256
                         : sound == "aac"      ? 1024
                                               : 0;
  if (options.extension == ".avi") return 1000 * samples / options.sampleRate;
  const bool isMatroska = options.extension == ".mkv" || options.extension == ".webm";
  return isMatroska && sound == "libopus" ? -7 : 0;
}

class Containers : public testing::TestWithParam<Clip> {};

TEST_P(Containers, GiveTheirPicturesAndSoundInPlace) {
  const ClipOptions options = optionsFor(GetParam());
  const BarCodeClip clip(options);
  const TemporaryDirectory directory;
  const auto exported =
      exportAsset(loopOf(clip.path(), 2), AVAssetExportPresetHighestQuality, directory.file("loop.mp4"));
  ASSERT_EQ(exported.failure(), "");
  const MediaJudge output(directory.file("loop.mp4"));
  const auto pictures = output.pictures();
  std::vector<int> twice;
  for (int i = 0; i < 2 * options.frames; ++i) twice.push_back(i % options.frames);
  ASSERT_EQ(numbersOf(pictures), twice);
  const double interval = 1.0 / options.rate.num;
  for (std::size_t i = 1; i < static_cast<std::size_t>(options.frames); ++i) {
    EXPECT_NEAR(pictures[i].seconds - pictures[i - 1].seconds, interval, 0.0015) << i;  // clocks of milliseconds
  }
  const double second = AVAsset::make(URL(clip.path()))->duration().seconds();
  EXPECT_NEAR(pictures[static_cast<std::size_t>(options.frames)].seconds - pictures[0].seconds, second, 0.001);
  const double expected = delayThatIsNotTold(GetParam(), options);
  const Sound sound = output.sound(48'000);
  EXPECT_NEAR(soundBehindPictures(options, sound, pictures, 0), expected, 1.1);
  EXPECT_NEAR(soundBehindPictures(options, sound, pictures, second), expected, 1.1) << "in the second copy";
}

INSTANTIATE_TEST_SUITE_P(All, Containers, testing::ValuesIn(allClips()));

std::string namesOf(const std::vector<Codec>& codecs) {
  std::string names;
  for (const auto& codec : codecs) names += (names.empty() ? "" : ", ") + std::string(codec.name);
  return names;
}

TEST(ContainersPage, HasTheTableOfThisTest) {
  std::ifstream file(CLIPWORKS_COMPATIBILITY_PAGE);
  std::stringstream page;
  page << file.rdbuf();
  for (const auto& container : containers) {
    const std::string row = "| " + std::string(container.name) + " | " + namesOf(container.pictures) + " | " +
                            namesOf(container.sound) + " |";
    EXPECT_NE(page.str().find(row), std::string::npos) << row;
  }
}

}  // namespace
}  // namespace clipworks::test
