#include <csignal>
#include <cstdlib>

#include "ExportTesting.h"

namespace clipworks::test {
namespace {

/// Clips with pictures and sound in the folder that CLIPWORKS_MEDIA names; none without it.
std::vector<fs::path> realClips() {
  std::vector<fs::path> clips;
  const char* folder = std::getenv("CLIPWORKS_MEDIA");
  if (folder == nullptr) return clips;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    const auto asset = assetAt(entry.path());
    const bool hasBoth = !asset->tracks(AVMediaTypeVideo).empty() && !asset->tracks(AVMediaTypeAudio).empty();
    if (hasBoth) clips.push_back(entry.path());
  }
  std::sort(clips.begin(), clips.end());
  return clips;
}

void expectTwiceTheSame(const fs::path& clip) {
  const bool isHEVC = assetAt(clip)->tracks(AVMediaTypeVideo).front()->codecName() == "hevc";
  const Exported exported = exportAsset(loopOf(clip, 2), isHEVC ? toHEVC : toH264);
  EXPECT_EQ(exported.output.warnings(), "");
  const auto hashes = exported.output.pictureHashes();
  ASSERT_EQ(hashes.size() % 2, 0U);
  const auto half = hashes.begin() + static_cast<std::ptrdiff_t>(hashes.size() / 2);
  EXPECT_TRUE(std::equal(hashes.begin(), half, half)) << "the second time differs from the first";
  if (exported.tracks.front().copied) {
    const auto source = MediaJudge(clip).pictureHashes();
    ASSERT_GE(source.size(), hashes.size() / 2);
    EXPECT_TRUE(std::equal(hashes.begin(), half, source.begin())) << "copied pictures differ from the source's";
  }
}

void expectSoundInPlaceAroundAStretch(const fs::path& clip) {
  const auto source = assetAt(clip);
  const double length = source->duration().seconds();
  if (length < 1) return;
  const auto composition = AVMutableComposition::make();
  const auto track = composition->addMutableTrack(AVMediaTypeAudio, kCMPersistentTrackID_Invalid);
  const auto sound = source->tracks(AVMediaTypeAudio).front();
  ASSERT_TRUE(track->insertTimeRange({kCMTimeZero, source->duration()}, sound, kCMTimeZero));
  // Compared with our own reading of it: players differ in what they make of recorders' uneven times.
  const auto plain = exportAsset(composition, toLow);
  const double from = 0.3 * length;
  const double to = 0.6 * length;
  track->scaleTimeRange(CMTimeRange::fromTo(CMTime(from, 48'000), CMTime(to, 48'000)), CMTime(2 * (to - from), 48'000));
  const auto stretched = exportAsset(composition, toLow);
  const Sound before = plain.output.sound();
  const Sound after = stretched.output.sound();
  const auto ahead = lagMilliseconds(before.part(0, from), after.part(0, from), 30);
  const auto behind = lagMilliseconds(before.part(to, length), after.part(2 * to - from, length + to - from), 30);
  EXPECT_NEAR(ahead.value_or(0), 0, 0.5) << "milliseconds; a clip may be silent there";
  EXPECT_NEAR(behind.value_or(0), 0, 0.5) << "milliseconds; a clip may be silent there";
}

TEST(RealClips, PlayTwiceTheSameAndKeepTheirSoundInPlaceAroundAStretch) {
  const auto clips = realClips();
  if (clips.empty()) GTEST_SKIP() << "CLIPWORKS_MEDIA names no folder with clips";
  for (const auto& clip : clips) {
    SCOPED_TRACE(clip.filename().string());
    expectTwiceTheSame(clip);
    expectSoundInPlaceAroundAStretch(clip);
  }
}

// A player that shares no code with the judges' container reader says that our files play.

constexpr const char* chromium = "/usr/bin/chromium";

/// Loads the video, jumps to a time within its last copy, and tells the console what it finds.
constexpr const char* page = R"(<!doctype html><html><body><script>
const video = document.createElement('video');
const say = (text) => console.log(text + ' END');
video.onerror = () => say('ERROR ' + video.error.code + ' ' + video.error.message);
video.onloadeddata = () => { video.currentTime = 5.5; };
video.onseeked = () => say('DURATION ' + video.duration.toFixed(2) + ' SIZE ' + video.videoWidth + 'x' +
                           video.videoHeight + ' AT ' + video.currentTime.toFixed(2) + ' READY ' +
                           (video.readyState >= 2));
video.muted = true;
video.preload = 'auto';
video.src = 'out.mp4';
</script></body></html>)";

TEST(PlaysInChromium, ALoopHasItsLengthItsSizeAndPicturesToTheEnd) {
  if (!fs::exists(chromium)) GTEST_SKIP() << "there is no " << chromium;
  const BarCodeClip clip({.frames = 60, .timescale = 30, .rotation = 90});
  const auto exported = exportAsset(loopOf(clip.path(), 3));
  const auto html = writeTo(exported.directory->file("page.html"), page);

  RunningProgram browser({chromium, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
                          "--disable-dev-shm-usage", "--disable-background-networking", "--disable-component-update",
                          "--disable-sync", "--user-data-dir=" + exported.directory->file("profile").string(),
                          "--enable-logging=stderr", "--remote-debugging-port=0", "file://" + html.string()},
                         {.deadline = std::chrono::seconds(80)});
  const bool told = browser.waitForText(" END");
  browser.send(SIGKILL);
  const ProgramResult shown = browser.wait();
  ASSERT_TRUE(told) << "the page said nothing: " << shown;
  EXPECT_THAT(shown.standardError, testing::HasSubstr("DURATION 6.00 SIZE 180x320 AT 5.50 READY true"));
}

}  // namespace
}  // namespace clipworks::test
