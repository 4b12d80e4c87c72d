#include <clipworks/worker/Worker.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/edit/Chain.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

WorkerOptions probe() { return {.program = CLIPWORKS_PROBE, .requiresConfinement = true}; }

TEST(Worker, MakesTheSameMoviesConfined) {
  const TemporaryDirectory directory;
  const BarCodeClip clip;
  // Copied: x264 may come to other bits each time.
  const auto chain = Chain(clip.path()).trim(0.21, 1.5);
  ASSERT_TRUE(chain.save(directory.file("here.mp4")));
  Worker worker(probe());
  std::vector<double> progress;
  MovieOptions options;
  options.onProgress = [&progress](const Progress& now) { progress.push_back(now.share); };
  const auto made = worker.makeMovie(*chain.edit(), directory.file("there.mp4"), options);
  ASSERT_TRUE(made) << made.error().sentence;
  EXPECT_EQ(made->paths, std::vector{directory.file("there.mp4")});
  EXPECT_TRUE(made->landlock > 0 && made->systemCalls);
  EXPECT_EQ(fileBytes(directory.file("there.mp4")), fileBytes(directory.file("here.mp4")));
  EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
  EXPECT_GT(progress.size(), 2);
}

TEST(Worker, TellsWhatWentWrongAndGoesOn) {
  const TemporaryDirectory directory;
  const BarCodeClip clip({.frames = 300});
  const std::string file = clip.path().string();
  const std::string made = directory.file("made.mp4").string();
  WorkerOptions narrow = probe();
  narrow.mostMemory = 56'000'000;
  WorkerOptions brief = probe();
  brief.mostSeconds = 0.05;
  WorkerOptions absent = probe();
  absent.program = "/nowhere/clipworks";
  const std::vector<std::string> encode{"rotate", file, "-o", made};
  struct Case {
    WorkerOptions options;
    std::vector<std::string> arguments;
    ErrorCode code;
  };
  const Case cases[] = {{probe(), {"info", "/nowhere.mp4"}, ErrorCode::internal},
                        {probe(), {"rotate", "/nowhere.mp4"}, ErrorCode::notFound},
                        {probe(), {"rotate"}, ErrorCode::badArgument},
                        {probe(), {"loop", file, "--count", "0"}, ErrorCode::badArgument},
                        {probe(), {"probe", file, "crash=11"}, ErrorCode::internal},
                        {probe(), {"probe", file, "crash=9"}, ErrorCode::noMemory},
                        {narrow, encode, ErrorCode::limitReached},
                        {brief, encode, ErrorCode::limitReached},
                        {absent, encode, ErrorCode::notFound}};
  for (const Case& expected : cases) {
    Worker worker(expected.options);
    const auto failed = worker.run(expected.arguments);
    SCOPED_TRACE(expected.arguments.back());
    ASSERT_FALSE(failed);
    EXPECT_EQ(name(failed.error().code), name(expected.code)) << failed.error().sentence;
    EXPECT_FALSE(failed.error().sentence.empty());
    EXPECT_TRUE(namesIn(directory.path()).empty());
    if (expected.options.program != probe().program) continue;
    EXPECT_TRUE(worker.run({"probe", file, "read=" + file})) << "the next job";
  }
}

TEST(Worker, IsCancelled) {
  const TemporaryDirectory directory;
  const BarCodeClip clip({.frames = 600});
  Worker worker(probe());
  const std::vector<std::string> encode{"rotate", clip.path(), "-o", directory.file("made.mp4")};
  std::stop_source stop;
  const auto stopped = worker.run(
      encode, [&stop](double) { stop.request_stop(); }, stop.get_token());
  ASSERT_FALSE(stopped);
  EXPECT_EQ(name(stopped.error().code), "cancelled");
  EXPECT_THROW((void)worker.run(encode, [](double) { throw std::runtime_error("enough"); }), std::runtime_error);
  EXPECT_TRUE(namesIn(directory.path()).empty());
  EXPECT_TRUE(worker.run(encode));
}

}  // namespace
}  // namespace clipworks::test
