#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include <app/EditingCommand.h>
#include <app/OutputName.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/images/AVAssetImageGenerator.h>
#include <clipworks/reverse/VideoReverseConverter.h>

namespace clipworks::app {
namespace {

// Shares of the whole work, as they are on ordinary clips: the pictures take nearly all of the time.
constexpr double picturesEnd = 0.95;
constexpr double operationEnd = 0.97;

enum class Parts { both, picturesOnly, soundOnly };

/// Passes the progress of the pictures on as long as there is somebody who shows it.
class ProgressRelay final : public VideoReverseDelegate {
 public:
  explicit ProgressRelay(Workbench& bench) : bench_(&bench) {}

  void didUpdateReverseProgress(float progress) override {
    const std::lock_guard lock(mutex_);
    if (bench_ != nullptr) bench_->report(picturesEnd * static_cast<double>(progress));
  }
  /// Nothing is passed on any more when it returns.
  void end() {
    const std::lock_guard lock(mutex_);
    bench_ = nullptr;
  }

 private:
  std::mutex mutex_;
  Workbench* bench_;  // guarded by mutex_
};

class ReverseCommand final : public EditingCommand {
 public:
  std::string name() const override { return "reverse"; }
  std::string purpose() const override { return "Play a clip backwards, pictures and sound, in a new MP4 file"; }
  std::string notes() const override {
    return "The pictures are encoded anew as H.264, at constant quality; left and right of the sound change places.\n"
           "--video-only makes a .mov without sound, --audio-only an .m4a without pictures, named reversed_video and\n"
           "reversed_audio unless --name says otherwise.\n\n"
           "Example: clipworks --outputs results reverse clip.mp4 --name backwards\n"
           "\"clipworks --help\" tells the options that hold for every command, and the exit codes.";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("FILE", file_, "The clip")->type_name("")->required();
    parser.add_option("--name", name_, "The new file's name, without its ending")->type_name("NAME");
    auto* videoOnly = parser.add_flag("--video-only", videoOnly_, "The pictures alone");
    parser.add_flag("--audio-only", audioOnly_, "The sound alone")->excludes(videoOnly);
  }

 protected:
  std::vector<std::filesystem::path> inputs() const override { return {file_}; }

  Outcome check() override {
    parts_ = videoOnly_ ? Parts::picturesOnly : audioOnly_ ? Parts::soundOnly : Parts::both;
    if (name_) {
      if (const Outcome checked = checkOutputName(*name_); !checked) return checked;
    }
    const auto asset = AVAsset::make(URL(file_));
    if (asset->tracks().empty()) return failed(asset->loadError());
    if (parts_ != Parts::soundOnly && asset->tracks(AVMediaTypeVideo).empty()) {
      return failed(clipName() + " has no video track; reversing needs one, unless --audio-only is given");
    }
    if (parts_ != Parts::picturesOnly && asset->tracks(AVMediaTypeAudio).empty()) {
      return failed(clipName() + " has no sound track; reversing needs one, unless --video-only is given");
    }
    return {};
  }

  Outcome edit(Workbench& bench) override {
    if (const auto known = knownName()) {
      if (const Outcome allowed = bench.checkName(*known); !allowed) return allowed;
    }
    bench.enterStage(picturesEnd, operationEnd);
    const auto made = reverse(bench);
    if (!made) return failure(made.error());
    bench.enterStage(operationEnd, 1);
    const auto finished = bench.withMetadataOf(file_, *made, knownName().value_or(made->lastPathComponent()));
    return finished ? bench.deliver(*finished) : failure(finished.error());
  }

 private:
  std::string clipName() const { return std::filesystem::path(file_).filename().string(); }

  /// The result's name, where it is known beforehand.
  std::optional<std::string> knownName() const {
    switch (parts_) {
      case Parts::picturesOnly:
        return name_.value_or("reversed_video") + ".mov";
      case Parts::soundOnly:
        return name_.value_or("reversed_audio") + ".m4a";
      case Parts::both:
        break;
    }
    return name_ ? std::optional(*name_ + ".mp4") : std::nullopt;
  }

  Result<URL, Failure> reverse(Workbench& bench) const {
    const auto converter = VideoReverseConverter::make(URL(file_));
    const auto relay = std::make_shared<ProgressRelay>(bench);
    converter->setDelegate(relay);
    converter->setKeepsDataRate(false);
    Awaited<Result<URL, VideoReverseConverter::ConversionError>> reversed;
    switch (parts_) {
      case Parts::picturesOnly:
        converter->reverseVideoOnly(reversed.closure());
        break;
      case Parts::soundOnly:
        converter->reverseAudioOnly(reversed.closure());
        break;
      case Parts::both:
        converter->reverse(name_, reversed.closure());
        break;
    }
    auto made = bench.wait(reversed, clipName() + " could not be reversed", [this] { return whyNoPictures(); });
    relay->end();
    return made;
  }

  /// The operation says no more than that it failed. Pictures are needed from the last one on, so that one tells.
  std::string whyNoPictures() const {
    if (parts_ == Parts::soundOnly) return "";
    const auto asset = AVAsset::make(URL(file_));
    const auto last = AVAssetImageGenerator::make(asset)->copyCGImage(asset->duration());
    return last ? "" : last.error().localizedDescription();
  }

  std::string file_;
  std::optional<std::string> name_;
  bool videoOnly_ = false;
  bool audioOnly_ = false;
  Parts parts_ = Parts::both;
};

const RegisteredCommand<ReverseCommand> registration;

}  // namespace
}  // namespace clipworks::app
