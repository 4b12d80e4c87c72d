// What operations do at the edges of their process: when it ends in the midst of them, and when it may have no threads.
// Each runs in a host of its own (host.cpp).

#include <unistd.h>

#include <gmock/gmock.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/PrivateSoundServer.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;

class Process : public testing::TestWithParam<std::string> {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<PrivateSoundServer>(); }
  static void TearDownTestSuite() { server_.reset(); }

  void SetUp() override {
    if (GetParam() == "record" && !server_->isRunning()) GTEST_SKIP() << server_->whyNot();
    clip_ = directory_.file("clip.mp4");
    fs::copy(BarCodeClip({.width = 64, .height = 48, .frames = 12}).path(), clip_);
    // For the user that the host becomes.
    fs::permissions(directory_.path(), fs::perms::all);
    fs::permissions(server_->directory(), fs::perms::all);
  }

  [[nodiscard]] ProgramResult host(const std::string& mode, int number) const {
    // A home for each user that the host becomes. The last of a name counts. LeakSanitizer needs a thread of its own
    // at the end, and what is cut off is no leak.
    const auto home = directory_.file(mode + std::to_string(number));
    fs::create_directory(home);
    fs::permissions(home, fs::perms::all);
    auto environment = server_->environment();
    environment.insert(environment.end(), {"HOME=" + home.string(), "ASAN_OPTIONS=detect_leaks=0"});
    return runProgram(
        {CLIPWORKS_HOST, GetParam(), clip_, mode, std::to_string(number)},
        {.deadline = std::chrono::minutes(5), .environment = environment, .workingDirectory = directory_.path()});
  }

  static std::unique_ptr<PrivateSoundServer> server_;
  TemporaryDirectory directory_;
  fs::path clip_;
};

std::unique_ptr<PrivateSoundServer> Process::server_;

TEST_P(Process, EndsQuietlyInTheMidstOfIt) {
  for (int i = 0; i < 20; ++i) {
    const auto result = host(i % 2 == 0 ? "return" : "exit", 4 * i);
    ASSERT_TRUE(result.succeeded()) << "after " << 4 * i << " ms: " << result;
    ASSERT_EQ(result.standardError, "");
  }
}

TEST_P(Process, GivesOneResultWhateverThreadsItMayHave) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become a user whose threads are counted from nothing";
  for (const int threads : {0, 1, 2, 4, 6, 8, 10, 12, 16, 60}) {
    SCOPED_TRACE(std::to_string(threads) + " threads");
    const auto result = host("threads", threads);
    ASSERT_TRUE(result.succeeded()) << result;
    ASSERT_EQ(result.standardError, "");
    EXPECT_THAT(result.standardOutput, EndsWith(threads == 60 ? "success\n" : "\n"));
    const bool isBare = threads == 0 && GetParam() == "export";
    EXPECT_THAT(result.standardOutput, HasSubstr(isBare ? "the system allows no more threads\n" : ""));
  }
}

INSTANTIATE_TEST_SUITE_P(Of, Process,
                         testing::Values("loop", "compress", "preview", "reverse", "crop", "record", "permission",
                                         "frame", "export"),
                         [](const auto& operation) { return operation.param; });

using LongBatch = Process;

TEST_P(LongBatch, GoesOnWithFewerThreadsThanVideos) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become a user whose threads are counted from nothing";
  const auto result = host("threads", 200);
  ASSERT_TRUE(result.succeeded()) << result;
  EXPECT_THAT(result.standardOutput, HasSubstr("300 of 300\n"));
}

INSTANTIATE_TEST_SUITE_P(Of, LongBatch, testing::Values("long_batch"), [](const auto& batch) { return batch.param; });

}  // namespace
}  // namespace clipworks::test
