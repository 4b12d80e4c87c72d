#include <regex>

#include "ExportTesting.h"

// Each container that is let in, with each codec that belongs there: every picture in its place, the sound where it is
// in the file. Which codecs those are is told by the table in docs/compatibility.md.

namespace clipworks::test {
namespace {

/// The encoders of the ffmpeg program, by the names that readers of the page know.
const std::map<std::string, std::string> encoders{
    {"H.264", "libx264"},      {"HEVC", "libx265"},      {"MPEG-4", "mpeg4"},
    {"MJPEG", "mjpeg"},        {"MPEG-2", "mpeg2video"}, {"MPEG-1", "mpeg1video"},
    {"VP8", "libvpx"},         {"VP9", "libvpx-vp9"},    {"ProRes", "prores"},
    {"H.263", "h263"},         {"WMV 8", "wmv2"},        {"MS MPEG-4", "msmpeg4"},
    {"Sorenson H.263", "flv"}, {"Theora", "libtheora"},  {"AAC", "aac"},
    {"MP3", "libmp3lame"},     {"MP2", "mp2"},           {"AC-3", "ac3"},
    {"Opus", "libopus"},       {"Vorbis", "libvorbis"},  {"FLAC", "flac"},
    {"ALAC", "alac"},          {"PCM", "pcm_s16le"},     {"WMA 2", "wmav2"}};

struct Container {
  std::string name;
  const char* extension;
  std::vector<std::string> arguments{};
};

const std::vector<Container> containers{
    {"MP4", ".mp4"},
    {"QuickTime", ".mov"},
    {"3GPP", ".3gp"},
    {"MP4 in fragments", ".mp4", {"-movflags", "frag_keyframe+empty_moov"}},
    {"Matroska", ".mkv"},
    {"Matroska that begins at 7 s, without a length", ".mkv", {"-output_ts_offset", "7", "-live", "1"}},
    {"WebM", ".webm"},
    {"AVI", ".avi"},
    {"MPEG transport stream", ".ts"},
    {"MPEG transport stream whose clock wraps around", ".ts", {"-output_ts_offset", "95443"}},
    {"MPEG program stream", ".mpg"},
    {"ASF", ".asf"},
    {"Flash", ".flv"},
    {"Flash without a length", ".flv", {"-flvflags", "no_duration_filesize"}},
    {"Ogg", ".ogv"},
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

void expectAllInPlace(const Container& container, std::string seen, std::string heard) {
  SCOPED_TRACE(container.name + ", " + seen + ", " + heard);
  // Those with a star are shut by default; Markdown wants it behind a backslash.
  const auto unmark = [](std::string& codec) { return std::erase(codec, '*') + std::erase(codec, '\\'); };
  const InputLimits limits{.takesAnyCodec = unmark(seen) + unmark(heard) > 0};
  const ClipOptions options = optionsFor(container, encoders.at(seen), encoders.at(heard));
  const BarCodeClip clip(options);
  const auto exported = exportAsset(loopOf(clip.path(), 2, limits));
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

/// Between commas.
std::vector<std::string> namesIn(const std::string& cell) {
  std::vector<std::string> names;
  std::istringstream in(cell);
  for (std::string name; std::getline(in >> std::ws, name, ',');) names.push_back(name);
  return names;
}

// Each kind of pictures with the first of sound, and the other way round.
TEST(Containers, GiveTheirPicturesAndSoundInPlace) {
  const std::string page = fileBytes(CLIPWORKS_COMPATIBILITY_PAGE);
  for (const auto& container : containers) {
    std::smatch row;
    ASSERT_TRUE(std::regex_search(page, row, std::regex("\n\\| " + container.name + " \\| ([^|]+) \\| ([^|]+) \\|")));
    const auto pictures = namesIn(row[1]);
    const auto sound = namesIn(row[2]);
    for (const auto& seen : pictures) expectAllInPlace(container, seen, sound.front());
    for (std::size_t i = 1; i < sound.size(); ++i) expectAllInPlace(container, pictures.front(), sound[i]);
  }
}

}  // namespace
}  // namespace clipworks::test
