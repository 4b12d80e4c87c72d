#include <string>

#include <CLI/CLI.hpp>

#include <app/EditingCommand.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/rotate/VideoRotateUtils.h>

namespace clipworks::app {
namespace {

class RotateCommand final : public EditingCommand {
 public:
  std::string name() const override { return "rotate"; }
  std::string purpose() const override { return "Turn a clip by a quarter turn, in a new MP4 file"; }
  std::string notes() const override {
    return "Turns counterclockwise; a clip held upright in portrait, which is stored on its side, turns clockwise. The\n"
           "pictures are encoded anew, as H.264 unless --codec hevc is given, at the clip's rate without its fraction.\n"
           "The new file gets a name of its own.\n\n"
           "Example: clipworks --outputs results rotate clip.mp4\n"
           "\"clipworks --help\" tells the options that hold for every command, and the exit codes.";
  }
  void configure(CLI::App& parser) override { parser.add_option("FILE", file_, "The clip")->type_name("")->required(); }

 protected:
  std::vector<std::filesystem::path> inputs() const override { return {file_}; }

  Outcome check() override { return checkPictures(file_, "turning it"); }

  Outcome edit(Workbench& bench) override {
    Awaited<Result<URL, VideoRotateUtils::RotateError>> turned;
    VideoRotateUtils::make()->rotateVideo(URL(file_), turned.closure());
    const auto made = bench.wait(turned, std::filesystem::path(file_).filename().string() + " could not be turned");
    return made ? bench.deliver(*made) : failure(made.error());
  }

 private:
  std::string file_;
};

const RegisteredCommand<RotateCommand> registration;

}  // namespace
}  // namespace clipworks::app
