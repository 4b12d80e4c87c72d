// Timed metadata, time code and subtitles of clips, cut along with the pictures: what ffprobe reads of them then.

#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include <clipworks/edit/Chain.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

using nlohmann::json;
using Shown = std::tuple<int, int, std::string>;  // from, until: milliseconds; the bytes of text

json probed(const std::filesystem::path& file, const std::vector<std::string>& what) {
  std::vector<std::string> arguments{"ffprobe", "-v", "error", "-of", "json"};
  arguments.insert(arguments.end(), what.begin(), what.end());
  arguments.push_back(file);
  return json::parse(runProgram(arguments).standardOutput);
}

/// What is shown by the last track, whose samples are texts; those without text only fill it.
std::vector<Shown> textsOf(const std::filesystem::path& file) {
  const auto streams = probed(file, {"-show_entries", "stream=index"})["streams"];
  std::vector<Shown> texts;
  const auto number = std::to_string(streams.size() - 1);
  const json all = probed(file, {"-select_streams", number, "-show_packets", "-show_data"});
  for (const auto& packet : all["packets"]) {
    // "00000000: 0005 6669 7273 74                        ..first"
    std::string text = std::regex_replace(packet["data"].get<std::string>(), std::regex(".*  ..|\n"), "");
    const auto ms = [&](const char* key) { return std::lround(std::stod(packet[key].get<std::string>()) * 1000); };
    const auto start = static_cast<int>(ms("pts_time"));
    if (!text.empty()) texts.emplace_back(start, start + static_cast<int>(ms("duration_time")), text);
  }
  return texts;
}

struct Case {
  std::string name;
  std::function<Chain(const Chain&)> steps;
  std::vector<Shown> texts{};  ///< that the result shows
  std::string leftOut{};       ///< why it shows none; may be empty
  bool isMetadata = false;     ///< the same samples as timed metadata rather than subtitles
  bool isOutside = false;      ///< a sample of the clip lies outside its file
  bool keepsMetadata = true;
  friend std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }
};

/// Two seconds, "one" from 0.4 to 0.8 and "two" from 1.2 to 1.8.
std::filesystem::path clipFor(const Case& c, const TemporaryDirectory& directory) {
  const auto texts = writeTo(directory.file("a.srt"),
                             "1\n00:00:00,400 --> 00:00:00,800\none\n\n2\n00:00:01,200 --> 00:00:01,800\ntwo\n");
  const auto clip = directory.file("clip.mp4");
  const auto made = runProgram({"ffmpeg", "-v", "error", "-i", BarCodeClip().path(), "-i", texts, "-map", "0", "-map",
                                "1", "-c", "copy", "-c:s", "mov_text", clip});
  EXPECT_TRUE(made.succeeded()) << made;
  std::string bytes = fileBytes(clip);
  const auto replace = [&bytes](const std::string& from, const std::string& to) {
    bytes.replace(bytes.rfind(from), to.size(), to);
  };
  if (c.isMetadata) replace("sbtl", "meta"), replace("tx3g", "mebx");
  if (c.isOutside) bytes.replace(bytes.rfind("stsz") + 17, 1, "\x7f");
  return writeTo(clip, bytes);
}

class DataTracks : public testing::TestWithParam<Case> {};

TEST_P(DataTracks, AreCutAsThePicturesAre) {
  const Case& c = GetParam();
  const TemporaryDirectory directory;
  const Chain chain = c.steps(Chain(clipFor(c, directory)));
  for (const std::string name : {"a.mp4", "a.mov"}) {
    const auto made = chain.save(directory.file(name), {.plan = {.keepsMetadata = c.keepsMetadata}});
    ASSERT_TRUE(made) << made.error().sentence;
    if (c.leftOut.empty()) {
      EXPECT_EQ(textsOf(made->path), c.texts);
      EXPECT_TRUE(made->leftOut.empty());
    } else {
      ASSERT_EQ(made->leftOut.size(), 1U);
      EXPECT_EQ(made->leftOut.front().why, c.leftOut);
      EXPECT_EQ(probed(made->path, {"-show_entries", "stream=index"})["streams"].size(), 2U);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Steps, DataTracks,
    testing::Values(
        Case{"whole", [](const Chain& c) { return c; }, {{400, 800, "one"}, {1200, 1800, "two"}}},
        Case{"cut_in_two_samples",
             [](const Chain& c) { return c.trim(0.5, 1.5); },
             {{0, 300, "one"}, {700, 1000, "two"}}},
        Case{"looped",
             [](const Chain& c) { return c.trim(0.5, 1).loop(2); },
             {{0, 300, "one"}, {500, 800, "one"}},
             "",
             true},
        Case{
            "joined_with_a_clip_without",
            [](const Chain& c) {
              return Chain(joined({*c.trim(1, 1.5).edit(), *Edit::open(BarCodeClip().path()), *c.trim(0, 0.5).edit()}));
            },
            {{200, 500, "two"}, {2900, 3000, "one"}}},
        Case{"drawn", [](const Chain& c) { return c.rotate(); }, {{400, 800, "one"}, {1200, 1800, "two"}}},
        Case{"metadata_drawn",
             [](const Chain& c) { return c.rotate(); },
             {},
             "it may tell of places in the pictures, which are drawn anew",
             true},
        Case{"slower", [](const Chain& c) { return c.speed(0.5, 1, 2); }, {}, "pictures are re-timed"},
        Case{"stripped", [](const Chain& c) { return c; }, {}, "metadata is not kept", true, false, false},
        Case{"outside", [](const Chain& c) { return c; }, {}, "some of its samples lie outside the file", true, true}),
    [](const auto& c) { return c.param.name; });

TEST(TimeCode, CountsOnFromACut) {
  const TemporaryDirectory directory;
  // A minute that is no tenth one begins with frame 2: SMPTE ST 12-1.
  const BarCodeClip clip({.rate = {30000, 1001}, .extension = ".mov", .outputArguments = {"-timecode", "01:00:59;15"}});
  const auto frames = [](int count) { return count * 1.001 / 30; };
  const auto made = Chain(clip.path()).trim(frames(20), frames(40)).join(clip.path()).save(directory.file("a.mov"));
  ASSERT_TRUE(made) << made.error().sentence;
  const auto streams = probed(made->path, {"-show_streams"})["streams"];
  EXPECT_EQ(streams.at(0)["tags"]["timecode"], "01:01:00;07");
  const auto packets = probed(made->path, {"-select_streams", "2", "-show_packets"})["packets"];
  ASSERT_EQ(packets.size(), 2U);
  EXPECT_NEAR(std::stod(packets.at(1)["pts_time"].get<std::string>()), frames(20), 1e-6);
}

}  // namespace
}  // namespace clipworks::test
