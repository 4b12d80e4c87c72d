#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/export/AVAssetExportSession.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/PrintedLinesCapture.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {

/// What a program writes to standard output; throws with its words when it fails.
inline std::string outputOf(const std::vector<std::string>& command, const ProgramOptions& options = {}) {
  const auto result = runProgram(command, options);
  if (result.succeeded()) return result.standardOutput;
  throw std::runtime_error((std::ostringstream() << command.front() << ": " << result).str());
}

/// What the tests of the operations' classes share: a directory for outputs, what is printed, and how completions come.
class OperationTest : public testing::Test {
 protected:
#ifdef __SANITIZE_THREAD__
  static constexpr std::chrono::seconds patience{500};
#else
  static constexpr std::chrono::seconds patience{100};
#endif
  /// A new identifier in upper case, as a file is named after.
  static inline const std::string identifier = "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}";

  template <class Outcome>
  using Start = std::function<void(std::function<void(const Outcome&)> completion)>;
  using Action = std::function<void()>;

  void SetUp() override { FileSystem::shared().setOutputsURL(URL(outputs_.path())); }

  /// What the completion is called with: once, before `start` returns.
  template <class Outcome>
  static Outcome atOnce(const Start<Outcome>& start) {
    std::vector<Outcome> outcomes;
    start([&](const Outcome& outcome) { outcomes.push_back(outcome); });
    EXPECT_EQ(outcomes.size(), 1U) << "called once, before the call returns";
    return outcomes.at(0);
  }

  /// What the completion is called with: once, by the main queue, after both have returned.
  template <class Outcome>
  static Outcome later(const Start<Outcome>& start, const Action& meanwhile = {}) {
    std::vector<Outcome> outcomes;
    start([&, thread = std::this_thread::get_id()](const Outcome& outcome) {
      EXPECT_EQ(std::this_thread::get_id(), thread) << "the main queue is pumped by the test's thread";
      outcomes.push_back(outcome);
    });
    EXPECT_TRUE(outcomes.empty()) << "not before the call returns";
    if (meanwhile) meanwhile();
    EXPECT_TRUE(DispatchQueue::main().runOne(patience)) << "no result came to the main queue";
    EXPECT_EQ(outcomes.size(), 1U);
    return outcomes.at(0);
  }

  /// Runs the main queue meanwhile.
  static void pumpUntil(const std::function<bool()>& isOver, const std::string& wanted) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!isOver()) {
      if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error(wanted);
      DispatchQueue::main().runOne(std::chrono::milliseconds(5));
    }
  }

  /// What the completion is called with, on any thread; nothing when it is destroyed uncalled. `watch` is called again
  /// and again until then.
  template <class Outcome>
  static std::optional<Outcome> eventually(const Start<Outcome>& start, const Action& watch = {}) {
    auto promise = std::make_shared<std::promise<Outcome>>();
    auto future = promise->get_future();
    start([promise](const Outcome& outcome) { promise->set_value(outcome); });  // throws at the second
    promise.reset();
    const auto isOver = [&] {
      if (watch) watch();
      return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    };
    pumpUntil(isOver, "the completion is neither called nor destroyed");
    try {
      return future.get();
    } catch (const std::future_error&) {
      return std::nullopt;
    }
  }

  static void cancelExports() {
    for (const auto& session : AVAssetExportSession::liveSessions()) session->cancelExport();
  }

  static URL urlOf(const ClipOptions& options) { return URL(BarCodeClip(options).path()); }
  /// A clip whose movie header counts in 600ths.
  static URL urlIn600ths(ClipOptions options) {
    options.outputArguments = {"-movie_timescale", "600"};
    return urlOf(options);
  }
  /// Videos that lack sound, pictures, or both.
  static std::vector<URL> incompleteVideos() {
    return {urlOf({.width = 160, .height = 90, .frames = 10, .audioCodec = ""}),
            urlOf({.frames = 0, .audioSeconds = 1, .extension = ".m4a"}), URL("/nowhere/clip.mp4")};
  }

  TemporaryDirectory outputs_;
  PrintedLinesCapture printed_;
};

}  // namespace clipworks::test
