// What steps make of a clip, as the plan tells it: which stretches are shown when, what is copied, what is refused.
// Nothing is encoded here.

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include <clipworks/edit/Chain.h>
#include <tests/support/BarCodeClip.h>

namespace clipworks::test {
namespace {

struct Case {
  std::string name;
  std::function<Chain(const Chain&)> steps;
  /// The plan's text, the clip's name replaced by "clip"; or the error's code and sentence.
  std::string told;
  ClipOptions clip{};
  PlanOptions options{};

  friend std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }
};

/// Made once: two seconds of 320 × 180, 30 pictures a second in groups of 30, sound as long.
std::string tellPlan(const Case& c) {
  const BarCodeClip clip(c.clip);
  const auto chain = c.steps(Chain(clip.path()));
  const auto withoutName = [&](const std::string& text) {
    return std::regex_replace(text, std::regex(clip.path().filename().string()), "clip");
  };
  // Written and read again, it is the same.
  const auto edit = chain.edit().and_then([](const Edit& made) { return Edit::fromJson(made.json()); });
  EXPECT_TRUE(!edit || *edit == *chain.edit());
  const auto planned = edit.and_then([&](const Edit& read) { return plan(read, c.options); });
  if (!planned) return std::string(name(planned.error().code)) + ": " + withoutName(planned.error().sentence);
  return withoutName(std::regex_replace(planned->text(), std::regex("(, about [^,]*)?, at most [^\n]*"), ""));
}

class PlanOf : public testing::TestWithParam<Case> {};

TEST_P(PlanOf, IsWhatTheStepsSay) { EXPECT_EQ(tellPlan(GetParam()), GetParam().told); }

// Lines that many plans have. P is for 60 pictures of 320 × 180, A for the sound.
const std::string copiedP = "60 pictures of 320 × 180 pixels, copied as it is coded\n";
const std::string copiedA = "sound, 48000 Hz, 2 channels, copied as it is coded\n";
const std::string encodedA = "sound, 48000 Hz, 2 channels, encoded by aac at 192 kb/s\n";
const std::string drawn =
    " pixels, encoded by libx264 at constant quality\n    The pictures are encoded: they are drawn anew.\n";
const std::string backwards =
    " pixels, encoded by libx264 at constant quality\n    The pictures are encoded: it plays backwards.\n";
const std::string whole = "    0.000 to 2.000 s: clip from 0.000 to 2.000 s\n";
const std::string slowed =
    "    0.000 to 0.500 s: clip from 0.000 to 0.500 s\n"
    "    0.500 to 3.500 s: clip from 0.500 to 1.500 s, 3 times as long\n"
    "    3.500 to 4.000 s: clip from 1.500 to 2.000 s\n";
const std::string slowedInPart =
    "    0.000 to 0.500 s: clip from 0.000 to 0.500 s\n"
    "    0.500 to 0.750 s: clip from 0.500 to 0.625 s, 2 times as long\n"
    "    0.750 to 1.000 s: clip from 0.625 to 0.875 s\n"
    "    1.000 to 1.250 s: clip from 0.875 to 1.000 s, 2 times as long\n"
    "    1.250 to 2.250 s: clip from 1.000 to 2.000 s\n";
const std::string slowedBackwards =
    "    0.000 to 1.000 s: clip from 1.000 to 1.500 s, 2 times as long, backwards\n"
    "    1.000 to 1.500 s: clip from 0.500 to 1.000 s, backwards\n";

Chain crop(const Chain& chain, double x, double y, double width, double height) {
  return chain.crop({x, y, width, height});
}
Chain narratedLate(const Chain& chain) { return chain.narrate({{BarCodeClip().path(), exactSeconds(1.5), 0.5}}, 0); }

INSTANTIATE_TEST_SUITE_P(
    Steps, PlanOf,
    testing::Values(
        Case{"none", [](const Chain& c) { return c; }, "lasts 2.000 s\n" + copiedP + whole + copiedA + whole},
        Case{"loop", [](const Chain& c) { return c.loop(2); },
             "lasts 4.000 s\n120" + copiedP.substr(2) + whole + "    2.000 to 4.000 s: clip from 0.000 to 2.000 s\n" +
                 encodedA + whole + "    2.000 to 4.000 s: clip from 0.000 to 2.000 s\n"},
        Case{"slower", [](const Chain& c) { return c.speed(0.5, 1.5, 3); },
             "lasts 4.000 s\n" + copiedP + slowed + encodedA + slowed},
        Case{"slower_and_a_part_of_it_faster", [](const Chain& c) { return c.speed(0.5, 1, 2).speed(0.75, 1.25, 0.5); },
             "lasts 2.250 s\n" + copiedP + slowedInPart + encodedA + slowedInPart},
        Case{"backwards_twice", [](const Chain& c) { return c.reverse().reverse(); },
             "lasts 2.000 s\n" + copiedP + whole + copiedA + whole},
        Case{"slower_then_backwards_then_cut", [](const Chain& c) { return c.speed(1, 2, 2).reverse().trim(1, 2.5); },
             "lasts 1.500 s\n30 pictures of 320 × 180" + backwards + slowedBackwards + encodedA + slowedBackwards},
        Case{"turned", [](const Chain& c) { return c.rotate(); },
             "lasts 2.000 s\n60 pictures of 180 × 320" + drawn + whole + copiedA + whole},
        Case{"turned_all_the_way_round", [](const Chain& c) { return c.rotate().rotate(Turn::half).rotate(); },
             "lasts 2.000 s\n" + copiedP + whole + copiedA + whole},
        Case{"too_wide_after_two_turns",
             [](const Chain& c) { return crop(c.rotate().rotate(Turn::left), 0, 0, 321, 180); },
             "badArgument: the rectangle reaches out of the picture: clip shows 320 × 180 pixels, the rectangle is "
             "321 × 180 of them from (0, 0) on"},
        Case{"odd_rectangle", [](const Chain& c) { return crop(c, 1, 2.4, 101, 99); },
             "lasts 2.000 s\n60 pictures of 100 × 98" + drawn + whole + copiedA + whole +
                 "note: the rectangle becomes 100 × 98 pixels from (1, 2) on: its sides must be whole and even\n"},
        Case{"compressed", [](const Chain& c) { return c.compress(90, 100'000); },
             "lasts 2.000 s\n60 pictures of 160 × 90 pixels, encoded by libx264 at 100 kb/s\n"
             "    The pictures are encoded: they are drawn anew.\n" +
                 whole + "sound, 44100 Hz, 2 channels, encoded by aac at 128 kb/s\n" + whole},
        Case{"upright_by_the_header_then_cropped",
             [](const Chain& c) { return crop(c, 0, 0, 180, 200); },
             "lasts 2.000 s\n60 pictures of 180 × 200" + drawn + whole + copiedA + whole,
             {.rotation = 90}},
        Case{"narrated_past_the_end", narratedLate,
             "lasts 3.500 s\n" + copiedP + whole + "    2.000 to 3.500 s: the picture before stays\n" + encodedA +
                 whole +
                 "    2.000 to 3.500 s: silence\n    0.000 to 1.500 s: silence\n"
                 "    1.500 to 3.500 s: clip from 0.000 to 2.000 s\n"},
        Case{"cut_in_a_group", [](const Chain& c) { return c.trim(0.5, 1.9); },
             "lasts 1.400 s\n42 pictures of 320 × 180 pixels, copied as it is coded\n"
             "    0.500 s before the start are in the file, not shown.\n"
             "    0.000 to 1.400 s: clip from 0.500 to 1.900 s\n" +
                 encodedA + "    0.000 to 1.400 s: clip from 0.500 to 1.900 s\n"},
        Case{"hevc_when_told_to",
             [](const Chain& c) { return c.loop(1).rotate(); },
             "lasts 2.000 s\n60 pictures of 180 × 320 pixels, encoded by libx265 at constant quality\n"
             "    The pictures are encoded: they are drawn anew.\n" +
                 whole + copiedA + whole,
             {},
             {CodecChoice::hevc, true}},
        Case{"silent_clip_looped",
             [](const Chain& c) { return c.loop(2); },
             "noSound: clip has no sound track; looping needs one",
             {.audioCodec = ""}},
        Case{"stretch_behind_the_end", [](const Chain& c) { return c.speed(1, 2.5, 2); },
             "badArgument: clip ends at 2.000 seconds, so the stretch from 1 to 2.5 is not in it"},
        Case{"stretch_before_the_cut_end", [](const Chain& c) { return c.trim(0, 1).speed(1, 2, 2); },
             "badArgument: clip ends at 1.000 seconds, so the stretch from 1 to 2 is not in it"}),
    [](const auto& c) { return c.param.name; });

TEST(EditAsJson, IsRefusedWhereItDoesNotHold) {
  const BarCodeClip clip;
  const Edit edit = *Chain(clip.path()).speed(0.5, 1.5, 3).rotate().edit();
  const auto changed = [&](const std::string& from, const std::string& to) {
    const auto read = Edit::fromJson(std::regex_replace(edit.json(), std::regex(from), to));
    return read ? "taken" : std::string(name(read.error().code));
  };
  const std::vector<std::array<std::string, 3>> cases{
      {"", "", "taken"},
      {"\"version\":1", "\"version\":2", "unsupported"},
      {"^\\{", "[", "badArgument"},
      {"\"size\":", "\"size\":1", "notReadable"},
      {"\"path\":\"", "\"path\":\"/nowhere", "notFound"},
      {"\"source\":0", "\"source\":1", "badArgument"},
      {"\"track\":0", "\"track\":1", "badArgument"},
      {"\"volume\":1", "\"volume\":-1", "badArgument"},
      {"\"from\":\\[", "\"from\":[-1", "badArgument"},
      {"\"canvas\":\\[180.0,320.0\\],", "", "badArgument"},
      {"\"length\":\\[4", "\"length\":[5", "badArgument"},
  };
  for (const auto& [from, to, becomes] : cases) EXPECT_EQ(changed(from, to), becomes) << from << " as " << to;
  EXPECT_NE(edit, *Chain(clip.path()).speed(0.5, 1.5, 3).edit());
}

}  // namespace
}  // namespace clipworks::test
