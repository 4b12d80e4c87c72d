#include <clipworks/tophoto/VideoToPhotoUtils.h>

#include <fstream>

#include <tests/support/OperationTest.h>

namespace clipworks::test {
namespace {

namespace fs = std::filesystem;
using Format = VideoToPhotoUtils::ExportFormat;
using Captured = Result<URL, VideoToPhotoUtils::ExportError>;

class Capture : public OperationTest {
 protected:
  void TearDown() override { EXPECT_THAT(printed_.lines(), testing::IsEmpty()) << "a capture prints nothing"; }

  /// The object is gone by the time that the result comes.
  static Captured capture(const URL& video, const CMTime& time, const std::optional<std::string>& name, Format format) {
    return later<Captured>([&](auto done) { VideoToPhotoUtils::make(video)->getFrameAt(time, name, format, done); });
  }

  const URL clip_ = urlOf({.frames = 5});
};

TEST_F(Capture, TakesThePictureOnScreenUprightInTheFormatAsked) {
  const BarCodeClip clip({.frames = 40, .rotation = 90});
  const CMTime middle(clip.times()[17] + 0.001, 90'000);
  for (const auto& [time, name, format, file, number] :
       {std::tuple(kCMTimeZero, "frame", Format::png, "frame.png", 0),
        std::tuple(middle, "frame.of mine", Format::jpg, "frame.of mine.jpg", 17)}) {
    const fs::path path = capture(URL(clip.path()), time, name, format).value().path();
    EXPECT_EQ(path, outputs_.file(file)) << "the name is used as given";
    const auto stream = MediaJudge(path).stream("video");
    EXPECT_EQ(std::pair(stream.width, stream.height), std::pair(180, 320));
    const auto pictures = MediaJudge(path).pictures();
    EXPECT_EQ(numbersOf(pictures), std::vector<int>{number}) << path;
    EXPECT_EQ(pictures.at(0).orientation, (Orientation{false, 1})) << path;
  }
}

TEST_F(Capture, WithoutANameTakesANewIdentifier) {
  const fs::path one = capture(clip_, kCMTimeZero, std::nullopt, Format::heic).value().path();
  const fs::path two = capture(clip_, kCMTimeZero, std::nullopt, Format::heic).value().path();
  EXPECT_NE(one, two);
  EXPECT_THAT(one.filename(), testing::MatchesRegex(identifier + "\\.heic"));
  EXPECT_TRUE(fs::exists(one) && fs::exists(two));
}

TEST_F(Capture, ReplacesAFileOfItsNameOnceItHasAPicture) {
  const fs::path path = capture(clip_, kCMTimeZero, "", Format::png).value().path();
  EXPECT_EQ(path, outputs_.file(".png"));
  EXPECT_EQ(capture(clip_, CMTime(3, 30), "", Format::png).value().path(), path);
  EXPECT_EQ(numbersOf(MediaJudge(path).pictures()), std::vector<int>{3});
  EXPECT_FALSE(capture(clip_, CMTime(100, 1), "", Format::png)) << "there is no picture at 100 s";
  EXPECT_TRUE(fs::exists(path)) << "nothing is deleted before there is a picture";
}

TEST_F(Capture, APictureThatCannotBeEncodedFailsAndTheOldFileIsGone) {
  std::ofstream(outputs_.file("small.heic")) << "old";
  const URL small = urlOf({.width = 64, .height = 8, .frames = 2, .audioCodec = ""});
  EXPECT_FALSE(capture(small, kCMTimeZero, "small", Format::heic));
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

TEST_F(Capture, WithoutPicturesFailsOnTheCallingThread) {
  for (const URL& video : {urlOf({.frames = 0, .audioSeconds = 1}), URL("/missing.mp4")}) {
    const auto utils = VideoToPhotoUtils::make(video);
    EXPECT_FALSE(atOnce<Captured>([&](auto done) { utils->getFrameAt(kCMTimeZero, "frame", Format::jpg, done); }));
  }
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

TEST_F(Capture, SaysSuccessThoughTheFileCannotBeWritten) {
  EXPECT_TRUE(capture(clip_, kCMTimeZero, "no folder/frame", Format::jpg)) << "kept: write errors are not reported";
  EXPECT_TRUE(fs::is_empty(outputs_.path()));
}

}  // namespace
}  // namespace clipworks::test
