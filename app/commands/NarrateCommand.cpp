#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/EditingCommand.h>
#include <app/ParseNumber.h>
#include <app/PieceArgument.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/narration/VideoNarrationUtils.h>

namespace clipworks::app {
namespace {

// Finer than a sample of sound.
constexpr std::int32_t startTimescale = 1'000'000;

class NarrateCommand final : public EditingCommand {
 public:
  std::string name() const override { return "narrate"; }
  std::string purpose() const override { return "Lay recordings over a clip's own sound, in one new MP4 file"; }
  std::string notes() const override {
    return "The clip needs pictures and sound. A piece is any audio file, or the sound of a video; it plays from\n"
           "second S of the clip on, at VOLUME (1 leaves its level as it is). Pieces may overlap. \"record\" makes "
           "them.\n\n"
           "Example: clipworks narrate clip.mp4 --piece hello.m4a@2 --piece music.mp3@0:0.3 --base-volume 0.5\n"
           "\"clipworks --help\" tells the options that hold for every command, and the exit codes.";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("FILE", file_, "The clip")->type_name("")->required();
    parser
        .add_option("--piece", pieceTexts_,
                    "A recording, the second at which it starts, and how\nloud it is; as often as needed")
        ->type_name("AUDIO@S[:VOLUME]")
        ->allow_extra_args(false)
        ->required();
    parser.add_option("--base-volume", baseVolumeText_, "How loud the clip's own sound is; 1 when not given")
        ->type_name("V");
    parser
        .add_option(
            "--quality", qualityText_,
            "low (small pictures), highCompressed, the default,\nor highLossless (the clip's own coded pictures)")
        ->type_name("low|highCompressed|highLossless")
        ->check([](const std::string& text) {
          return exportQuality(text) ? "" : "takes low, highCompressed or highLossless, not \"" + text + "\"";
        });
  }

 protected:
  std::vector<std::filesystem::path> inputs() const override {
    std::vector<std::filesystem::path> files{file_};
    for (const auto& piece : pieces_) files.push_back(piece.audio);
    return files;
  }

  Outcome check() override {
    if (const Outcome parsed = parseNumbers(); !parsed) return parsed;
    const auto asset = AVAsset::make(URL(file_));
    if (asset->tracks().empty()) return failed(asset->loadError());
    if (asset->tracks(AVMediaTypeVideo).empty()) return failed(clipName() + " has no video track; narration needs one");
    if (asset->tracks(AVMediaTypeAudio).empty()) return failed(clipName() + " has no sound track; narration needs one");
    const double seconds = asset->duration().seconds();
    if (!(seconds > 0)) return failed(clipName() + " has no length");
    for (const auto& piece : pieces_) {
      if (const Outcome checked = checkPiece(piece, seconds); !checked) return checked;
    }
    return {};
  }

  Outcome edit(Workbench& bench) override {
    std::vector<NarrationPiece> narrations;
    for (const auto& piece : pieces_) {
      narrations.push_back({CMTime(piece.seconds, startTimescale), URL(piece.audio), static_cast<float>(piece.volume)});
    }
    const std::string what = clipName() + " could not be narrated";
    const auto narration = VideoNarrationUtils::make();
    bool isComposed = false;
    narration->createComposition(URL(file_), narrations, static_cast<float>(baseVolume_),
                                 [&isComposed](const auto& result) { isComposed = result.has_value(); });
    if (!isComposed) return failed(what + ": it has changed and lacks pictures or sound now");
    Awaited<Result<URL, NarrationError>> exported;
    narration->exportComposition(*exportQuality(qualityText_), exported.closure());
    const auto made = bench.wait(exported, what);
    return made ? bench.deliver(*made) : failure(made.error());
  }

 private:
  std::string clipName() const { return std::filesystem::path(file_).filename().string(); }

  static bool isVolume(double volume) {
    return volume >= 0 && volume <= static_cast<double>(AVMutableAudioMixInputParameters::greatestVolume);
  }
  static std::string volumeRange() {
    return fmt::format("from 0 to {}", AVMutableAudioMixInputParameters::greatestVolume);
  }

  Outcome parseNumbers() {
    for (const auto& text : pieceTexts_) {
      const auto piece = PieceArgument::parse(text);
      if (!piece) return wrongUse("--piece takes AUDIO@S or AUDIO@S:VOLUME, not \"" + text + "\"");
      if (piece->seconds < 0) return wrongUse("--piece " + text + " would start before the clip");
      if (!isVolume(piece->volume)) return wrongUse("--piece " + text + " needs a volume " + volumeRange());
      pieces_.push_back(*piece);
    }
    const auto volume = parseNumber(baseVolumeText_);
    if (!volume || !isVolume(*volume)) return wrongUse("--base-volume takes a number " + volumeRange());
    baseVolume_ = *volume;
    return {};
  }

  Outcome checkPiece(const PieceArgument& piece, double clipSeconds) const {
    const auto asset = AVAsset::make(URL(piece.audio));
    if (asset->tracks().empty()) return failed(asset->loadError());
    const std::string name = piece.audio.filename().string();
    if (asset->tracks(AVMediaTypeAudio).empty()) return failed(name + " has no sound track; a piece needs one");
    if (piece.seconds < clipSeconds) return {};
    return wrongUse(fmt::format("{} ends at {:.3f} seconds, so {} cannot start at {}", clipName(), clipSeconds, name,
                                piece.seconds));
  }

  std::string file_;
  std::vector<std::string> pieceTexts_;
  std::vector<PieceArgument> pieces_;
  std::string baseVolumeText_ = "1";
  double baseVolume_ = 1;
  std::string qualityText_{rawValue(ExportQuality::highCompressed)};
};

const RegisteredCommand<NarrateCommand> registration;

}  // namespace
}  // namespace clipworks::app
