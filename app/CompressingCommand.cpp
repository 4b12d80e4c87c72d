#include <app/CompressingCommand.h>

#include <charconv>
#include <cmath>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <clipworks/media/asset/AVAsset.h>

namespace clipworks::app {
namespace {

// More than any encoder takes.
constexpr std::int64_t mostKilobits = 1'000'000;
constexpr double largestSide = 16'384;

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

Result<std::int64_t, Failure> parseKilobits(const std::string& text) {
  const std::string range = fmt::format("--bitrate takes a whole number from 0 to {}, not \"{}\"", mostKilobits, text);
  std::int64_t kilobits = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), kilobits);
  if (error != std::errc() || end != text.data() + text.size()) return wrongUse(range);
  if (kilobits < 0 || kilobits > mostKilobits) return wrongUse(range);
  return kilobits;
}

}  // namespace

void CompressingCommand::addSettings(CLI::App& parser) {
  parser.add_option("--preset", presetName_, "The height of the pictures, which also sets their bit rate")
      ->type_name(presetNames("|"))
      ->required();
  parser
      .add_option("--bitrate", bitRateText_,
                  "Of the pictures, in kilobits a second, in place of the preset's;\n0 is constant quality")
      ->type_name("KBPS");
}

Outcome CompressingCommand::parseSettings() {
  for (const auto& [name, preset] : presets()) {
    if (name == presetName_) preset_ = preset;
  }
  if (preset_ == nullptr) return wrongUse("--preset takes " + presetNames(", ") + ", not \"" + presetName_ + "\"");
  if (!bitRateText_) return {};
  const auto kilobits = parseKilobits(*bitRateText_);
  if (!kilobits) return failure(kilobits.error());
  bitRate_ = *kilobits;
  return {};
}

Outcome CompressingCommand::checkVideo(const std::filesystem::path& file) const {
  if (const Outcome shown = checkPictures(file, "compressing it"); !shown) return shown;
  const auto track = AVAsset::make(URL(file))->tracks(AVMediaTypeVideo).front();
  const CGSize displayed = CGSizeApplyAffineTransform(track->naturalSize(), track->preferredTransform());
  const double width = std::abs(displayed.width / displayed.height) * static_cast<double>(preset_->height());
  if (width >= 1 && width < largestSide + 1) return {};
  return failed(fmt::format("{} shows {:.0f} × {:.0f} pixels, a shape that {} has no width for",
                            file.filename().string(), std::abs(displayed.width), std::abs(displayed.height),
                            presetName_));
}

}  // namespace clipworks::app
