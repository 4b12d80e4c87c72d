#include <clipworks/engine/stills/RecordingFacts.h>

#include <charconv>
#include <chrono>
#include <cmath>
#include <initializer_list>
#include <regex>
#include <string_view>

namespace clipworks::engine {
namespace {

/// The value of `key`, or of a key that ends with a dot and `key`; the longer ones first. Empty when there is none.
std::string valueOf(const std::map<std::string, std::string>& metadata, const std::string& key) {
  for (const auto& [name, value] : metadata) {
    if (name.ends_with("." + key) && !value.empty()) return value;
  }
  const auto plain = metadata.find(key);
  return plain != metadata.end() ? plain->second : std::string();
}

/// EXIF's texts end at the first zero and are ASCII by the letter, UTF-8 by custom.
std::string firstValueOf(const std::map<std::string, std::string>& metadata, std::initializer_list<const char*> keys) {
  for (const char* key : keys) {
    const std::string value = valueOf(metadata, key);
    if (!value.empty()) return value;
  }
  return {};
}

int number(const std::string& digits) {
  int value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return value;
}

/// Degrees from an ISO 6709 number whose degrees have `degreeDigits` digits; what follows are minutes and seconds.
std::optional<double> degrees(const std::string& text, std::size_t degreeDigits, double most) {
  const std::string whole = text.substr(1, text.find('.') - 1);
  double value = 0;
  std::from_chars(text.data() + 1, text.data() + text.size(), value);
  if (whole.size() == degreeDigits + 2) {
    const double wholeDegrees = std::floor(value / 100);
    value = wholeDegrees + (value - wholeDegrees * 100) / 60;
  } else if (whole.size() == degreeDigits + 4) {
    const double wholeDegrees = std::floor(value / 10000);
    const double wholeMinutes = std::floor((value - wholeDegrees * 10000) / 100);
    value = wholeDegrees + wholeMinutes / 60 + (value - wholeDegrees * 10000 - wholeMinutes * 100) / 3600;
  } else if (whole.size() != degreeDigits) {
    return std::nullopt;
  }
  if (value > most) return std::nullopt;
  return text.front() == '-' ? -value : value;
}

}  // namespace

bool RecordingFacts::isEmpty() const { return !time && !place && make.empty() && model.empty() && software.empty(); }

std::optional<RecordingTime> parseRecordingTime(const std::string& text) {
  static const std::regex& form =
      *new std::regex(R"((\d{4})-(\d{2})-(\d{2})[T ](\d{2}):(\d{2}):(\d{2})(?:[.,]\d+)?(Z|[+-]\d{2}:?\d{2}|))");
  std::smatch parts;
  if (text.size() > 64 || !std::regex_match(text, parts, form)) return std::nullopt;
  RecordingTime time{number(parts[1]), number(parts[2]), number(parts[3]), number(parts[4]),
                     number(parts[5]), number(parts[6]), std::nullopt};
  const std::chrono::year_month_day date{std::chrono::year(time.year),
                                         std::chrono::month(static_cast<unsigned>(time.month)),
                                         std::chrono::day(static_cast<unsigned>(time.day))};
  if (!date.ok() || time.hour > 23 || time.minute > 59 || time.second > 60) return std::nullopt;
  const std::string zone = parts[7];
  if (zone == "Z") {
    time.offsetMinutes = 0;
  } else if (!zone.empty()) {
    const int minutes = number(zone.substr(1, 2)) * 60 + number(zone.substr(zone.size() - 2));
    if (minutes > 14 * 60) return std::nullopt;
    time.offsetMinutes = zone.front() == '-' ? -minutes : minutes;
  }
  return time;
}

std::optional<RecordingPlace> parseRecordingPlace(const std::string& text) {
  static const std::regex& form =
      *new std::regex(R"(([+-]\d+(?:\.\d+)?)([+-]\d+(?:\.\d+)?)([+-]\d+(?:\.\d+)?)?(?:CRS[^/]*)?/?)");
  std::smatch parts;
  if (text.size() > 128 || !std::regex_match(text, parts, form)) return std::nullopt;
  const auto latitude = degrees(parts[1], 2, 90);
  const auto longitude = degrees(parts[2], 3, 180);
  if (!latitude || !longitude) return std::nullopt;
  RecordingPlace place{*latitude, *longitude, std::nullopt};
  if (parts[3].matched) {
    const std::string altitude = parts[3];
    double metres = 0;
    std::from_chars(altitude.data() + 1, altitude.data() + altitude.size(), metres);
    // Beyond this no recording is made; it also fits EXIF's fractions.
    if (metres < 100'000) place.altitude = altitude.front() == '-' ? -metres : metres;
  }
  return place;
}

RecordingFacts recordingFacts(const std::map<std::string, std::string>& metadata) {
  RecordingFacts facts;
  for (const char* key : {"creationdate", "date", "creation_time"}) {
    auto time = parseRecordingTime(valueOf(metadata, key));
    if (!time || time->year == 1904 || (time->year == 1970 && time->month == 1 && time->day == 1)) continue;
    facts.time = time;
    break;
  }
  for (const char* key : {"ISO6709", "location"}) {
    auto place = parseRecordingPlace(valueOf(metadata, key));
    if (!place || (place->latitude == 0 && place->longitude == 0)) continue;
    facts.place = place;
    break;
  }
  facts.make = firstValueOf(metadata, {"make", "manufacturer"});
  facts.model = firstValueOf(metadata, {"model"});
  facts.software = firstValueOf(metadata, {"software"});
  return facts;
}

}  // namespace clipworks::engine
