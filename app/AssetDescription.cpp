#include <app/AssetDescription.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include <fmt/format.h>

#include <app/Printable.h>

namespace clipworks::app {
namespace {

bool isVideo(const AVAssetTrack& track) { return track.mediaType() == AVMediaType::video; }

/// 2.000 s, 1:02.500, 1:00:00.000.
std::string clock(const CMTime& time) {
  if (!time.isNumeric()) return "unknown";
  const auto milliseconds = static_cast<std::int64_t>(std::llround(std::abs(time.seconds()) * 1000));
  const char* sign = time.seconds() < 0 ? "-" : "";
  const std::int64_t seconds = milliseconds / 1000;
  const std::int64_t thousandths = milliseconds % 1000;
  if (seconds < 60) return fmt::format("{}{}.{:03} s", sign, seconds, thousandths);
  if (seconds < 3600) return fmt::format("{}{}:{:02}.{:03}", sign, seconds / 60, seconds % 60, thousandths);
  return fmt::format("{}{}:{:02}:{:02}.{:03}", sign, seconds / 3600, seconds / 60 % 60, seconds % 60, thousandths);
}

/// How a player shows the coded pictures: "upright", "rotated 90°" (clockwise), "mirrored, rotated 180°".
std::string orientation(const CGAffineTransform& t) {
  const bool isMirrored = t.a * t.d - t.b * t.c < 0;
  // Mirrored left to right first, then turned: the first column is negated.
  const double angle = isMirrored ? std::atan2(-t.b, -t.a) : std::atan2(t.b, t.a);
  const int degrees = (static_cast<int>(std::lround(angle * 180 / std::numbers::pi)) + 360) % 360;
  if (degrees == 0) return isMirrored ? "mirrored" : "upright";
  return fmt::format("{}rotated {}°", isMirrored ? "mirrored, " : "", degrees);
}

std::string dataRate(float bitsPerSecond) {
  if (bitsPerSecond <= 0) return "";
  if (bitsPerSecond >= 1e6F) return fmt::format("{:.1f} Mb/s", bitsPerSecond / 1e6F);
  return fmt::format("{:.0f} kb/s", bitsPerSecond / 1e3F);
}

std::string channels(int count) {
  if (count == 1) return "mono";
  return count == 2 ? "stereo" : fmt::format("{} channels", count);
}

/// At most `digits` behind the point, and none that say nothing.
std::string shortNumber(double number, int digits) {
  std::string text = fmt::format("{:.{}f}", number, digits);
  if (text.find('.') != std::string::npos) {
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) text.pop_back();
  }
  return text;
}

/// The cells of one track's line.
std::vector<std::string> cells(const AVAssetTrack& track) {
  const std::string codec = printable(track.codecName());
  if (!isVideo(track)) {
    return {"audio",
            codec,
            channels(track.channelCount()),
            "",
            shortNumber(track.sampleRate(), 0) + " Hz",
            dataRate(track.estimatedDataRate())};
  }
  const CGSize size = track.naturalSize();
  const auto rate = static_cast<double>(track.nominalFrameRate());
  return {"video",
          codec,
          shortNumber(size.width, 2) + " × " + shortNumber(size.height, 2),
          orientation(track.preferredTransform()),
          rate > 0 ? shortNumber(rate, 3) + " fps" : "",
          dataRate(track.estimatedDataRate())};
}

/// What matters of a track's pictures beside the table's cells.
std::string formatLine(const PictureFormat& format) {
  std::string line = fmt::format("    {} bits, {}", format.bitDepth, nameOf(format.dynamicRange));
  if (format.dolbyVisionProfile > 0) line += fmt::format(" (Dolby Vision, profile {})", format.dolbyVisionProfile);
  line += fmt::format(", colours {}/{}/{}, {} range, {} rate", format.primaries, format.transfer, format.matrix,
                      format.isFullRange ? "full" : "limited", format.hasConstantRate ? "constant" : "variable");
  if (format.isInterlaced) line += ", interlaced";
  if (format.missingPictures > 0) {
    line += fmt::format("; {} lie{} beyond the end of the file, which is cut off or has a damaged index",
                        format.missingPictures == 1 ? "1 picture" : fmt::format("{} pictures", format.missingPictures),
                        format.missingPictures == 1 ? "s" : "");
  }
  return line + '\n';
}

std::string otherLine(const OtherTrack& track) {
  std::string line = "  " + track.kind;
  if (!track.codec.empty()) line += "  " + printable(track.codec);
  if (!track.name.empty()) line += fmt::format("  \"{}\"", printable(track.name));
  return line + (track.isData ? "  (cut along by edits)\n" : "  (left out by edits)\n");
}

/// "256 × 128, then 320 × 240".
std::string formatsLine(const std::vector<CGSize>& sizes) {
  std::vector<std::string> texts;
  for (const CGSize& size : sizes) {
    const std::string text = shortNumber(size.width, 0) + " × " + shortNumber(size.height, 0);
    if (texts.empty() || texts.back() != text) texts.push_back(text);
  }
  std::string line = "    format changes on the way: ";
  for (std::size_t i = 0; i < texts.size(); ++i) line += (i > 0 ? ", then " : "") + texts[i];
  return line + '\n';
}

std::string span(const CMTimeRange& range) { return clock(range.start) + " – " + clock(range.end()); }

std::string segmentLine(const AVAssetTrackSegment& segment) {
  switch (segment.gap) {
    case SegmentGap::none:
      return fmt::format("    {}  shows {} of the media\n", span(segment.target), span(segment.source));
    case SegmentGap::empty:
      return fmt::format("    {}  is empty\n", span(segment.target));
    case SegmentGap::hold:
      return fmt::format("    {}  has nothing new\n", span(segment.target));
  }
  return "";
}

/// Characters, of UTF-8 text that has no wide ones.
std::size_t width(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

/// What a container says of itself rather than of the recording.
bool describesContainer(const std::string& key) {
  return key == "major_brand" || key == "minor_version" || key == "compatible_brands" || key == "encoder";
}

std::string trackLines(const AVAsset& asset) {
  const auto tracks = asset.tracks();
  std::vector<std::vector<std::string>> rows;
  std::vector<std::size_t> widths;
  for (const auto& track : tracks) {
    rows.push_back(cells(*track));
    widths.resize(rows.back().size());
    for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], width(rows.back()[i]));
  }
  std::string text;
  for (std::size_t row = 0; row < rows.size(); ++row) {
    std::string line;
    for (std::size_t i = 0; i < widths.size(); ++i) {
      if (widths[i] > 0) line += "  " + rows[row][i] + std::string(widths[i] - width(rows[row][i]), ' ');
    }
    text += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
    if (const auto format = tracks[row]->pictureFormat()) text += formatLine(*format);
    if (const auto sizes = tracks[row]->formatSizes(); !sizes.empty()) text += formatsLine(sizes);
    const auto segments = tracks[row]->segments();
    if (segments.size() < 2) continue;
    for (const auto& segment : segments) text += segmentLine(segment);
  }
  return text;
}

}  // namespace

std::string describedForPeople(const std::filesystem::path& path, const AVAsset& asset) {
  std::string text = fmt::format("{}  {}\n", printable(path.string()), clock(asset.duration()));
  text += trackLines(asset);
  for (const auto& other : asset.otherTracks()) text += otherLine(other);
  for (const auto& [key, value] : asset.metadata()) {
    if (!describesContainer(key)) text += fmt::format("  {}: {}\n", printable(key), printable(value));
  }
  return text;
}

}  // namespace clipworks::app
