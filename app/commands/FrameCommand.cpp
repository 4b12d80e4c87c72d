#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <system_error>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/EditingCommand.h>
#include <app/OutputName.h>
#include <app/TypedPlace.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/images/AVAssetImageGenerator.h>
#include <clipworks/media/images/PictureTimes.h>
#include <clipworks/stillpress/HEICConverter.h>
#include <clipworks/stillpress/JPGConverter.h>
#include <clipworks/stillpress/PNGConverter.h>
#include <clipworks/tophoto/VideoToPhotoUtils.h>

namespace clipworks::app {
namespace {

using ExportFormat = VideoToPhotoUtils::ExportFormat;

const std::map<std::string, ExportFormat> formats{
    {"jpg", ExportFormat::jpg}, {"png", ExportFormat::png}, {"heic", ExportFormat::heic}};

std::shared_ptr<ImageConverter> converterFor(ExportFormat format) {
  if (format == ExportFormat::jpg) return JPGConverter::make();
  if (format == ExportFormat::png) return PNGConverter::make();
  return HEICConverter::make();
}

class FrameCommand final : public EditingCommand {
 public:
  std::string name() const override { return "frame"; }
  std::string purpose() const override { return "Save one picture of a clip as a JPEG, PNG or HEIC file"; }
  std::string notes() const override {
    return "The picture on screen at that time, upright and at full size; the clip's end stands for its last picture.\n"
           "Pictures are counted from #0, the first. HDR comes as standard range. Date, place and device are kept.\n\n"
           "Examples: clipworks frame clip.mp4 --at 2.5\n"
           "          clipworks frame clip.mp4 --at 00:01:02.500 --format png --name kick-off\n"
           "          clipworks frame clip.mp4 --at=#123      with \"=\": behind a space, # begins a shell's remark\n"
           "\"clipworks --help\" tells the options that hold for every command, and the exit codes.";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("FILE", file_, "The clip")->type_name("")->required();
    parser.add_option("--at", atText_, "When: seconds, HH:MM:SS.mmm, or #N for picture number N")
        ->type_name("T")
        ->required();
    parser.add_option("--format", format_, "Of the new file; default: jpg")
        ->type_name("jpg|png|heic")
        ->check([](const std::string& name) {
          return formats.contains(name) ? "" : "takes jpg, png or heic, not \"" + name + "\"";
        });
    parser.add_option("--name", name_, "The new file's name without its ending; one of its own when not given")
        ->type_name("NAME");
  }

 protected:
  std::vector<std::filesystem::path> inputs() const override { return {file_}; }
  std::vector<std::string> resultNames() const override {
    if (!name_) return {};
    return {*name_ + "." + format_};
  }

  Outcome check() override {
    if (const Outcome named = name_ ? checkOutputName(*name_) : Outcome(); !named) return named;
    const auto place = typedPlace(atText_);
    if (!place) {
      return wrongUse("--at takes seconds (2.5), a clock (00:01:02.500) or a picture's number (#123), not \"" +
                      atText_ + "\"");
    }
    if (const Outcome suitable = checkPictures(file_, "taking a picture"); !suitable) return suitable;
    const auto asset = AVAsset::make(URL(file_));
    if (const auto* number = std::get_if<std::uint64_t>(&*place)) return findPicture(*asset, *number);
    time_ = std::get<CMTime>(*place);
    if (time_ <= asset->duration()) return {};
    return wrongUse(fmt::format("{} lasts {:.3f} seconds; there is no picture at {}", clipName(),
                                asset->duration().seconds(), atText_));
  }

  Outcome edit(Workbench& bench) override {
    const std::string what = fmt::format("no picture of {} could be taken at {}", clipName(), atText_);
    Awaited<Result<URL, VideoToPhotoUtils::ExportError>> exported;
    VideoToPhotoUtils::make(URL(file_))->getFrameAt(time_, name_, formats.at(format_), exported.closure());
    const auto made = bench.wait(exported, what);
    if (!made && made.error().code != ExitCode::failed) return failure(made.error());
    // The operation does not say why it failed, nor that it could not write.
    std::error_code error;
    if (!made || !std::filesystem::exists(made->path(), error)) {
      // Aside, so that the program can still be interrupted.
      Awaited<Result<std::string, NSError>> told;
      DispatchQueue::global(DispatchQoS::userInitiated)
          .async([this, place = made ? std::optional(*made) : std::nullopt, report = told.closure()] {
            report(reason(place));
          });
      const auto why = bench.wait(told, what);
      return why ? failed(what + ": " + *why) : Outcome(failure(why.error()));
    }
    return bench.deliverWhole(*made);
  }

 private:
  std::string clipName() const { return std::filesystem::path(file_).filename().string(); }

  Outcome findPicture(const AVAsset& asset, std::uint64_t number) {
    const auto times = pictureTimes(asset);
    if (!times) return failed(times.error().localizedDescription());
    if (number < times->size()) {
      time_ = (*times)[number];
      return {};
    }
    if (times->empty()) return failed(clipName() + " has no pictures");
    return wrongUse(fmt::format("{} has {} pictures, from #0 to #{}; there is no {}", clipName(), times->size(),
                                times->size() - 1, atText_));
  }

  /// Does the same again, step by step, to see which step fails; `place` is where the operation said that it wrote.
  std::string reason(const std::optional<URL>& place) const {
    const auto generator = AVAssetImageGenerator::make(AVAsset::make(URL(file_)));
    generator->setAppliesPreferredTrackTransform(true);
    generator->setRequestedTimeToleranceBefore(kCMTimeZero);
    generator->setRequestedTimeToleranceAfter(kCMTimeZero);
    const auto image = generator->copyCGImage(time_);
    if (!image) return image.error().localizedDescription();
    const auto converter = converterFor(formats.at(format_));
    converter->setImage(UIImage(*image));
    std::string sentence = "it works when it is tried again";
    converter->convert([&](const Result<Data, ConverterError>& converted) {
      if (!converted) {
        sentence = converted.error().localizedDescription();
      } else if (place) {
        if (const auto written = converted->write(*place); !written) sentence = written.error().localizedDescription();
      }
    });
    return sentence;
  }

  std::string file_;
  std::string atText_;
  std::string format_ = "jpg";
  std::optional<std::string> name_;
  CMTime time_;
};

const RegisteredCommand<FrameCommand> registration;

}  // namespace
}  // namespace clipworks::app
