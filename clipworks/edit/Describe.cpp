#include <clipworks/edit/Describe.h>

#include <nlohmann/json.hpp>

#include <clipworks/edit/Json.h>
#include <clipworks/media/asset/AVAsset.h>

namespace clipworks {
namespace {

using nlohmann::ordered_json;

ordered_json jsonOf(const PictureFormat& format) {
  return {{"bitDepth", format.bitDepth},
          {"dynamicRange", nameOf(format.dynamicRange)},
          {"dolbyVisionProfile", format.dolbyVisionProfile},
          {"primaries", format.primaries},
          {"transfer", format.transfer},
          {"matrix", format.matrix},
          {"fullRange", format.isFullRange},
          {"interlaced", format.isInterlaced},
          {"constantRate", format.hasConstantRate},
          {"longestGroup", format.longestGroup},
          {"missing", format.missingPictures}};
}

ordered_json jsonOf(const AVAssetTrack& track) {
  const CGAffineTransform t = track.preferredTransform();
  auto segments = ordered_json::array();
  for (const auto& segment : track.segments()) {
    segments.push_back(
        {{"source", jsonOf(segment.source)}, {"target", jsonOf(segment.target)}, {"empty", segment.isEmpty()}});
  }
  auto formats = ordered_json::array();
  for (const CGSize& size : track.formatSizes()) formats.push_back({{"width", size.width}, {"height", size.height}});
  ordered_json object{{"type", track.mediaType() == AVMediaType::video ? "video" : "audio"},
                      {"codec", track.codecName()},
                      {"width", track.naturalSize().width},
                      {"height", track.naturalSize().height},
                      {"transform", ordered_json::array({t.a, t.b, t.c, t.d, t.tx, t.ty})},
                      {"frameRate", track.nominalFrameRate()},
                      {"dataRate", track.estimatedDataRate()},
                      {"duration", jsonOf(track.timeRange().duration)},
                      {"formats", formats},
                      {"channels", track.channelCount()},
                      {"sampleRate", track.sampleRate()},
                      {"segments", segments}};
  if (const auto format = track.pictureFormat()) object["pictures"] = jsonOf(*format);
  return object;
}

}  // namespace

std::string describe(const std::filesystem::path& file, const InputLimits& limits) {
  const auto asset = AVAsset::make(URL(file), limits);
  auto tracks = ordered_json::array();
  for (const auto& track : asset->tracks()) tracks.push_back(jsonOf(*track));
  auto metadata = ordered_json::object();
  for (const auto& [key, value] : asset->metadata()) metadata[key] = value;
  ordered_json object{
      {"path", file.string()}, {"duration", jsonOf(asset->duration())}, {"tracks", tracks}, {"metadata", metadata}};
  auto others = ordered_json::array();
  for (const auto& other : asset->otherTracks()) {
    others.push_back({{"kind", other.kind}, {"codec", other.codec}, {"name", other.name}, {"data", other.isData}});
  }
  object["otherTracks"] = others;
  if (const std::string error = asset->loadError(); !error.empty()) object["error"] = error;
  return jsonText(object);
}

}  // namespace clipworks
