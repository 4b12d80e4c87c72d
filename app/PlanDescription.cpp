#include <app/PlanDescription.h>

#include <nlohmann/json.hpp>

#include <app/JsonText.h>

namespace clipworks::app {
namespace {

using nlohmann::ordered_json;

ordered_json timeOf(const CMTime& time) {
  return {{"value", time.value}, {"timescale", time.timescale}, {"seconds", time.seconds()}};
}

ordered_json rangeOf(const CMTimeRange& range) {
  return {{"start", timeOf(range.start)}, {"duration", timeOf(range.duration)}};
}

ordered_json stretchOf(const PlannedStretch& stretch) {
  ordered_json object{{"target", rangeOf(stretch.target)}};
  switch (stretch.kind) {
    case PlannedStretch::Kind::black:
      object["shows"] = "nothing";
      break;
    case PlannedStretch::Kind::held:
      object["shows"] = "what came before";
      break;
    case PlannedStretch::Kind::media:
      object["file"] = stretch.file;
      object["source"] = rangeOf(stretch.source);
      object["backwards"] = stretch.backwards;
      break;
  }
  return object;
}

ordered_json trackOf(const PlannedTrack& track) {
  ordered_json object;
  if (track.kind == PlannedTrack::Kind::pictures) {
    object = {{"kind", "pictures"}, {"width", track.width}, {"height", track.height}, {"pictures", track.pictures}};
  } else {
    object = {{"kind", "sound"}, {"sampleRate", track.sampleRate}, {"channels", track.channels}};
  }
  object["copied"] = track.isCopied;
  if (!track.isCopied) {
    object["encoder"] = track.encoder;
    object["bitRate"] = track.bitRate;
  }
  if (!track.remark.empty()) object["remark"] = track.remark;
  object["stretches"] = ordered_json::array();
  for (const auto& list : track.stretches) {
    auto stretches = ordered_json::array();
    for (const auto& stretch : list) stretches.push_back(stretchOf(stretch));
    object["stretches"].push_back(std::move(stretches));
  }
  return object;
}

}  // namespace

ordered_json describedForPrograms(const Plan& plan) {
  ordered_json object{{"length", timeOf(plan.length)}};
  if (plan.bytes) object["bytes"] = *plan.bytes;
  object["memory"] = plan.memory;
  object["tracks"] = ordered_json::array();
  for (const auto& track : plan.tracks) object["tracks"].push_back(trackOf(track));
  object["leftOut"] = ordered_json::array();
  for (const auto& loss : plan.leftOut) object["leftOut"].push_back({{"what", loss.what}, {"why", loss.why}});
  object["remarks"] = plan.remarks;
  return object;
}

std::string jsonTextOf(const Plan& plan) { return jsonText(describedForPrograms(plan)); }

}  // namespace clipworks::app
