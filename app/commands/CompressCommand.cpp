#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/Limits.h>
#include <app/StepCommand.h>
#include <clipworks/edit/Steps.h>
#include <clipworks/foundation/VideoCompressorPreset.h>

namespace clipworks::app {
namespace {

// More than any encoder takes.
constexpr std::int64_t mostKilobits = 1'000'000;
constexpr double previewSeconds = 5;

/// By the names of --preset, from the smallest on.
const std::vector<std::pair<std::string_view, std::shared_ptr<const VideoCompressorPreset>>>& presets() {
  static const std::vector<std::pair<std::string_view, std::shared_ptr<const VideoCompressorPreset>>> all{
      {"144p", std::make_shared<Quality144p>()}, {"360p", std::make_shared<Quality360p>()},
      {"480p", std::make_shared<Quality480p>()}, {"540p", std::make_shared<Quality540p>()},
      {"720p", std::make_shared<QualityHD>()},   {"1080p", std::make_shared<QualityFullHD>()}};
  return all;
}

std::string presetNames(std::string_view separator) {
  std::string names;
  for (const auto& [name, preset] : presets())
    names += (names.empty() ? "" : std::string(separator)) + std::string(name);
  return names;
}

class CompressCommand : public StepCommand {
 public:
  std::string name() const override { return "compress"; }
  std::string participle() const override { return "compressed"; }
  std::string purpose() const override { return "Encode clips anew, smaller, each in a new MP4 file"; }
  std::string notes() const override {
    return "Pictures become H.264 (HEVC with --codec hevc) of the preset's height, sound AAC; pictures smaller than the\n"
           "preset are enlarged. Clips that cannot be compressed are named, the others are written, and the exit code\n"
           "is 1.\n\n"
           "Examples: clipworks --outputs small compress a.mp4 b.mov --preset 480p\n"
           "          clipworks compress clip.mp4 --max-size 25MB    in two encodes at most, never over";
  }

  Outcome check() override {
    if (sizeText_) {
      if (bitRateText_) return wrongUse("--max-size chooses the bit rate itself; it goes without --bitrate");
      mostBytes_ = bytesIn(*sizeText_);
      if (!mostBytes_)
        return wrongUse("--max-size takes a size such as 25MB, 800kB or 10MiB, not \"" + *sizeText_ + "\"");
    } else if (presetName_.empty()) {
      return wrongUse("--preset or --max-size is needed");
    }
    if (presetName_.empty()) return {};
    for (const auto& [name, preset] : presets()) {
      if (name == presetName_) preset_ = preset;
    }
    if (preset_ == nullptr) return wrongUse("--preset takes " + presetNames(", ") + ", not \"" + presetName_ + "\"");
    kilobits_ = preset_->bitRate();
    if (!bitRateText_) return {};
    const std::string& text = *bitRateText_;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), kilobits_);
    if (error == std::errc() && end == text.data() + text.size() && kilobits_ >= 0 && kilobits_ <= mostKilobits)
      return {};
    return wrongUse(fmt::format("--bitrate takes a whole number from 0 to {}, not \"{}\"", mostKilobits, text));
  }

  Result<Edit, Error> apply(const Edit& edit) const override {
    if (mostBytes_)
      return compressedTo(edit, *mostBytes_, preset_ == nullptr ? 0 : static_cast<int>(preset_->height()));
    return compressed(edit, static_cast<int>(preset_->height()), kilobits_ * 1000);
  }

  bool tellsSizes() const override { return true; }

 protected:
  Files takesFiles() const override { return Files::each; }
  void addOptions(CLI::App& parser) override {
    parser.add_option("--preset", presetName_, "The height of the pictures, which also sets their bit rate")
        ->type_name(presetNames("|"));
    parser
        .add_option(
            "--max-size", sizeText_,
            "What the file must not pass: bytes, kB, MB, GB, KiB, MiB, GiB;\nwithout --preset the height is chosen by it, too")
        ->type_name("SIZE");
    parser
        .add_option("--bitrate", bitRateText_,
                    "Of the pictures, in kilobits a second, in place of the preset's;\n0 is constant quality")
        ->type_name("KBPS");
  }

 private:
  std::string presetName_;
  std::optional<std::string> bitRateText_;
  std::optional<std::string> sizeText_;
  std::optional<std::int64_t> mostBytes_;
  std::shared_ptr<const VideoCompressorPreset> preset_;
  std::int64_t kilobits_ = 0;
};

class PreviewCommand final : public CompressCommand {
 public:
  std::string name() const override { return "preview"; }
  std::string participle() const override { return "preview"; }
  std::string purpose() const override { return "Compress the first five seconds of a clip, to judge a preset"; }
  std::string notes() const override {
    return "Does with the first five seconds, or all of a shorter clip, what \"compress\" does with the whole.\n\n"
           "Example: clipworks preview clip.mp4 --preset 480p";
  }

  Result<Edit, Error> apply(const Edit& edit) const override {
    const auto start = trimmed(edit, CMTimeRange(kCMTimeZero, exactSeconds(previewSeconds)));
    return start ? CompressCommand::apply(*start) : start;
  }

  bool tellsSizes() const override { return false; }

 protected:
  Files takesFiles() const override { return Files::one; }
};

const RegisteredCommand<CompressCommand> compressing;
const RegisteredCommand<PreviewCommand> previewing;

}  // namespace
}  // namespace clipworks::app
