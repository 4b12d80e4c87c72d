#include <clipworks/engine/pipeline/ExportRun.h>

#include <tests/engine/EngineTesting.h>
#include <tests/support/Tone.h>

namespace clipworks::engine {
namespace {

/// All of the file's pictures and sound, backwards.
ExportJob backwardsJob(const std::shared_ptr<const MediaFile>& file, const std::filesystem::path& path) {
  const StreamFacts& shown = *streamOf(*file, StreamKind::video);
  const auto table = must(file->pictureTable(shown.index));
  PictureRun run{file, shown.index, {}};
  for (std::int64_t end = table->trackEnd(); run.pictures.size() < table->pictureCount();) {
    const auto picture = table->pictureCount() - 1 - run.pictures.size();
    run.pictures.push_back({static_cast<std::uint32_t>(picture), table->trackEnd() - end});
    end = table->timeOfPicture(picture);
  }
  ExportJob job;
  job.path = path;
  auto& pictures = job.pictures.emplace();
  pictures.timescale = pictures.encoder.timescale = shown.timescale;
  pictures.placements = {{0, 0}};
  pictures.end = table->trackEnd() - table->timeOfPicture(0);
  pictures.encoder.width = shown.codedWidth;
  pictures.encoder.height = shown.codedHeight;
  pictures.encoder.speed = "veryfast";
  pictures.runs.push_back(std::move(run));
  const StreamFacts& heard = *streamOf(*file, StreamKind::audio);
  const std::int64_t length = av_rescale(pictures.end, heard.sampleRate, shown.timescale);
  SoundLane lane{file, heard.index, {{0, length, 0, length}}, 1.0F};
  lane.mirror = heard.edits.front().mediaTime + length;
  job.sound = SoundJob{{heard.sampleRate, heard.channels, 192'000}, length, {lane}, false, false};
  job.movieTimescale = std::lcm(shown.timescale, heard.sampleRate);
  return job;
}

TEST(BackwardsExport, PlaysPicturesAndSoundFromTheEnd) {
  const test::ClipOptions clips[] = {
      {.frames = 270, .preset = "medium", .bFrames = 3, .gop = 250},
      {.frames = 270, .gop = 12, .groups = test::GroupOfPictures::open},
      {.frames = 270, .gop = 12, .outputArguments = {"-flags", "+ildct+ilme", "-x264-params", "tff=1"}}};
  std::vector<int> numbers(270);
  std::iota(numbers.rbegin(), numbers.rend(), 0);
  for (const auto& options : clips) {
    SCOPED_TRACE(testing::Message() << "clip " << &options - clips);
    const test::BarCodeClip clip(options);
    const test::TemporaryDirectory directory;
    const auto path = directory.file("backwards.mp4");
    EXPECT_EQ(must(ExportRun(backwardsJob(must(MediaFile::open(clip.path())), path)).run()).replacedPictures, 0);
    const test::MediaJudge judge(path);
    EXPECT_EQ(test::numbersOf(judge.pictures()), numbers);
    EXPECT_EQ(judge.warnings(), "");
    const auto sound = judge.sound();
    for (const double at : {0.4, 1.3, 5.6, 8.3}) {
      EXPECT_EQ(test::toneSecondAt(sound, at), static_cast<int>(clip.videoEnd() - at - 0.04)) << at;
    }
  }
}

}  // namespace
}  // namespace clipworks::engine
