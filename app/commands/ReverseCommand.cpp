#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include <app/OutputName.h>
#include <app/StepCommand.h>
#include <clipworks/edit/Steps.h>

namespace clipworks::app {
namespace {

class ReverseCommand final : public StepCommand {
 public:
  std::string name() const override { return "reverse"; }
  std::string participle() const override { return "reversed"; }
  std::string purpose() const override { return "Play a clip backwards, pictures and sound, in a new MP4 file"; }
  std::string notes() const override {
    return "The pictures are encoded anew, at constant quality. --video-only makes a .mov without sound, --audio-only an\n"
           ".m4a without pictures, named reversed_video and reversed_audio unless --name says otherwise.\n\n"
           "Example: clipworks --outputs results reverse clip.mp4 --name backwards";
  }

  Outcome check() override { return name_ ? checkOutputName(*name_) : Outcome(); }

  Result<Edit, Error> apply(const Edit& edit) const override {
    const auto lacks = [&](ErrorCode code, const char* track, const char* otherwise) {
      return Error{code,
                   edit.name() + " has no " + track + " track; reversing needs one, unless " + otherwise + " is given"};
    };
    if (!audioOnly_ && !edit.hasPictures()) return failure(lacks(ErrorCode::noPictures, "video", "--audio-only"));
    if (!videoOnly_ && !edit.hasSound()) return failure(lacks(ErrorCode::noSound, "sound", "--video-only"));
    const auto half = videoOnly_ ? picturesOnly(edit) : audioOnly_ ? soundOnly(edit) : edit;
    return half ? reversed(*half) : half;
  }

  /// The last picture comes first, wherever the header ends.
  Edit::Extent extent() const override { return Edit::Extent::tracks; }

  std::optional<std::string> givenName() const override {
    if (!name_ && videoOnly_) return "reversed_video";
    if (!name_ && audioOnly_) return "reversed_audio";
    return name_;
  }
  std::string extension() const override { return videoOnly_ ? ".mov" : audioOnly_ ? ".m4a" : ""; }

 protected:
  void addOptions(CLI::App& parser) override {
    parser.add_option("--name", name_, "The new file's name, without its ending")->type_name("NAME");
    auto* videoOnly = parser.add_flag("--video-only", videoOnly_, "The pictures alone");
    parser.add_flag("--audio-only", audioOnly_, "The sound alone")->excludes(videoOnly);
  }

 private:
  std::optional<std::string> name_;
  bool videoOnly_ = false;
  bool audioOnly_ = false;
};

const RegisteredCommand<ReverseCommand> registration;

}  // namespace
}  // namespace clipworks::app
