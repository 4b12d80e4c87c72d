// What of strangers' files is let in: how many pixels, how many seconds, which codecs.

#include <chrono>
#include <thread>

#include <clipworks/edit/Chain.h>
#include <clipworks/edit/Describe.h>
#include <clipworks/edit/TakePicture.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::test {
namespace {

using engine::MediaFile;
using engine::runFFmpeg;

std::string codeOf(const Error& error) { return std::string(name(error.code)) + ": " + error.sentence; }

/// Made by ffmpeg of its own pictures and sound, a second long.
std::filesystem::path madeOf(const TemporaryDirectory& in, const std::string& file, std::vector<std::string> more,
                             const std::string& pictures = "testsrc=size=160x120:rate=25:duration=1") {
  runFFmpeg({"-f", "lavfi", "-i", pictures, "-f", "lavfi", "-i", "sine=sample_rate=44100:duration=1", in.file(file)},
            std::move(more));
  return in.file(file);
}

class InputLimitsTest : public testing::Test {
 protected:
  /// What becomes of taking the picture at 0.9 s: nothing to say, or why there is none.
  std::string frameOf(const std::filesystem::path& file, const InputLimits& limits) const {
    const auto edit = Edit::open(file, Edit::Extent::movie, limits);
    if (!edit) return codeOf(edit.error());
    const auto taken = takePictures(*edit, {{exactSeconds(0.9), in.file("frame.png")}},
                                    {.format = StillFormat::png, .existing = ExistingFile::replaced});
    return taken ? "" : codeOf(taken.error());
  }

  TemporaryDirectory in;
};

TEST_F(InputLimitsTest, LetInWhatTheyNameAndNotOneMore) {
  const auto clip = BarCodeClip({.width = 320, .height = 180, .frames = 60}).path();
  const std::string file = clip.filename();
  const std::string pixels = "limitReached: " + file + " shows pictures of 320 × 180 pixels, 57600 of them; ";
  EXPECT_EQ(frameOf(clip, {57'600, 2.0}), "");
  EXPECT_EQ(frameOf(clip, {57'599}), pixels + "57599 are allowed");
  EXPECT_EQ(frameOf(clip, {.mostSeconds = 1.5}), "limitReached: " + file + " lasts 2.000 seconds; 1.5 are allowed");
  // Files that steps add are opened with the same, and so is what was written as text.
  const auto strict = Edit::open(BarCodeClip({.width = 64, .height = 48}).path(), Edit::Extent::movie, {10'000});
  EXPECT_THAT(codeOf(narrated(*strict, {{clip}}).error()), testing::HasSubstr("10000 are allowed"));
  EXPECT_THAT(codeOf(Chain(strict).join(clip).edit().error()), testing::HasSubstr("10000 are allowed"));
  const auto read = Edit::fromJson(strict->json());
  EXPECT_TRUE(read && read->limits() == strict->limits() && *read == *strict);
}

TEST_F(InputLimitsTest, HoldForAFileThatIsOpenAlready) {
  const auto clip = BarCodeClip().path();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  auto open = engine::must(MediaFile::open(clip));
  // Shared only once its last change lies some seconds back.
  while (engine::must(MediaFile::open(clip)) != open) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "an open file is never shared";
    open = engine::must(MediaFile::open(clip));
    std::this_thread::yield();
  }
  EXPECT_FALSE(MediaFile::open(clip, {100}));
  EXPECT_NE(engine::must(MediaFile::open(clip, {.takesAnyCodec = true})), open);
}

/// The header tells of small pictures, or nothing; large ones come later, or at once.
TEST_F(InputLimitsTest, HoldForPicturesThatGrowOnTheWay) {
  const auto part = [&](const std::string& name, const std::string& size, const std::string& start) {
    return fileBytes(madeOf(in, name, {"-c:v", "libx264", "-preset", "ultrafast", "-an", "-output_ts_offset", start},
                            "testsrc=size=" + size + ":rate=10:duration=0.5"));
  };
  const std::string small = part("a.ts", "160x120", "0");
  for (const std::string size : {"320x240", "4096x2048"}) {
    SCOPED_TRACE(size);
    writeTo(in.file("grows.ts"), small + part("b.ts", size, "0.5"));
    EXPECT_EQ(frameOf(in.file("grows.ts"), {}), "");
    EXPECT_THAT(frameOf(in.file("grows.ts"), {40'000}),
                testing::AllOf(testing::StartsWith("limitReached"), testing::HasSubstr("40000 are allowed")));
    EXPECT_THAT(frameOf(in.file("b.ts"), {40'000}), testing::StartsWith("limitReached: b.ts shows pictures of"));
  }
}

TEST_F(InputLimitsTest, DecodeOnlyWhatPeopleRecordUnlessAnyCodecIsAllowed) {
  const auto refusal = [](const std::string& what) {
    return what + ", which is not among the codecs that are decoded by default; any codec can be allowed";
  };
  for (const auto& [file, options] : std::vector<std::pair<std::string, std::vector<std::string>>>{
           {"cinepak.avi", {"-c:v", "cinepak"}}, {"cinepak.mov", {"-c:v", "cinepak"}}, {"msmpeg4v3.wmv", {}}}) {
    const auto clip = madeOf(in, file, options);
    const std::string codec = file.substr(0, file.find('.'));
    const std::string why = refusal(file + " holds pictures coded as " + codec);
    EXPECT_THAT(frameOf(clip, {}), testing::EndsWith(why));
    EXPECT_EQ(codeOf(plan(*Chain(clip).rotate().edit()).error()), "unsupported: " + why);
    EXPECT_EQ(frameOf(clip, {.takesAnyCodec = true}), "");
    EXPECT_THAT(describe(clip), testing::HasSubstr("\"codec\":\"" + codec + "\",\"width\":160.0,\"height\":120.0"));
    // Nor does the library decode some to look into the file.
    EXPECT_EQ(engine::must(MediaFile::open(clip))->parameters(0).format, AV_PIX_FMT_NONE);
    EXPECT_NE(engine::must(MediaFile::open(clip, {.takesAnyCodec = true}))->parameters(0).format, AV_PIX_FMT_NONE);
  }
  const auto clip = BarCodeClip().path();
  const auto voice = madeOf(in, "voice.wma", {"-vn"});
  const auto spoken = [&](const InputLimits& limits) {
    return plan(*narrated(*Edit::open(clip, Edit::Extent::movie, limits), {{voice}}));
  };
  EXPECT_EQ(codeOf(spoken({}).error()), "unsupported: " + refusal("voice.wma holds sound coded as wmav2"));
  EXPECT_TRUE(spoken({.takesAnyCodec = true}));
}

}  // namespace
}  // namespace clipworks::test
