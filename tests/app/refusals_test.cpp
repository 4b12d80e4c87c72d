// Every way of asking for the impossible ends soon, with one sentence, the right exit code and nothing left behind.

#include <unistd.h>

#include <fstream>

#include <tests/app/ProgramUnderTest.h>
#include <tests/support/PrivateSoundServer.h>
#include <tests/support/SmallFileSystem.h>

namespace clipworks::test {
namespace {

/// Ends soon, and finds no microphone.
const ProgramOptions soon{.deadline = std::chrono::seconds(20),
                          .environment = PrivateSoundServer::noSoundEnvironment()};

std::string plainClip() { return BarCodeClip().path(); }

/// What must hold of every failure, told with --json: one sentence, and nothing in `outputs`.
void expectFailure(const fs::path& outputs, const ProgramResult& result, int exitCode, const std::string& sentence) {
  EXPECT_EQ(result.exitCode, exitCode) << result;
  const auto errors = eventsOf(result, "error");
  ASSERT_EQ(errors.size(), 1U) << result;
  EXPECT_EQ(eventsOf(result).back(), errors.front()) << "something follows the error\n" << result;
  EXPECT_THAT(eventsOf(result, "done"), testing::IsEmpty()) << result;
  const std::string message = errors.front().at("message");
  EXPECT_THAT(message, testing::HasSubstr(sentence));
  EXPECT_EQ(result.standardError, "clipworks: " + message + "\n");
  EXPECT_EQ(namesIn(outputs), Names{});
}

void expectRefusals(int exitCode, const std::vector<std::pair<Arguments, std::string>>& refusals) {
  for (auto [words, sentence] : refusals) {
    SCOPED_TRACE(testing::PrintToString(words));
    const TemporaryDirectory outputs;
    words.insert(words.begin(), "--json");
    expectFailure(outputs.path(), runClipworks(outputs.path(), words, soon), exitCode, sentence);
  }
}

TEST(BadFile, IsRefusedWithASentence) {
  const TemporaryDirectory in;
  std::ofstream(in.file("empty.mp4"));
  std::ofstream(in.file("text.mp4")) << "some words\n";
  fs::copy_file(BarCodeClip({.outputArguments = {"-movflags", "+faststart"}}).path(), in.file("cut.mp4"));
  fs::resize_file(in.file("cut.mp4"), 500);  // within its index, which comes first
  const std::string clip = plainClip();
  std::ifstream whole(clip, std::ios::binary);
  std::string claims{std::istreambuf_iterator<char>(whole), {}};
  claims.replace(claims.find("stss") + 8, 4, std::string("\x20\0\0\0", 4));  // so many access points
  std::ofstream(in.file("claims.mp4"), std::ios::binary) << claims;
  const std::string tone = soundAlone();
  const std::string flat = BarCodeClip({.width = 64, .height = 8, .frames = 2, .audioCodec = ""}).path();
  expectRefusals(
      1, {{{"loop", in.file("none.mp4"), "--count", "3"}, "none.mp4 cannot be opened"},
          {{"loop", in.path(), "--count", "3"}, "is a directory"},
          {{"loop", in.file("empty.mp4"), "--count", "3"}, "empty.mp4 is empty"},
          {{"loop", in.file("text.mp4"), "--count", "3"}, "text.mp4 is not readable"},
          {{"loop", in.file("cut.mp4"), "--count", "3"}, "cut.mp4"},
          {{"loop", in.file("claims.mp4"), "--count", "3"}, "claims more memory than a file of its size can need"},
          {{"loop", silentClip(), "--count", "3"}, "has no sound track; looping needs one"},
          {{"loop", tone, "--count", "3"}, "has no video track; looping needs one"},
          {{"reverse", silentClip()}, "has no sound track; reversing needs one, unless --video-only"},
          {{"reverse", tone}, "has no video track; reversing needs one, unless --audio-only"},
          {{"speed", silentClip(), "--from", "0", "--to", "1", "--ratio", "2"}, "has no sound track"},
          {{"narrate", clip, "--piece", silentClip() + "@1"}, "has no sound track"},
          {{"narrate", silentClip(), "--piece", tone + "@0"}, "has no sound track; narration needs one"},
          {{"narrate", tone, "--piece", tone + "@0"}, "has no video track; narration needs one"},
          {{"frame", tone, "--at", "0"}, "has no video track; taking a picture needs one"},
          {{"frame", flat, "--at", "0", "--format", "heic"}, "too small for HEIC"},
          {{"record", "--at", "0", "--for", "1"}, "nothing can be recorded: no microphone can be opened: "}});
}

TEST(BadFile, BeyondALimitEndsWithAnExitCodeOfItsOwn) {
  const std::string clip = plainClip();
  const std::string flat = BarCodeClip({.width = 64, .height = 8, .frames = 2, .audioCodec = ""}).path();
  expectRefusals(3, {{{"frame", clip, "--at", "0", "--max-pixels", "511"}, "pixels, 57600 of them; 511 are allowed"},
                     {{"--max-pixels", "600", "join", flat, clip}, "pixels, 57600 of them; 600 are allowed"},
                     {{"loop", clip, "--count", "3", "--max-seconds", "1.5"}, "lasts 2.000 seconds; 1.5 are allowed"}});
}

TEST(WrongUse, IsFoundBeforeAnythingRuns) {
  const std::string clip = plainClip();
  const std::string piece = soundAlone();
  const std::string slides =
      BarCodeClip({.rate = {1, 60}, .sampleRate = 8'000, .audioSeconds = 1}).path();  // an hour long
  expectRefusals(
      2, {{{"loop", clip, "--count", "0"}, "at least 1"},
          {{"loop", clip, "--count", "99999999999999999999"}, "at most 100000"},
          {{"loop", clip, "--count", "3x"}, "whole number, not \"3x\""},
          {{"loop", clip}, "--count is required; \"clipworks loop --help\" tells more"},
          {{"loop", "--count", "3"}, "FILE is required"},
          {{"loop", clip, "--count"}, "--count needs a value"},
          {{"loop", clip, "--count", "3", "--quick"}, "\"--quick\" is not known; \"clipworks loop --help\" tells more"},
          {{"loop", slides, "--count", "2000"}, "longer than 1000 hours"},
          {{"--codec", "av1", "loop", clip, "--count", "3"}, "--codec takes auto, h264 or hevc, not \"av1\""},
          {{"loop", clip, "--count", "3", "--max-pixels", "0.5"}, "--max-pixels takes a whole number from 1"},
          {{"loop", clip, "--count", "3", "--max-seconds", "0"}, "--max-seconds takes seconds, more than 0, not \"0\""},
          {{"loop", clip, "--count", "3", "--threads", "0"}, "--threads takes a whole number from 1 to 1024"},
          {{"juggle", clip}, "\"juggle\" is not known"},
          {{}, "a command is needed"},
          {{"compress", clip, "--preset", "481p"}, "not \"481p\""},
          {{"compress", clip, "--preset", "480p", "--bitrate", "-1"}, "from 0 to 1000000, not \"-1\""},
          {{"preview", clip, "--preset", "480p", "--bitrate", "9223372036854776"}, "not \"9223372036854776\""},
          {{"reverse", clip, "--video-only", "--name", "a/b"}, "--name takes a name"},
          {{"reverse", clip, "--video-only", "--name", ""}, "--name must not be empty"},
          {{"reverse", clip, "--video-only", "--audio-only"}, "--audio-only"},
          {{"speed", clip, "--from", "1", "--to", "1", "--ratio", "2"}, "--from must come before --to"},
          {{"speed", clip, "--from=-1", "--to", "1", "--ratio", "2"}, "--from must not be negative"},
          {{"speed", clip, "--from", "1", "--to", "2.5", "--ratio", "2"}, "ends at 2.0"},
          {{"speed", clip, "--from", "nan", "--to", "1", "--ratio", "2"}, "--from and --to take seconds"},
          {{"speed", clip, "--from", "0", "--to", "1", "--ratio", "0"}, "--ratio must be more than 0"},
          {{"speed", clip, "--from", "0", "--to", "1", "--ratio", "inf"}, "--ratio must be more than 0"},
          {{"speed", clip, "--from", "0", "--to", "1", "--ratio", "1e-9"}, "nothing of the stretch"},
          {{"speed", clip, "--from", "0", "--to", "1", "--ratio", "1e9"}, "1000 hours"},
          {{"speed", clip, "--from", "0", "--to", "1", "--ratio", "2", "--quality", "best"}, "--quality"},
          {{"speed", clip, "--from", "0", "--to", "1", "--ratio", "2", "--name", "a/b"}, "without a folder"},
          {{"narrate", clip, "--piece", piece}, "--piece takes AUDIO@S"},
          {{"narrate", clip, "--piece", piece + "@1s"}, "--piece takes AUDIO@S"},
          {{"narrate", clip, "--piece", piece + "@-1"}, "would start before the clip"},
          {{"narrate", clip, "--piece", piece + "@1:-1"}, "needs a volume from 0 to 1000"},
          {{"narrate", clip, "--piece", piece + "@1", "--base-volume", "inf"}, "--base-volume takes"},
          {{"narrate", clip, "--piece", piece + "@1", "--quality", "high"}, "takes low, highCompressed"},
          {{"narrate", clip, "--piece", piece + "@2"}, "ends at 2.000 seconds"},
          {{"narrate", clip}, "--piece is required"},
          {{"frame", clip}, "--at"},
          {{"frame", clip, "--at", "noon"}, "--at takes seconds"},
          {{"frame", clip, "--at", "-1"}, "--at takes seconds"},
          {{"frame", clip, "--at", "0:60:00"}, "--at takes seconds"},
          {{"frame", clip, "--at", "2.1"}, "there is no picture at 2.1"},
          {{"frame", clip, "--at", "#60"}, "has 60 pictures, from #0 to #59"},
          {{"frame", clip, "--at", "0", "--format", "gif"}, "takes jpg, png or heic"},
          {{"record", "--at", "-1"}, "--at takes seconds"},
          {{"record", "--at", "0", "--for", "0"}, "--for takes seconds"}});
}

TEST(BadOutputs, MissingDirectory) {
  const TemporaryDirectory directory;
  const std::string none = directory.file("none");
  for (const Arguments& words : {Arguments{"--outputs", none, "--json", "loop", plainClip(), "--count", "2"},
                                 {"--outputs", none, "--json", "record", "--at", "0"},
                                 {"--outputs", directory.path(), "--temp", none, "--json", "reverse", plainClip()}}) {
    expectFailure(directory.path(), runClipworks(words, soon), 1, none + " does not exist");
  }
}

TEST(BadOutputs, DirectoryThatMayNotBeWritten) {
  const TemporaryDirectory outputs;
  fs::permissions(outputs.path(), fs::perms(0555));
  Arguments command = clipworksCommand(outputs.path(), {"--json", "loop", plainClip(), "--count", "2"});
  // Permissions mean nothing to root until it has given its privileges up.
  if (::geteuid() == 0) command.insert(command.begin(), {"setpriv", "--bounding-set=-all", "--inh-caps=-all"});
  expectFailure(outputs.path(), runProgram(command, soon), 1, "Permission denied");
}

TEST(BadOutputs, FullFileSystem) {
  const struct {
    int kibibytes;
    Arguments words;
    std::string sentence;
  } cases[] = {{64, {"--json", "loop", plainClip(), "--count", "20"}, ""},
               {64, {"--json", "preview", slowClip(), "--preset", "1080p"}, "-preview.mp4 cannot be written: "},
               {256, {"--json", "reverse", slowClip(), "--name", "a"}, ""},
               {16, {"--json", "frame", plainClip(), "--at", "0", "--format", "png"}, ""}};
  for (const auto& [kibibytes, words, sentence] : cases) {
    SCOPED_TRACE(words[1]);
    const SmallFileSystem outputs(kibibytes);
    if (!outputs.isMounted()) GTEST_SKIP() << outputs.whyNot();
    expectFailure(outputs.path(), runClipworks(outputs.path(), words), 4, sentence + "No space left on device");
  }
}

TEST(BadOutputs, StandardOutputThatCannotBeWritten) {
  const TemporaryDirectory outputs;
  Arguments command = clipworksCommand(outputs.path(), {"loop", plainClip(), "--count", "2"});
  command.insert(command.begin(), {"sh", "-c", "exec \"$@\" > /dev/full", "sh"});
  const auto result = runProgram(command, soon);
  EXPECT_EQ(result.exitCode, 1) << result;
  EXPECT_EQ(result.standardError, "clipworks: standard output cannot be written\n");
}

}  // namespace
}  // namespace clipworks::test
