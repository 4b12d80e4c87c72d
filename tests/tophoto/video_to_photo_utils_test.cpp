#include <clipworks/tophoto/VideoToPhotoUtils.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/media/dispatch/DispatchQueue.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/PrintedLinesCapture.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;
using ExportFormat = VideoToPhotoUtils::ExportFormat;
using CaptureResult = Result<URL, VideoToPhotoUtils::ExportError>;

constexpr std::chrono::seconds patience{60};

static_assert(!std::is_default_constructible_v<VideoToPhotoUtils>);

class Capture : public testing::Test {
 protected:
  void SetUp() override { FileSystem::shared().setOutputsURL(URL(outputs_.path())); }
  void TearDown() override { EXPECT_THAT(printed_.lines(), IsEmpty()) << "a capture prints nothing"; }

  /// Captures and pumps the main queue until the result comes. The object is gone by then.
  static std::optional<CaptureResult> capture(const fs::path& video, const CMTime& time,
                                              const std::optional<std::string>& name, ExportFormat format) {
    std::optional<CaptureResult> got;
    std::thread::id calledOn;
    VideoToPhotoUtils::make(URL(video))->getFrameAt(time, name, format, [&](const CaptureResult& result) {
      EXPECT_FALSE(got) << "called twice";
      got = result;
      calledOn = std::this_thread::get_id();
    });
    EXPECT_FALSE(got) << "not before the call returns";
    EXPECT_TRUE(DispatchQueue::main().runOne(patience)) << "no result came to the main queue";
    EXPECT_EQ(calledOn, std::this_thread::get_id());
    return got;
  }

  /// The path of a capture that worked; empty otherwise.
  static fs::path captured(const fs::path& video, const CMTime& time, const std::optional<std::string>& name,
                           ExportFormat format) {
    const auto result = capture(video, time, name, format);
    EXPECT_TRUE(result && *result);
    return result && *result ? (*result)->path() : fs::path();
  }

  TemporaryDirectory outputs_;
  PrintedLinesCapture printed_;
};

TEST_F(Capture, TakesThePictureOnScreenUprightInTheFormatAsked) {
  const BarCodeClip clip({.frames = 40, .rotation = 90});
  const fs::path first = captured(clip.path(), kCMTimeZero, "frame", ExportFormat::png);
  EXPECT_EQ(first, outputs_.file("frame.png"));
  const fs::path middle =
      captured(clip.path(), CMTime(clip.times()[17] + 0.001, 90'000), "frame.of mine", ExportFormat::jpg);
  EXPECT_EQ(middle, outputs_.file("frame.of mine.jpg")) << "the name is used as given";
  for (const auto& [path, number] : {std::pair{first, 0}, std::pair{middle, 17}}) {
    const MediaJudge judge(path);
    EXPECT_EQ(judge.stream("video").width, 180);
    EXPECT_EQ(judge.stream("video").height, 320);
    ASSERT_EQ(judge.pictures().size(), 1U);
    EXPECT_EQ(judge.pictures()[0].number, number) << path;
    EXPECT_EQ(judge.pictures()[0].orientation.quarterTurns, 1) << path;
  }
}

TEST_F(Capture, WithoutANameTakesANewIdentifier) {
  const BarCodeClip clip({.frames = 5});
  const fs::path one = captured(clip.path(), kCMTimeZero, std::nullopt, ExportFormat::heic);
  const fs::path two = captured(clip.path(), kCMTimeZero, std::nullopt, ExportFormat::heic);
  EXPECT_NE(one, two);
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\\.heic");
  EXPECT_TRUE(std::regex_match(one.filename().string(), form)) << one;
  EXPECT_TRUE(fs::exists(one) && fs::exists(two));
}

TEST_F(Capture, ReplacesAFileOfItsNameOnceItHasAPicture) {
  const BarCodeClip clip({.frames = 5});
  const fs::path path = captured(clip.path(), kCMTimeZero, "", ExportFormat::png);
  EXPECT_EQ(path, outputs_.file(".png"));
  EXPECT_EQ(captured(clip.path(), CMTime(3, 30), "", ExportFormat::png), path);
  EXPECT_EQ(numbersOf(MediaJudge(path).pictures()), std::vector<int>{3});

  const auto late = capture(clip.path(), CMTime(100, 1), "", ExportFormat::png);
  ASSERT_TRUE(late);
  EXPECT_FALSE(*late) << "there is no picture at 100 s";
  EXPECT_TRUE(fs::exists(path)) << "nothing is deleted before there is a picture";
}

TEST_F(Capture, APictureThatCannotBeEncodedFailsAndTheOldFileIsGone) {
  const BarCodeClip clip({.width = 64, .height = 8, .frames = 2, .audioCodec = ""});
  std::ofstream(outputs_.file("small.heic")) << "old";
  const auto result = capture(clip.path(), kCMTimeZero, "small", ExportFormat::heic);
  ASSERT_TRUE(result);
  EXPECT_FALSE(*result);
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

TEST_F(Capture, WithoutPicturesFailsOnTheCallingThread) {
  const BarCodeClip sound({.frames = 0, .audioSeconds = 1});
  for (const fs::path& video : {sound.path(), fs::path("/missing.mp4")}) {
    std::optional<CaptureResult> got;
    VideoToPhotoUtils::make(URL(video))->getFrameAt(kCMTimeZero, "frame", ExportFormat::jpg, [&](const auto& result) {
      got = result;
    });
    ASSERT_TRUE(got) << "called before the call returns";
    EXPECT_FALSE(*got);
  }
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

TEST_F(Capture, SaysSuccessThoughTheFileCannotBeWritten) {
  const BarCodeClip clip({.frames = 5});
  const auto result = capture(clip.path(), kCMTimeZero, "no folder/frame", ExportFormat::jpg);
  ASSERT_TRUE(result);
  EXPECT_TRUE(*result) << "kept: write errors are not reported";
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

}  // namespace
}  // namespace clipworks::test
