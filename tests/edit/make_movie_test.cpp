// Movies and pictures of edits, as they come out.

#include <clipworks/edit/Chain.h>
#include <clipworks/edit/TakePicture.h>

#include <tests/media/MediaTesting.h>

namespace clipworks::test {
namespace {

using testing::HasSubstr;

TEST(Movie, TakesNoMoreThreadsThanItMay) {
  const TemporaryDirectory directory;
  const BarCodeClip clip;
  const auto mostThreads = [&](int threads, const std::string& name) {
    std::size_t most = 0;
    MovieOptions options;
    options.threads = threads;
    options.onProgress = [&](const Progress&) { most = std::max(most, filesIn("/proc/self/task").size()); };
    EXPECT_TRUE(Chain(clip.path()).rotate().save(directory.file(name), options));
    return most;
  };
  EXPECT_LT(mostThreads(1, "one.mp4"), mostThreads(4, "four.mp4"));
}

TEST(Movie, OfManyStepsIsExactByAllOfThem) {
  const TemporaryDirectory directory;
  const BarCodeClip clip;  // 60 pictures in two seconds
  std::vector<Progress> told;
  MovieOptions options;
  options.onProgress = [&](const Progress& progress) { told.push_back(progress); };
  const auto chain = Chain(clip.path()).speed(0.5, 1, 2).reverse().narrate({{clip.path(), exactSeconds(2), 0}}, 1);
  const auto made = chain.trim(0.25, 2.25).compress(360, 0).save(directory.file("made.mp4"), options);
  ASSERT_TRUE(made) << made.error().sentence;
  EXPECT_EQ(MediaJudge(made->path).stream("video").height, 360);
  EXPECT_NEAR(MediaJudge(made->path).duration(), 2, 0.03);
  // Backwards from second 1.75: at pace to second 1, half as fast to 0.5, at pace to 0.25.
  const auto pictures = MediaJudge(made->path).pictures();
  for (const auto& [time, number] : std::vector<std::pair<double, int>>{{0.01, 52}, {0.74, 30}, {0.77, 29}, {1.99, 7}})
    EXPECT_NEAR(numberAt(pictures, time), number, 1) << time;
  for (std::size_t i = 1; i < pictures.size(); ++i) EXPECT_LT(pictures[i].number, pictures[i - 1].number) << i;
  const Sound sound = MediaJudge(made->path).sound();
  EXPECT_EQ(toneSecondAt(sound, 0.5), 1);
  EXPECT_EQ(toneSecondAt(sound, 1.5), 0);
  EXPECT_EQ(told.back().share, 1);
  EXPECT_EQ(told.back().pictures, static_cast<std::int64_t>(pictures.size()));
  for (std::size_t i = 1; i < told.size(); ++i) EXPECT_GE(told[i].share, told[i - 1].share);
}

TEST(Movies, AreMadeEightAtOnce) {
  const TemporaryDirectory directory;
  const BarCodeClip clip({.frames = 30});
  const BarCodeClip hevc({.frames = 30, .videoCodec = "libx265", .preset = "ultrafast"});
  const std::tuple<Chain, std::string, std::size_t, int> cases[] = {
      {Chain(clip.path()).loop(3), "h264", 90, 180},
      {Chain(hevc.path()).loop(2), "hevc", 60, 180},
      {Chain(clip.path()).speed(0.2, 0.8, 2), "h264", 30, 180},
      {Chain(hevc.path()).reverse(), "h264", 30, 180},
      {Chain(clip.path()).rotate(), "h264", 30, 320},
      {Chain(clip.path()).crop({0, 0, 100, 50}), "h264", 30, 50},
      {Chain(hevc.path()).compress(90, 0), "h264", 30, 90},
      {Chain(clip.path()).narrate({{hevc.path(), kCMTimeZero, 1}}), "h264", 30, 180}};
  std::vector<std::future<Result<MovieReport, Error>>> making;
  for (const auto& one : cases) {
    making.push_back(std::async(std::launch::async, [&] {
      return std::get<Chain>(one).save(directory.file("made.mp4"), {.existing = ExistingFile::numbered});
    }));
  }
  for (std::size_t i = 0; i < making.size(); ++i) {
    const auto made = making[i].get();
    ASSERT_TRUE(made) << i << ": " << made.error().sentence;
    const auto& [chain, codec, pictures, height] = cases[i];
    const auto stream = MediaJudge(made->path).stream("video");
    EXPECT_EQ(std::tuple(stream.codec, stream.height), std::tuple(codec, height)) << i;
    EXPECT_EQ(MediaJudge(made->path).pictures().size(), pictures) << i;
  }
  EXPECT_EQ(filesIn(directory.path()).size(), std::size(cases));
}

TEST(Movie, KeepsOrReplacesWhatHasItsName) {
  const TemporaryDirectory directory;
  const auto chain = Chain(BarCodeClip({.frames = 5}).path()).loop(1);
  const auto place = directory.file("a.mp4");
  std::ofstream(place) << "old";
  const auto refused = chain.save(place);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, ErrorCode::notWritable) << refused.error().sentence;
  const auto numbered = chain.save(place, {.existing = ExistingFile::numbered});
  ASSERT_TRUE(numbered) << numbered.error().sentence;
  EXPECT_EQ(numbered->path, directory.file("a-2.mp4"));
  EXPECT_EQ(fs::file_size(place), 3U);
  ASSERT_TRUE(chain.save(place, {.existing = ExistingFile::replaced}));
  EXPECT_EQ(MediaJudge(place).pictures().size(), 5U);
  EXPECT_EQ(filesIn(directory.path()).size(), 2U);
}

TEST(Movie, NeverTouchesWhatItIsMadeOf) {
  const TemporaryDirectory directory;
  const auto file = directory.file("clip.mp4");
  fs::copy_file(BarCodeClip({.frames = 5}).path(), file);
  const auto chain = Chain(file).loop(2);
  const auto same = chain.save(file, {.existing = ExistingFile::replaced});
  ASSERT_FALSE(same);
  EXPECT_EQ(same.error().code, ErrorCode::badArgument);
  std::ofstream(file, std::ios::app) << "more";
  const auto changed = chain.save(directory.file("a.mp4"));
  ASSERT_FALSE(changed);
  EXPECT_THAT(changed.error().sentence, HasSubstr("has changed since it was opened"));
  EXPECT_EQ(filesIn(directory.path()).size(), 1U);
}

TEST(Movie, EndsSoonWhenItIsAskedTo) {
  const TemporaryDirectory directory;
  const BarCodeClip clip({.width = 1280, .height = 720, .frames = 300, .preset = "ultrafast"});
  const auto chain = Chain(clip.path()).reverse().rotate();
  std::stop_source stop;
  std::chrono::steady_clock::time_point asked;
  MovieOptions options;
  options.stop = stop.get_token();
  options.onProgress = [&](const Progress& progress) {
    if (progress.share < 0.1 || stop.stop_requested()) return;
    asked = std::chrono::steady_clock::now();
    stop.request_stop();
  };
  const auto stopped = chain.save(directory.file("a.mp4"), options);
  ASSERT_FALSE(stopped);
  EXPECT_EQ(stopped.error().code, ErrorCode::cancelled);
  // A tenth of a second on a machine that has nothing else to do.
  EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(3));

  options.stop = {};
  options.onProgress = [](const Progress& progress) {
    if (progress.share > 0.1) throw std::runtime_error("enough");
  };
  EXPECT_THROW((void)chain.save(directory.file("a.mp4"), options), std::runtime_error);
  EXPECT_EQ(filesIn(directory.path()).size(), 0U);
}

TEST(Pictures, AreThoseOfTheEdit) {
  const TemporaryDirectory directory;
  const auto edit = Chain(BarCodeClip().path()).reverse().speed(0, 1, 2).edit();
  ASSERT_TRUE(edit);
  const auto times = pictureTimes(*edit);
  ASSERT_TRUE(times);
  ASSERT_EQ(times->size(), 60U);
  const auto taken = takePictures(*edit,
                                  {{(*times)[0], directory.file("first.png")},
                                   {exactSeconds(1.01), directory.file("middle.png")},
                                   {edit->duration(), directory.file("last.png")}},
                                  {.format = StillFormat::png});
  ASSERT_TRUE(taken) << taken.error().sentence;
  std::vector<int> numbers;
  for (const auto& path : taken->paths) numbers.push_back(MediaJudge(path).pictures().at(0).number);
  EXPECT_THAT(numbers, testing::ElementsAre(59, 44, 0));
  const auto outside =
      takePictures(*edit, {{kCMTimeZero, directory.file("a.png")}, {CMTime(4, 1), directory.file("b.png")}});
  ASSERT_FALSE(outside);
  EXPECT_EQ(outside.error().code, ErrorCode::badArgument);
  EXPECT_EQ(filesIn(directory.path()).size(), 3U);
}

}  // namespace
}  // namespace clipworks::test
