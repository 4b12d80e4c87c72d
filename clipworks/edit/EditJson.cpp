#include <algorithm>
#include <array>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Json.h>
#include <clipworks/edit/Sentences.h>
#include <clipworks/engine/FileHandle.h>
#include <clipworks/media/asset/MediaTrack.h>

// An edit as JSON, version 1:
//
//   {"version": 1, "sources": [{"path": "/a.mp4", "size": 1000, "modified": 1700000000000000000}], "length": [600,
//   600],
//    "pictures": [{"source": 0, "track": 0, "from": [0, 600], "lasting": [300, 600], "length": [300, 600]}, …],
//    "sounds": [{"volume": 1, "stretches": […]}], "transform": [1, 0, 0, 1, 0, 0], "canvas": [640, 480],
//    "wanted": {"quality": "highest", "pictureBitRate": 0, "mostBytes": 0}, "leftOut": [["what", "why"]], "remarks":
//    []}
//
// Times are [value, timescale]. `from` and `lasting` are on the media's own clock, `length` is how long that is shown;
// `backwards` and `place`, a map onto the canvas, stand where there is something to say. What shows no media has "gap":
// "empty" or "hold" in place of a source. A source has "mostPixels", "mostSeconds" and "takesAnyCodec" where they are
// not what they are by default.

namespace clipworks {
namespace {

using nlohmann::ordered_json;

constexpr int version = 1;

const std::array<std::pair<Wanted::Quality, const char*>, 4> qualities{
    {{Wanted::Quality::highest, "highest"},
     {Wanted::Quality::small, "small"},
     {Wanted::Quality::codedPictures, "codedPictures"},
     {Wanted::Quality::bitRate, "bitRate"}}};

ordered_json pairOf(const CMTime& time) { return {time.value, time.timescale}; }

ordered_json mapOf(const CGAffineTransform& t) { return {t.a, t.b, t.c, t.d, t.tx, t.ty}; }

/// What a file's content is told by.
ordered_json stateOf(const Source& source) {
  const auto& handle = *source.asset->tracks().front()->media()->file()->handle();
  return {{"size", handle.openedSize()}, {"modified", handle.openedTime()}};
}

void addLimits(ordered_json& file, const InputLimits& limits) {
  const InputLimits usual;
  if (limits.mostPixels != usual.mostPixels) file["mostPixels"] = limits.mostPixels;
  if (limits.mostSeconds != usual.mostSeconds) file["mostSeconds"] = limits.mostSeconds;
  if (limits.takesAnyCodec != usual.takesAnyCodec) file["takesAnyCodec"] = limits.takesAnyCodec;
}

InputLimits limitsIn(const ordered_json& file) {
  const InputLimits usual;
  return {file.value("mostPixels", usual.mostPixels), file.value("mostSeconds", usual.mostSeconds),
          file.value("takesAnyCodec", usual.takesAnyCodec)};
}

class Writer {
 public:
  explicit Writer(const EditState& state) : state_(state) {}

  ordered_json write() const {
    ordered_json object{{"version", version}};
    object["sources"] = ordered_json::array();
    for (const auto& source : state_.sources) {
      ordered_json file{{"path", std::filesystem::absolute(source->path).string()}};
      file.update(stateOf(*source));
      addLimits(file, source->asset->limits());
      object["sources"].push_back(std::move(file));
    }
    object["length"] = pairOf(state_.length);
    if (state_.pictures) object["pictures"] = listOf(*state_.pictures);
    object["sounds"] = ordered_json::array();
    for (const Sound& sound : state_.sounds)
      object["sounds"].push_back({{"volume", sound.volume}, {"stretches", listOf(sound.stretches)}});
    object["transform"] = mapOf(state_.transform);
    if (state_.canvas) object["canvas"] = {state_.canvas->width, state_.canvas->height};
    const auto quality = std::find_if(qualities.begin(), qualities.end(),
                                      [this](const auto& known) { return known.first == state_.wanted.quality; });
    object["wanted"] = {{"quality", quality->second},
                        {"pictureBitRate", state_.wanted.pictureBitRate},
                        {"mostBytes", state_.wanted.mostBytes}};
    object["leftOut"] = ordered_json::array();
    for (const LeftOut& part : state_.leftOut) object["leftOut"].push_back({part.what, part.why});
    object["remarks"] = state_.remarks;
    return object;
  }

 private:
  ordered_json listOf(const Stretches& stretches) const {
    auto list = ordered_json::array();
    for (const MediaSegment& segment : stretches.segments()) list.push_back(stretchOf(segment));
    return list;
  }

  ordered_json stretchOf(const MediaSegment& segment) const {
    ordered_json object;
    if (segment.mediaTrack == nullptr) {
      object["gap"] = segment.gap == SegmentGap::hold ? "hold" : "empty";
    } else {
      const auto [source, track] = placeOf(*segment.mediaTrack);
      object = {{"source", source},
                {"track", track},
                {"from", pairOf(segment.source.start)},
                {"lasting", pairOf(segment.source.duration)}};
      if (segment.backwards) object["backwards"] = true;
      if (segment.place) object["place"] = mapOf(*segment.place);
    }
    object["length"] = pairOf(segment.target.duration);
    return object;
  }

  /// The numbers of a stream's file and of its track there.
  std::pair<std::size_t, std::size_t> placeOf(const MediaTrack& media) const {
    for (std::size_t source = 0; source < state_.sources.size(); ++source) {
      const auto tracks = state_.sources[source]->asset->tracks();
      for (std::size_t track = 0; track < tracks.size(); ++track) {
        const auto& known = *tracks[track]->media();
        if (known.file() == media.file() && known.stream() == media.stream()) return {source, track};
      }
    }
    throw std::logic_error("a stretch of a file that is no source");
  }

  const EditState& state_;
};

/// Throws what the library throws for a wrong form, and `std::invalid_argument` for wrong figures.
class Reader {
 public:
  explicit Reader(ordered_json object) : object_(std::move(object)) {}

  Result<Edit, Error> read() {
    if (object_.at("version").get<int>() != version)
      return failed(ErrorCode::unsupported,
                    "an edit of version " + object_.at("version").dump() + " is not known here");
    if (auto opened = openSources(); !opened) return failure(opened.error());
    state_.length = timeIn(object_.at("length"));
    if (object_.contains("pictures")) state_.pictures = stretchesIn(object_.at("pictures"), AVMediaType::video);
    for (const auto& sound : object_.at("sounds")) {
      const auto volume = sound.at("volume").get<float>();
      require(volume >= 0 && volume <= 1000, "a volume");
      state_.sounds.push_back({stretchesIn(sound.at("stretches"), AVMediaType::audio), volume});
    }
    state_.transform = mapIn(object_.at("transform"));
    if (object_.contains("canvas")) {
      const auto sides = object_.at("canvas").get<std::array<double, 2>>();
      require(sides[0] >= 1 && sides[1] >= 1 && sides[0] <= mostSide && sides[1] <= mostSide, "a canvas");
      state_.canvas = CGSize(sides[0], sides[1]);
    }
    const auto quality = object_.at("wanted").at("quality").get<std::string>();
    const auto known =
        std::find_if(qualities.begin(), qualities.end(), [&quality](const auto& one) { return one.second == quality; });
    require(known != qualities.end(), "a quality");
    state_.wanted = {known->first, object_.at("wanted").at("pictureBitRate").get<std::int64_t>(),
                     object_.at("wanted").at("mostBytes").get<std::int64_t>()};
    for (const auto& part : object_.at("leftOut")) state_.leftOut.push_back({part.at(0), part.at(1)});
    state_.remarks = object_.at("remarks").get<std::vector<std::string>>();
    return edited(std::move(state_));
  }

 private:
  static constexpr double mostSide = 16'384;

  static void require(bool isRight, const std::string& what) {
    if (!isRight) throw std::invalid_argument(what + " is out of its range");
  }

  Result<void, Error> openSources() {
    for (const auto& file : object_.at("sources")) {
      auto source = Source::open(std::filesystem::path(file.at("path").get<std::string>()), limitsIn(file));
      if (!source) return failure(source.error());
      const ordered_json now = stateOf(**source);
      if (now.at("size") != file.at("size") || now.at("modified") != file.at("modified"))
        return failed(ErrorCode::notReadable, (*source)->name() + " has changed since the edit was written");
      state_.sources.push_back(std::move(*source));
    }
    require(!state_.sources.empty(), "the number of sources");
    return {};
  }

  /// From zero to 1000 hours.
  static CMTime timeIn(const ordered_json& pair) {
    const CMTime time(pair.at(0).get<std::int64_t>(), pair.at(1).get<std::int32_t>());
    require(time.isNumeric() && time >= kCMTimeZero && time.seconds() <= mostHours * 3600, "a time");
    return time;
  }

  static CGAffineTransform mapIn(const ordered_json& numbers) {
    const auto n = numbers.get<std::array<double, 6>>();
    return {n[0], n[1], n[2], n[3], n[4], n[5]};
  }

  Stretches stretchesIn(const ordered_json& list, AVMediaType type) const {
    Stretches stretches;
    for (const auto& item : list) {
      MediaSegment segment = segmentIn(item, type);
      const CMTime start = stretches.end();
      const CMTime end = stretches.fit(start + timeIn(item.at("length")));
      require(start < end && end <= state_.length, "a stretch's length");
      segment.target.duration = end - start;
      stretches.insert({std::move(segment)}, start, end - start);
    }
    require(stretches.end() == state_.length, "the sum of the stretches");
    return stretches;
  }

  MediaSegment segmentIn(const ordered_json& item, AVMediaType type) const {
    MediaSegment segment;
    if (item.contains("gap")) {
      segment.gap = item.at("gap") == "hold" ? SegmentGap::hold : SegmentGap::empty;
      return segment;
    }
    const auto& source = *state_.sources.at(item.at("source").get<std::size_t>());
    const auto track = source.asset->tracks().at(item.at("track").get<std::size_t>());
    require(track->mediaType() == type, "a track");
    segment.mediaTrack = track->media();
    segment.source = CMTimeRange(timeIn(item.at("from")), timeIn(item.at("lasting")));
    segment.backwards = item.value("backwards", false);
    if (item.contains("place")) segment.place = mapIn(item.at("place"));
    require(type == AVMediaType::audio || segment.place.has_value() == object_.contains("canvas"), "a place");
    return segment;
  }

  const ordered_json object_;
  EditState state_;
};

}  // namespace

std::string Edit::json() const { return jsonText(Writer(state()).write()); }

Result<Edit, Error> Edit::fromJson(std::string_view text) {
  try {
    return Reader(ordered_json::parse(text)).read();
  } catch (const std::exception& wrong) {
    return failed(ErrorCode::badArgument, std::string("this is no edit: ") + wrong.what());
  }
}

bool operator==(const Edit& a, const Edit& b) { return a.state_ == b.state_ || a.json() == b.json(); }

}  // namespace clipworks
