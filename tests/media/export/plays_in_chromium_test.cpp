#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

#include "ExportTesting.h"

// A player that shares no code with the judges' container reader says that our files play.

namespace clipworks::test {
namespace {

using testing::HasSubstr;

constexpr const char* chromium = "/usr/bin/chromium";

/// Loads the video, jumps to a time within its last copy, and tells the console what it finds.
constexpr const char* page = R"(<!doctype html><html><body><script>
const video = document.createElement('video');
const say = (text) => console.log(text + ' END');
video.onerror = () => say('ERROR ' + video.error.code + ' ' + video.error.message);
video.onloadeddata = () => { video.currentTime = JUMP; };
video.onseeked = () => say('DURATION ' + video.duration.toFixed(2) + ' SIZE ' + video.videoWidth + 'x' +
                           video.videoHeight + ' AT ' + video.currentTime.toFixed(2) + ' READY ' +
                           (video.readyState >= 2));
video.muted = true;
video.preload = 'auto';
video.src = 'loop.mp4';
</script></body></html>)";

TEST(PlaysInChromium, ALoopHasItsLengthItsSizeAndPicturesToTheEnd) {
  if (!std::filesystem::exists(chromium)) GTEST_SKIP() << "there is no " << chromium;
  const BarCodeClip clip({.frames = 60, .timescale = 30, .rotation = 90});
  const TemporaryDirectory directory;
  const auto exported =
      exportAsset(loopOf(clip.path(), 3), AVAssetExportPresetHighestQuality, directory.file("loop.mp4"));
  ASSERT_EQ(exported.failure(), "");
  std::string html = page;
  html.replace(html.find("JUMP"), 4, "5.50");
  std::ofstream(directory.file("page.html")) << html;

  RunningProgram browser(
      {chromium, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-dev-shm-usage",
       "--disable-background-networking", "--disable-component-update", "--disable-sync",
       "--user-data-dir=" + directory.file("profile").string(), "--enable-logging=stderr", "--remote-debugging-port=0",
       "file://" + directory.file("page.html").string()},
      {.deadline = std::chrono::seconds(80)});
  const bool told = browser.waitForText(" END");
  browser.send(SIGKILL);
  const ProgramResult shown = browser.wait();
  ASSERT_TRUE(told) << "the page said nothing: " << shown;
  EXPECT_THAT(shown.standardError, HasSubstr("DURATION 6.00 SIZE 180x320 AT 5.50 READY true"));
}

}  // namespace
}  // namespace clipworks::test
