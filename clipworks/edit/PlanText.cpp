#include <algorithm>
#include <cmath>

#include <nlohmann/json.hpp>

#include <clipworks/edit/Json.h>
#include <clipworks/edit/Plan.h>
#include <clipworks/edit/Sentences.h>

namespace clipworks {
namespace {

using nlohmann::ordered_json;

// For people.

std::string textOf(const PlannedStretch& stretch, bool isPictures) {
  std::string text = "    " + shownSeconds(stretch.target.start) + " to " + shownSeconds(stretch.target.end()) + " s: ";
  switch (stretch.kind) {
    case PlannedStretch::Kind::black:
      return text + (isPictures ? "black" : "silence");
    case PlannedStretch::Kind::held:
      return text + (isPictures ? "the picture before stays" : "silence");
    case PlannedStretch::Kind::media:
      break;
  }
  text +=
      stretch.file + " from " + shownSeconds(stretch.source.start) + " to " + shownSeconds(stretch.source.end()) + " s";
  if (stretch.source.duration != stretch.target.duration && stretch.source.duration > kCMTimeZero) {
    text +=
        ", " + shortNumber(stretch.target.duration.seconds() / stretch.source.duration.seconds()) + " times as long";
  }
  return text + (stretch.backwards ? ", backwards" : "");
}

std::string textOf(const PlannedTrack& track) {
  if (track.kind == PlannedTrack::Kind::data) {
    return track.holds + " (" + track.format + "), " + std::to_string(track.samples) +
           (track.samples == 1 ? " sample" : " samples") + ", cut as the pictures are\n";
  }
  const bool isPictures = track.kind == PlannedTrack::Kind::pictures;
  std::string text = isPictures ? std::to_string(track.pictures) + " pictures of " + std::to_string(track.width) +
                                      " × " + std::to_string(track.height) + " pixels"
                                : "sound, " + std::to_string(track.sampleRate) + " Hz, " +
                                      std::to_string(track.channels) + (track.channels == 1 ? " channel" : " channels");
  if (track.isCopied) {
    text += ", copied as it is coded";
  } else {
    const bool isMixed = isPictures && track.encodedPictures < track.pictures;
    if (isMixed) text += ", " + std::to_string(track.pictures - track.encodedPictures) + " copied as they are coded";
    text += (isMixed ? ", the others encoded by " : ", encoded by ") + track.encoder +
            (track.bitRate > 0 ? " at " + std::to_string(track.bitRate / 1000) + " kb/s" : " at constant quality");
  }
  text += "\n";
  if (!track.remark.empty()) text += "    " + track.remark + "\n";
  // A loop of many copies is told by its first lines.
  constexpr std::size_t mostLines = 12;
  for (const auto& list : track.stretches) {
    for (std::size_t i = 0; i < std::min(list.size(), mostLines); ++i) text += textOf(list[i], isPictures) + "\n";
    if (list.size() > mostLines) text += "    and " + std::to_string(list.size() - mostLines) + " stretches more\n";
  }
  return text;
}

// For programs.

ordered_json jsonOf(const PlannedStretch& stretch) {
  ordered_json object{{"target", jsonOf(stretch.target)}};
  switch (stretch.kind) {
    case PlannedStretch::Kind::black:
      object["shows"] = "nothing";
      break;
    case PlannedStretch::Kind::held:
      object["shows"] = "what came before";
      break;
    case PlannedStretch::Kind::media:
      object["file"] = stretch.file;
      object["source"] = jsonOf(stretch.source);
      object["backwards"] = stretch.backwards;
      break;
  }
  return object;
}

ordered_json jsonOf(const PlannedTrack& track) {
  ordered_json object;
  switch (track.kind) {
    case PlannedTrack::Kind::pictures:
      object = {{"kind", "pictures"}, {"width", track.width}, {"height", track.height}, {"pictures", track.pictures}};
      break;
    case PlannedTrack::Kind::sound:
      object = {{"kind", "sound"}, {"sampleRate", track.sampleRate}, {"channels", track.channels}};
      break;
    case PlannedTrack::Kind::data:
      object = {{"kind", "data"}, {"holds", track.holds}, {"format", track.format}, {"samples", track.samples}};
      break;
  }
  object["copied"] = track.isCopied;
  if (!track.isCopied) {
    object["encoder"] = track.encoder;
    if (track.kind == PlannedTrack::Kind::pictures) object["encodedPictures"] = track.encodedPictures;
    object["bitRate"] = track.bitRate;
  }
  if (!track.remark.empty()) object["remark"] = track.remark;
  object["stretches"] = ordered_json::array();
  for (const auto& list : track.stretches) {
    auto stretches = ordered_json::array();
    for (const auto& stretch : list) stretches.push_back(jsonOf(stretch));
    object["stretches"].push_back(std::move(stretches));
  }
  return object;
}

}  // namespace

std::string Plan::text() const {
  std::string text = "lasts " + shownSeconds(length) + " s";
  if (bytes) text += ", about " + shortNumber(std::round(static_cast<double>(*bytes) / 1e5) / 10) + " MB";
  text += ", at most " + wholeNumber(std::ceil(static_cast<double>(memory) / (1 << 20))) + " MiB of memory\n";
  for (const auto& track : tracks) text += textOf(track);
  for (const auto& remark : remarks) text += "note: " + remark + "\n";
  for (const auto& loss : leftOut) text += "left out: " + loss.what + " (" + loss.why + ")\n";
  return text;
}

std::string Plan::json() const {
  ordered_json object{{"length", jsonOf(length)}};
  if (bytes) object["bytes"] = *bytes;
  object["memory"] = memory;
  object["tracks"] = ordered_json::array();
  for (const auto& track : tracks) object["tracks"].push_back(jsonOf(track));
  object["leftOut"] = ordered_json::array();
  for (const auto& loss : leftOut) object["leftOut"].push_back({{"what", loss.what}, {"why", loss.why}});
  object["remarks"] = remarks;
  return jsonText(object);
}

}  // namespace clipworks
