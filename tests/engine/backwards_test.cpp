#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/engine/pipeline/ExportRun.h>
#include <clipworks/engine/pipeline/SoundLaneReader.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::engine {
namespace {

namespace fs = std::filesystem;

/// The stream of a kind; null when the file has none.
const StreamFacts* streamOf(const MediaFile& file, StreamKind kind) {
  const auto& all = file.streams();
  const auto found = std::find_if(all.begin(), all.end(), [&](const StreamFacts& s) { return s.kind == kind; });
  return found == all.end() ? nullptr : &*found;
}

SoundLane laneOf(const std::shared_ptr<const MediaFile>& file, std::vector<SoundPiece> pieces) {
  return {file, streamOf(*file, StreamKind::audio)->index, std::move(pieces), 1.0F};
}

/// `count` samples of the lane at its track's own rate and layout, interleaved.
std::vector<float> played(const SoundLane& lane, std::int64_t count) {
  const StreamFacts& facts = lane.file->stream(lane.stream);
  auto reader = SoundLaneReader::open(lane, facts.sampleRate, facts.channels, 0).value();
  std::vector<float> samples(static_cast<std::size_t>(count * facts.channels));
  EXPECT_TRUE(reader->addNext(count, samples.data()));
  return samples;
}

/// In reverse order, each channel in its place.
std::vector<float> reversed(std::vector<float> samples, int channels) {
  std::reverse(samples.begin(), samples.end());
  for (auto at = samples.begin(); at != samples.end(); at += channels) std::reverse(at, at + channels);
  return samples;
}

/// How many of all samples are another sound through a mirror than forwards, by more than `tolerance`: 0 … 1.
double mirrorFaults(const std::shared_ptr<const MediaFile>& file, std::int64_t length, float tolerance) {
  SoundLane lane = laneOf(file, {{0, length, 0, length}});
  const auto forwards = played(lane, length);
  lane.mirror = length;
  const auto backwards = reversed(played(lane, length), file->stream(lane.stream).channels);
  std::size_t faults = 0;
  for (std::size_t i = 0; i < forwards.size(); ++i) faults += std::abs(forwards[i] - backwards[i]) > tolerance ? 1 : 0;
  return static_cast<double>(faults) / static_cast<double>(forwards.size());
}

void makeWith(const std::vector<std::string>& arguments) {
  std::vector<std::string> command{"ffmpeg", "-v", "error", "-y"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const auto made = test::runProgram(command);
  ASSERT_TRUE(made.succeeded()) << made;
}

/// Seven seconds, longer than five blocks, of which the sides are unlike.
const std::vector<std::string> sweeps{
    "-f", "lavfi", "-i", "aevalsrc=0.3*sin(2*PI*t*(300+40*t))+0.1*random(0)|0.2*sin(2*PI*t*(500+90*t)):d=7:s=48000"};

struct SoundKind {
  const char* name;
  std::vector<std::string> encoding;
  float tolerance = 0;
};
std::ostream& operator<<(std::ostream& out, const SoundKind& kind) { return out << kind.name; }

class MirroredSound : public testing::TestWithParam<SoundKind> {};

TEST_P(MirroredSound, IsTheSoundInReverseOrder) {
  const test::TemporaryDirectory directory;
  auto arguments = sweeps;
  arguments.insert(arguments.end(), GetParam().encoding.begin(), GetParam().encoding.end());
  arguments.push_back(directory.file(GetParam().name).string());
  makeWith(arguments);
  const auto file = MediaFile::open(arguments.back()).value();
  const int rate = streamOf(*file, StreamKind::audio)->sampleRate;
  EXPECT_EQ(mirrorFaults(file, 15 * rate / 2, GetParam().tolerance), 0) << "with silence behind the end";
}

// Without the noise that an AAC decoder may fill in, which differs after a jump. Opus takes its time to settle.
INSTANTIATE_TEST_SUITE_P(
    Of, MirroredSound,
    testing::Values(SoundKind{"plain.wav", {"-c:a", "pcm_s16le"}}, SoundKind{"plain.mov", {"-c:a", "pcm_s16le"}},
                    SoundKind{"flac.ogg", {"-c:a", "flac"}}, SoundKind{"aac.m4a", {"-aac_pns", "0"}, 1e-4F},
                    SoundKind{"aac.mkv", {"-c:a", "aac", "-aac_pns", "0"}, 1e-4F},
                    SoundKind{"aac.ts", {"-c:a", "aac", "-aac_pns", "0"}, 1e-4F},
                    SoundKind{"mp3.mp3", {"-b:a", "128k"}, 1e-4F}, SoundKind{"opus.webm", {"-c:a", "libopus"}, 5e-3F},
                    SoundKind{"vorbis.ogg", {"-c:a", "libvorbis"}, 1e-4F}));

TEST(MirroredSound, OfRealClipsIsTheSoundInReverseOrder) {
  const char* folder = std::getenv("CLIPWORKS_MEDIA");
  if (folder == nullptr) GTEST_SKIP() << "CLIPWORKS_MEDIA names no folder with clips";
  constexpr double noiseOfAac = 0.03;  // share of the samples where decoders fill it in
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const auto file = entry.is_regular_file() ? MediaFile::open(entry.path()) : tl::make_unexpected(Error{});
    const StreamFacts* sound = file ? streamOf(**file, StreamKind::audio) : nullptr;
    if (sound == nullptr || entry.path().string().find("/corrupt/") != std::string::npos) continue;
    SCOPED_TRACE(entry.path().filename().string() + ", " + sound->codec);
    const std::int64_t length = (*file)->duration() * sound->sampleRate / (*file)->timescale();
    EXPECT_LE(mirrorFaults(*file, length, 1e-4F), sound->codec == "aac" ? noiseOfAac : 0);
  }
}

// All that lies above the reading takes it for the sound of a file that was recorded backwards.
TEST(MirroredSound, IsStretchedAndFadedAsAFileInReverse) {
  const test::TemporaryDirectory directory;
  for (const char* name : {"forwards.wav", "backwards.wav"}) {
    auto arguments = sweeps;
    if (name[0] == 'b') arguments.insert(arguments.end(), {"-af", "areverse"});
    arguments.push_back(directory.file(name).string());
    makeWith(arguments);
  }
  constexpr std::int64_t second = 48'000;
  // From before the media's end to behind its start, at three paces.
  const std::vector<SoundPiece> pieces{{-second, 2 * second, 0, 3 * second},
                                       {second, 2 * second, 3 * second, 2 * second},
                                       {3 * second, 5 * second, 5 * second, 2 * second}};
  SoundLane mirrored = laneOf(MediaFile::open(directory.file("forwards.wav")).value(), pieces);
  mirrored.mirror = 7 * second;
  const auto sound = played(mirrored, 8 * second);
  EXPECT_EQ(sound, played(laneOf(MediaFile::open(directory.file("backwards.wav")).value(), pieces), 8 * second));
  EXPECT_TRUE(std::any_of(sound.begin() + 12 * second, sound.end() - 2 * second, [](float s) { return s != 0; }));
}

/// All of the file's pictures and sound, backwards.
ExportJob backwardsJob(const std::shared_ptr<const MediaFile>& file, const fs::path& path) {
  ExportJob job;
  job.path = path;
  const StreamFacts& shown = *streamOf(*file, StreamKind::video);
  const auto table = file->pictureTable(shown.index).value();
  PictureRun run{file, shown.index, {}};
  for (auto picture = static_cast<std::uint32_t>(table->pictureCount()); picture-- > 0;) {
    const std::int64_t end =
        picture + 1 < table->pictureCount() ? table->timeOfPicture(picture + 1) : table->trackEnd();
    run.pictures.push_back({picture, table->trackEnd() - end});
  }
  job.pictures.emplace();
  job.pictures->timescale = shown.timescale;
  job.pictures->placements = {{0, 0}};
  job.pictures->end = table->trackEnd() - table->timeOfPicture(0);
  job.pictures->encoder.width = (shown.codedWidth + 1) / 2 * 2;
  job.pictures->encoder.height = (shown.codedHeight + 1) / 2 * 2;
  job.pictures->encoder.timescale = shown.timescale;
  job.pictures->encoder.speed = "veryfast";
  job.pictures->runs.push_back(std::move(run));
  job.movieTimescale = shown.timescale;
  if (const StreamFacts* heard = streamOf(*file, StreamKind::audio)) {
    const std::int64_t length = av_rescale(job.pictures->end, heard->sampleRate, shown.timescale);
    SoundLane lane = laneOf(file, {{0, length, 0, length}});
    lane.mirror = heard->encoderDelay + length;
    if (!heard->edits.empty()) lane.mirror = std::max<std::int64_t>(heard->edits.front().mediaTime, 0) + length;
    job.sound = SoundJob{{heard->sampleRate, heard->channels, 192'000}, length, {lane}, false, false};
    job.movieTimescale = std::lcm(shown.timescale, heard->sampleRate);
  }
  return job;
}

struct ClipCase {
  const char* name;
  test::ClipOptions options;
};
std::ostream& operator<<(std::ostream& out, const ClipCase& clip) { return out << clip.name; }

class BackwardsExport : public testing::TestWithParam<ClipCase> {};

TEST_P(BackwardsExport, PlaysPicturesAndSoundFromTheEnd) {
  const test::BarCodeClip clip(GetParam().options);
  const test::TemporaryDirectory directory;
  const auto path = directory.file("backwards.mp4");
  const auto report = ExportRun(backwardsJob(MediaFile::open(clip.path()).value(), path)).run();
  ASSERT_TRUE(report) << report.error().sentence;
  EXPECT_EQ(report->replacedPictures, 0);
  const test::MediaJudge judge(path);
  std::vector<int> numbers(static_cast<std::size_t>(GetParam().options.frames));
  std::iota(numbers.rbegin(), numbers.rend(), 0);
  EXPECT_EQ(test::numbersOf(judge.pictures()), numbers);
  EXPECT_EQ(judge.warnings(), "");
  const auto sound = judge.sound();
  for (const double at : {0.4, 1.3, 5.6, 8.3}) {
    EXPECT_EQ(test::toneSecondAt(sound, at), static_cast<int>(clip.videoEnd() - at - 0.04)) << at;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Of, BackwardsExport,
    testing::Values(
        ClipCase{"one long group", {.frames = 270, .preset = "medium", .bFrames = 3, .gop = 250}},
        ClipCase{"short open groups", {.frames = 270, .gop = 12, .groups = test::GroupOfPictures::open}},
        ClipCase{"fields",
                 {.frames = 270, .gop = 12, .outputArguments = {"-flags", "+ildct+ilme", "-x264-params", "tff=1"}}}));

}  // namespace
}  // namespace clipworks::engine
