#pragma once

#include <cstdint>
#include <string>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// A target size and bit rate for compression, with labels for a quality picker. Immutable.
class CLIPWORKS_API VideoCompressorPreset {
 public:
  virtual ~VideoCompressorPreset() = default;

  /// Label for display.
  [[nodiscard]] virtual std::string name() const = 0;
  /// Label for display: roughly how much a minute takes.
  [[nodiscard]] virtual std::string estimatedSize() const = 0;
  /// Target height of the pictures, in pixels.
  [[nodiscard]] virtual std::int64_t height() const = 0;
  /// Nominal width, in pixels; the compressor derives its own from the source's shape.
  [[nodiscard]] virtual std::int64_t width() const = 0;
  /// Average bit rate of the pictures, in kilobits a second.
  [[nodiscard]] virtual std::int64_t bitRate() const = 0;
  /// A ratio for hosts to show; no operation reads it.
  [[nodiscard]] virtual double conversionRate() const = 0;
};

/// What a preset of any kind says, copied when this is made. A value.
class CLIPWORKS_API CopiedPreset final : public VideoCompressorPreset {
 public:
  /// Asks `preset` for everything, once.
  explicit CopiedPreset(const VideoCompressorPreset& preset)
      : name_(preset.name()),
        estimatedSize_(preset.estimatedSize()),
        height_(preset.height()),
        width_(preset.width()),
        bitRate_(preset.bitRate()),
        conversionRate_(preset.conversionRate()) {}

  [[nodiscard]] std::string name() const override { return name_; }
  [[nodiscard]] std::string estimatedSize() const override { return estimatedSize_; }
  [[nodiscard]] std::int64_t height() const override { return height_; }
  [[nodiscard]] std::int64_t width() const override { return width_; }
  [[nodiscard]] std::int64_t bitRate() const override { return bitRate_; }
  [[nodiscard]] double conversionRate() const override { return conversionRate_; }

 private:
  std::string name_;
  std::string estimatedSize_;
  std::int64_t height_;
  std::int64_t width_;
  std::int64_t bitRate_;
  double conversionRate_;
};

/// A preset with fixed values, made without arguments.
template <class Values>
class FixedPreset final : public VideoCompressorPreset {
 public:
  [[nodiscard]] std::string name() const override { return Values::name; }
  [[nodiscard]] std::string estimatedSize() const override { return Values::estimatedSize; }
  [[nodiscard]] std::int64_t height() const override { return Values::height; }
  [[nodiscard]] std::int64_t width() const override { return Values::width; }
  [[nodiscard]] std::int64_t bitRate() const override { return Values::bitRate; }
  [[nodiscard]] double conversionRate() const override { return Values::conversionRate; }
};

/// The values behind the presets below. Kept as they are, irregularities included: hosts show and rely on them.
namespace presets {

/// 144 lines.
struct Values144p {
  static constexpr const char* name = "144p";
  static constexpr const char* estimatedSize = "~ 1.1 MB/min";
  static constexpr std::int64_t height = 144, width = 256, bitRate = 100;
  static constexpr double conversionRate = 0.2901;
};
/// 360 lines; the width is that of a 4:3 picture.
struct Values360p {
  static constexpr const char* name = "360p";
  static constexpr const char* estimatedSize = "~ 3.6 MB/min";
  static constexpr std::int64_t height = 360, width = 480, bitRate = 500;
  static constexpr double conversionRate = 0.1611;
};
/// 480 lines.
struct Values480p {
  static constexpr const char* name = "480p";
  static constexpr const char* estimatedSize = "~ 7.2 MB/min";
  static constexpr std::int64_t height = 480, width = 640, bitRate = 1000;
  static constexpr double conversionRate = 0.1438;
};
/// 540 lines.
struct Values540p {
  static constexpr const char* name = "540p";
  static constexpr const char* estimatedSize = "~ 10.7 MB/min";
  static constexpr std::int64_t height = 540, width = 960, bitRate = 1500;
  static constexpr double conversionRate = 0.1446;
};
/// 720 lines.
struct ValuesHD {
  static constexpr const char* name = "HD (720p)";
  static constexpr const char* estimatedSize = "~ 17.9 MB/min";
  static constexpr std::int64_t height = 720, width = 1280, bitRate = 2500;
  static constexpr double conversionRate = 0.1344;
};
/// 1080 lines.
struct ValuesFullHD {
  static constexpr const char* name = "Full HD (1080p)";
  static constexpr const char* estimatedSize = "~ 28.6 MB/min";
  static constexpr std::int64_t height = 1080, width = 1920, bitRate = 4000;
  static constexpr double conversionRate = 0.1368;
};

}  // namespace presets

/// 144 lines, 100 kb/s.
using Quality144p = FixedPreset<presets::Values144p>;
/// 360 lines, 500 kb/s.
using Quality360p = FixedPreset<presets::Values360p>;
/// 480 lines, 1,000 kb/s.
using Quality480p = FixedPreset<presets::Values480p>;
/// 540 lines, 1,500 kb/s.
using Quality540p = FixedPreset<presets::Values540p>;
/// 720 lines, 2,500 kb/s.
using QualityHD = FixedPreset<presets::ValuesHD>;
/// 1,080 lines, 4,000 kb/s.
using QualityFullHD = FixedPreset<presets::ValuesFullHD>;

}  // namespace clipworks
