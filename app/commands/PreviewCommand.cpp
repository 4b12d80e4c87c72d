#include <string>

#include <CLI/CLI.hpp>

#include <app/CompressingCommand.h>

namespace clipworks::app {
namespace {

class PreviewCommand final : public CompressingCommand {
 public:
  std::string name() const override { return "preview"; }
  std::string purpose() const override { return "Compress the first five seconds of a clip, to judge a preset"; }
  std::string notes() const override {
    return "Does with the first five seconds, or all of a shorter clip, what \"compress\" does with the whole. The new file\n"
           "gets a name of its own.\n\n"
           "Example: clipworks preview clip.mp4 --preset 480p\n"
           "\"clipworks --help\" tells the options that hold for every command, and the exit codes.";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("FILE", file_, "The clip")->type_name("")->required();
    addSettings(parser);
  }

 protected:
  std::vector<std::filesystem::path> inputs() const override { return {file_}; }

  Outcome check() override {
    const Outcome parsed = parseSettings();
    return parsed ? checkVideo(file_) : parsed;
  }

  Outcome edit(Workbench& bench) override {
    const auto compressor = VideoCompressorUtils::make();
    Awaited<Result<URL, VideoCompressorUtils::CompressionError>> previewed;
    compressor->previewCompression(URL(file_), parameters(), previewed.closure());
    const auto made =
        bench.wait(previewed, std::filesystem::path(file_).filename().string() + " could not be compressed");
    return made ? bench.deliver(*made) : failure(made.error());
  }

 private:
  std::string file_;
};

const RegisteredCommand<PreviewCommand> registration;

}  // namespace
}  // namespace clipworks::app
