#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <app/ParseNumber.h>
#include <app/PieceArgument.h>
#include <app/StepCommand.h>
#include <clipworks/edit/Steps.h>

namespace clipworks::app {
namespace {

constexpr double greatestVolume = 1000;

bool isVolume(double volume) { return volume >= 0 && volume <= greatestVolume; }

class NarrateCommand final : public StepCommand {
 public:
  std::string name() const override { return "narrate"; }
  std::string participle() const override { return "narrated"; }
  std::string purpose() const override { return "Lay recordings over a clip's own sound, in one new MP4 file"; }
  std::string notes() const override {
    return "The clip needs pictures and sound. A piece is any audio file, or the sound of a video; it plays from\n"
           "second S of the clip on, at VOLUME (1 leaves its level as it is). Pieces may overlap. \"record\" makes "
           "them.\n\n"
           "Example: clipworks narrate clip.mp4 --piece hello.m4a@2 --piece music.mp3@0:0.3 --base-volume 0.5";
  }

  Needs needs() const override {
    Needs needs = StepCommand::needs();
    for (const auto& text : pieceTexts_) {
      if (const auto piece = PieceArgument::parse(text)) needs.inputs.push_back(piece->audio);
    }
    return needs;
  }

  Outcome check() override {
    for (const auto& text : pieceTexts_) {
      const auto piece = PieceArgument::parse(text);
      if (!piece) return wrongUse("--piece takes AUDIO@S or AUDIO@S:VOLUME, not \"" + text + "\"");
      if (piece->seconds < 0) return wrongUse("--piece " + text + " would start before the clip");
      if (!isVolume(piece->volume)) return wrongUse("--piece " + text + " needs a volume from 0 to 1000");
      pieces_.push_back({piece->audio, exactSeconds(piece->seconds), piece->volume});
    }
    const auto volume = parseNumber(baseVolumeText_);
    if (!volume || !isVolume(*volume)) return wrongUse("--base-volume takes a number from 0 to 1000");
    baseVolume_ = *volume;
    return {};
  }

  Result<Edit, Error> apply(const Edit& edit) const override {
    const auto changed = narrated(edit, pieces_, baseVolume_);
    if (!changed) return changed;
    if (quality_ == "low") return madeSmall(*changed);
    return quality_ == "highLossless" ? keepingCodedPictures(*changed) : *changed;
  }

 protected:
  void addOptions(CLI::App& parser) override {
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
            "--quality", quality_,
            "low (small pictures), highCompressed, the default,\nor highLossless (the clip's own coded pictures)")
        ->type_name("low|highCompressed|highLossless")
        ->check([](const std::string& text) {
          const bool isKnown = text == "low" || text == "highCompressed" || text == "highLossless";
          return isKnown ? "" : "takes low, highCompressed or highLossless, not \"" + text + "\"";
        });
  }

 private:
  std::vector<std::string> pieceTexts_;
  std::vector<NarratedPiece> pieces_;
  std::string baseVolumeText_ = "1";
  double baseVolume_ = 1;
  std::string quality_ = "highCompressed";
};

const RegisteredCommand<NarrateCommand> registration;

}  // namespace
}  // namespace clipworks::app
