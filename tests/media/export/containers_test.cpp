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

ClipOptions optionsFor(const Container& container, const std::string& codec, const std::string& sound) {
  const bool reorders = codec == "libx264" || codec == "libx265" || codec == "mpeg4" || codec.starts_with("mpeg2");
  const bool isOld = !codec.starts_with("lib") && codec != "prores";
  ClipOptions options{.width = 160, .height = 96, .frames = 36, .rate = {25, 1}, .videoCodec = codec, .gop = 12};
  if (isOld) {  // bar codes are read where the codec is coarse, too
    options.width = 352;
    options.height = 288;
  }
  options.bFrames = reorders ? 2 : 0;
  options.pixelFormat = codec == "mjpeg" ? "yuvj420p" : codec == "prores" ? "yuv422p10le" : "yuv420p";
  options.audioCodec = sound;
  options.sampleRate = sound == "libopus" ? 48'000 : 44'100;
  options.extension = container.extension;
  options.outputArguments = container.arguments;
  for (const char* argument :
       {"-strict", "-2", isOld ? "-q:v" : "-b:v", isOld ? "2" : "2M", "-deadline", "realtime", "-cpu-used", "8"}) {
    options.outputArguments.emplace_back(argument);
  }
  return options;
}

/// How much later the sound is heard than the pictures that belong to it are seen, in milliseconds, from `from` on. The
/// tone runs with the pictures' own numbers.
double soundBehindPictures(const Sound& sound, const std::vector<SeenPicture>& pictures, double from) {
  const auto first = std::find_if(pictures.begin(), pictures.end(),
                                  [&](const auto& p) { return p.number == 0 && p.seconds > from - 0.001; });
  if (first == pictures.end()) return 1e9;
  const double length = 0.9 * 36 / 25;
  return lagOf(makeTone(sound.rate, 0, length), sound.part(first->seconds, first->seconds + length));
}

/// What a file cannot say: AVI has no place for an encoder's delay, and ffmpeg writes Opus into Matroska that much
/// early.
double delayThatIsNotTold(const ClipOptions& options) {
  const std::map<std::string, int> samples{{"libmp3lame", 1105}, {"mp2", 481}, {"ac3", 256}, {"aac", 1024}};
  const auto known = samples.find(options.audioCodec);
  const bool isAVI = options.extension == ".avi";
  if (isAVI) return known == samples.end() ? 0 : 1000.0 * known->second / options.sampleRate;
  const bool isMatroska = options.extension == ".mkv" || options.extension == ".webm";
  return isMatroska && options.audioCodec == "libopus" ? -7 : 0;
}

void expectAllInPlace(const Container& container, const Codec& seen, const Codec& heard) {
  SCOPED_TRACE(container.name + std::string(", ") + seen.name + ", " + heard.name);
  const ClipOptions options = optionsFor(container, seen.encoder, heard.encoder);
  const BarCodeClip clip(options);
  const auto exported = exportAsset(loopOf(clip.path(), 2));
  const auto pictures = exported.output.pictures();
  std::vector<int> twice;
  for (int i = 0; i < 2 * options.frames; ++i) twice.push_back(i % options.frames);
  ASSERT_EQ(numbersOf(pictures), twice);
  const auto count = static_cast<std::size_t>(options.frames);
  for (std::size_t i = 1; i < count; ++i) {
    EXPECT_NEAR(pictures[i].seconds - pictures[i - 1].seconds, 0.04, 0.0015) << i;  // clocks of milliseconds
  }
  const double second = assetAt(clip.path())->duration().seconds();
  EXPECT_NEAR(pictures[count].seconds - pictures[0].seconds, second, 0.001);
  const Sound sound = exported.output.sound(48'000);
  EXPECT_NEAR(soundBehindPictures(sound, pictures, 0), delayThatIsNotTold(options), 1.1);
  EXPECT_NEAR(soundBehindPictures(sound, pictures, second), delayThatIsNotTold(options), 1.1) << "in the second copy";
}

TEST(Containers, GiveTheirPicturesAndSoundInPlace) {
  for (const auto& container : containers) {
    for (const auto& seen : container.pictures) expectAllInPlace(container, seen, container.sound.front());
    for (std::size_t i = 1; i < container.sound.size(); ++i) {
      expectAllInPlace(container, container.pictures.front(), container.sound[i]);
    }
  }
}

std::string namesOf(const std::vector<Codec>& codecs) {
  std::string names;
  for (const auto& codec : codecs) names += (names.empty() ? "" : ", ") + std::string(codec.name);
  return names;
}

TEST(ContainersPage, HasTheTableOfThisTest) {
  const std::string page = contentOf(CLIPWORKS_COMPATIBILITY_PAGE);
  for (const auto& container : containers) {
    const std::string row = "| " + std::string(container.name) + " | " + namesOf(container.pictures) + " | " +
                            namesOf(container.sound) + " |";
    EXPECT_THAT(page, testing::HasSubstr(row));
  }
}

}  // namespace
}  // namespace clipworks::test
