// Every way of asking for the impossible ends soon, with one sentence, the right exit code and nothing left behind.

#include <unistd.h>

#include <fstream>
#include <functional>
#include <string>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/SmallFileSystem.h>

namespace clipworks::test {
namespace {

using std::filesystem::path;
using testing::HasSubstr;

constexpr std::chrono::seconds deadline{20};

path write(const path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
  return file;
}

path plainClip() { return BarCodeClip().path(); }

/// The first `bytes` of a clip whose index comes first.
path cutClip(const path& file, std::uintmax_t bytes) {
  std::filesystem::copy_file(BarCodeClip({.outputArguments = {"-movflags", "+faststart"}}).path(), file);
  std::filesystem::resize_file(file, bytes);
  return file;
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
        BadFile{"none", [](const path& in) { return in / "none.mp4"; }, "none.mp4 cannot be opened"},
        BadFile{"a directory", [](const path& in) { return in; }, "is a directory"},
        BadFile{"empty", [](const path& in) { return write(in / "a.mp4", ""); }, "a.mp4 is empty"},
        BadFile{"text", [](const path& in) { return write(in / "a.mp4", "some words\n"); }, "a.mp4 is not readable"},
        BadFile{"cut within its index", [](const path& in) { return cutClip(in / "a.mp4", 500); }, "a.mp4"},
        BadFile{"silent", [](const path&) { return silentClip(); }, "has no sound track; looping needs one"},
        BadFile{"no pictures", [](const path&) { return soundAlone(); }, "has no video track; looping needs one"}));

TEST(WrongUse, IsFoundBeforeAnythingRuns) {
  const std::string clip = plainClip();
  const std::pair<Arguments, std::string> uses[] = {
      {{"loop", clip, "--count", "0"}, "at least 1"},
      {{"loop", clip, "--count", "-1"}, "at least 1"},
      {{"loop", clip, "--count", "99999999999999999999"}, "at most 100000"},
      {{"loop", clip, "--count", "3x"}, "whole number, not \"3x\""},
      {{"loop", clip}, "--count is required; \"clipworks loop --help\" tells more"},
      {{"loop", "--count", "3"}, "FILE is required"},
      {{"loop", clip, "--count"}, "--count needs a value"},
      {{"loop", clip, "--count", "3", "--quick"}, "\"--quick\" is not known; \"clipworks loop --help\" tells more"},
      {{"--codec", "av1", "loop", clip, "--count", "3"}, "--codec takes auto, h264 or hevc, not \"av1\""},
      {{"juggle", clip}, "\"juggle\" is not known"},
      {{}, "a command is needed"},
  };
  for (const auto& [use, sentence] : uses) {
    SCOPED_TRACE(sentence);
    const TemporaryDirectory outputs;
    Arguments arguments{"--json", "--outputs", outputs.path()};
    arguments.insert(arguments.end(), use.begin(), use.end());
    expectFailure(runClipworks(arguments, {.deadline = deadline}), 2, sentence);
    EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{});
  }
}

TEST(TooLongLoop, IsRefusedByItsLength) {
  const BarCodeClip clip({.rate = {1, 60}, .sampleRate = 8'000, .audioSeconds = 1});  // a minute a picture
  const TemporaryDirectory outputs;
  const auto result = runClipworks({"--json", "--outputs", outputs.path(), "loop", clip.path(), "--count", "2000"},
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
