// Every way of asking for the impossible ends soon, with one sentence, the right exit code and nothing left behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/SmallFileSystem.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

using std::filesystem::path;
using testing::HasSubstr;

constexpr std::chrono::seconds deadline{20};

path write(const path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
  return file;
}

std::string bytesOf(const path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

path plainClip() { return BarCodeClip().path(); }

/// A clip cut off behind `share` of its bytes. The index comes last, or first with `arguments`.
path cutClip(const path& file, double share, const std::vector<std::string>& arguments = {}) {
  ClipOptions options;
  options.outputArguments = arguments;
  const std::string whole = bytesOf(BarCodeClip(options).path());
  return write(file, whole.substr(0, static_cast<std::size_t>(share * static_cast<double>(whole.size()))));
}

path silentClip() {
  ClipOptions options;
  options.audioCodec.clear();
  return BarCodeClip(options).path();
}

path soundAlone() {
  ClipOptions options;
  options.frames = 0;
  options.audioSeconds = 2;
  options.extension = ".m4a";
  return BarCodeClip(options).path();
}

/// What must hold of every failure, told with --json.
void expectFailure(const ProgramResult& result, int exitCode, const std::string& sentence) {
  EXPECT_FALSE(result.timedOut) << result;
  EXPECT_EQ(result.exitCode, exitCode) << result;
  const auto errors = eventsOf(result, "error");
  ASSERT_EQ(errors.size(), 1U) << result;
  EXPECT_EQ(eventsOf(result).back(), errors.front()) << "something follows the error\n" << result;
  const std::string message = errors.front().at("message");
  EXPECT_THAT(message, HasSubstr(sentence));
  EXPECT_EQ(result.standardError, "clipworks: " + message + "\n");
}

struct BadFile {
  std::string name;
  /// Makes the file, in a directory of its own.
  std::function<path(const path& directory)> make;
  std::string sentence;

  friend std::ostream& operator<<(std::ostream& out, const BadFile& file) { return out << file.name; }
};

class BadFileTest : public testing::TestWithParam<BadFile> {};

TEST_P(BadFileTest, IsRefusedWithASentence) {
  const TemporaryDirectory inputs;
  const TemporaryDirectory outputs;
  const path file = GetParam().make(inputs.path());
  const auto result =
      runClipworks({"--json", "--outputs", outputs.path(), "loop", file, "--count", "3"}, {.deadline = deadline});
  expectFailure(result, 1, GetParam().sentence);
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(
    Files, BadFileTest,
    testing::Values(
        BadFile{"there_is_none", [](const path& in) { return in / "none.mp4"; }, "none.mp4 cannot be opened"},
        BadFile{"is_a_directory", [](const path& in) { return in; }, "is a directory"},
        BadFile{"is_empty", [](const path& in) { return write(in / "a.mp4", ""); }, "a.mp4 is empty"},
        BadFile{"is_text", [](const path& in) { return write(in / "a.mp4", "some words\n"); }, "a.mp4 is not readable"},
        BadFile{
            "refers_to_another_file",
            [](const path& in) { return write(in / "a.mp4", "ffconcat version 1.0\nfile " + plainClip().string()); },
            "a.mp4 is not readable"},
        BadFile{"is_cut_and_has_no_index", [](const path& in) { return cutClip(in / "a.mp4", 0.6); }, "a.mp4"},
        BadFile{"is_cut_within_the_index_that_comes_first",
                [](const path& in) {
                  return cutClip(in / "a.mp4", 0.01, {"-movflags", "+faststart"});
                },
                "a.mp4"},
        BadFile{"has_no_sound", [](const path&) { return silentClip(); }, "has no sound track; looping needs one"},
        BadFile{"has_no_pictures", [](const path&) { return soundAlone(); }, "has no video track; looping needs one"}),
    [](const auto& testCase) { return testCase.param.name; });

struct WrongUse {
  std::string name;
  Arguments arguments;
  std::string sentence;

  friend std::ostream& operator<<(std::ostream& out, const WrongUse& use) { return out << use.name; }
};

class WrongUseTest : public testing::TestWithParam<WrongUse> {};

TEST_P(WrongUseTest, IsFoundBeforeAnythingRuns) {
  const TemporaryDirectory outputs;
  Arguments arguments{"--json", "--outputs", outputs.path()};
  for (const auto& argument : GetParam().arguments) {
    arguments.push_back(argument == "CLIP" ? plainClip().string() : argument);
  }
  expectFailure(runClipworks(arguments, {.deadline = deadline}), 2, GetParam().sentence);
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(
    Uses, WrongUseTest,
    testing::Values(
        WrongUse{"count_0", {"loop", "CLIP", "--count", "0"}, "at least 1"},
        WrongUse{"count_below_0", {"loop", "CLIP", "--count", "-1"}, "at least 1"},
        WrongUse{"count_of_a_million_million", {"loop", "CLIP", "--count", "1000000000000"}, "at most 100000"},
        WrongUse{"count_beyond_64_bits", {"loop", "CLIP", "--count", "99999999999999999999"}, "at most 100000"},
        WrongUse{"count_in_words", {"loop", "CLIP", "--count", "abc"}, "whole number, not \"abc\""},
        WrongUse{"count_with_a_unit", {"loop", "CLIP", "--count", "3x"}, "whole number, not \"3x\""},
        WrongUse{"count_missing", {"loop", "CLIP"}, "--count is required"},
        WrongUse{"file_missing", {"loop", "--count", "3"}, "FILE is required"},
        WrongUse{"option_unknown", {"--quick", "loop", "CLIP", "--count", "3"}, "--quick"},
        WrongUse{"codec_unknown", {"--codec", "av1", "loop", "CLIP", "--count", "3"}, "not \"av1\""},
        WrongUse{"command_unknown", {"juggle", "CLIP"}, "\"juggle\" is not known"},
        WrongUse{"command_missing", {}, "a command is needed"}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(TooLongLoop, IsRefusedByItsLength) {
  ClipOptions options;
  options.rate = {1, 60};  // a minute a picture
  options.audioCodec = "aac";
  options.sampleRate = 8'000;
  options.audioSeconds = 1;
  const TemporaryDirectory outputs;
  const auto result =
      runClipworks({"--json", "--outputs", outputs.path(), "loop", BarCodeClip(options).path(), "--count", "2000"},
                   {.deadline = deadline});
  expectFailure(result, 2, "longer than 1000 hours");
}

TEST(BadOutputs, MissingDirectory) {
  const TemporaryDirectory directory;
  const Arguments places[] = {{"--outputs", directory.file("none")},
                              {"--outputs", directory.path(), "--temp", directory.file("none")}};
  for (Arguments arguments : places) {
    arguments.insert(arguments.end(), {"--json", "loop", plainClip(), "--count", "2"});
    expectFailure(runClipworks(arguments, {.deadline = deadline}), 1, "none does not exist");
    EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{});
  }
}

TEST(BadOutputs, DirectoryThatMayNotBeWritten) {
  const TemporaryDirectory outputs;
  std::filesystem::permissions(outputs.path(), std::filesystem::perms(0555));
  Arguments command = clipworksCommand({"--json", "--outputs", outputs.path(), "loop", plainClip(), "--count", "2"});
  // Permissions mean nothing to root until it has given its privileges up.
  if (::geteuid() == 0) command.insert(command.begin(), {"setpriv", "--bounding-set=-all", "--inh-caps=-all"});
  expectFailure(runProgram(command, {.deadline = deadline}), 1, "Permission denied");
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
}

TEST(BadOutputs, FullFileSystem) {
  const SmallFileSystem outputs(64);
  if (!outputs.isMounted()) GTEST_SKIP() << outputs.whyNot();
  const auto result = runClipworks({"--json", "--outputs", outputs.path(), "loop", plainClip(), "--count", "20"},
                                   {.deadline = deadline});
  expectFailure(result, 1, "No space left on device");
  EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
}

TEST(BadOutputs, StandardOutputThatCannotBeWritten) {
  const TemporaryDirectory outputs;
  const auto result = runProgram({"sh", "-c", "exec \"$@\" > /dev/full", "sh", CLIPWORKS_PROGRAM, "--outputs",
                                  outputs.path(), "loop", plainClip(), "--count", "2"},
                                 {.deadline = deadline});
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_EQ(result.standardError, "clipworks: standard output cannot be written\n");
}

}  // namespace
}  // namespace clipworks::test
