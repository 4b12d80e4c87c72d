#pragma once

#include <map>
#include <optional>
#include <string>

namespace clipworks::engine {

/// When a recording was made, by the clock on its device's wall.
struct RecordingTime {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  /// Of that clock against UTC; nothing when the recording does not tell.
  std::optional<int> offsetMinutes;

  friend bool operator==(const RecordingTime&, const RecordingTime&) = default;
};

/// Where a recording was made, on WGS 84.
struct RecordingPlace {
  double latitude = 0;             ///< degrees, north positive
  double longitude = 0;            ///< degrees, east positive
  std::optional<double> altitude;  ///< metres

  friend bool operator==(const RecordingPlace&, const RecordingPlace&) = default;
};

/// What a recording says of its making; whatever it does not say, or says unreadably, is empty.
struct RecordingFacts {
  std::optional<RecordingTime> time;
  std::optional<RecordingPlace> place;
  std::string make;
  std::string model;
  std::string software;

  [[nodiscard]] bool isEmpty() const;
};

/// Reads a container's metadata. A phone writes the same fact under several keys: those with a reverse domain before
/// them ("….creationdate", "….location.ISO6709") are the most precise and come first; `creation_time` is in UTC.
/// A date of a clock that was never set (1904 and 1970) and the place 0°, 0° stand for unknown.
[[nodiscard]] RecordingFacts recordingFacts(const std::map<std::string, std::string>& metadata);

/// ISO 8601, with date and time in full: 2019-07-24T11:25:40+0300, 2012-05-09T18:46:38.000000Z.
[[nodiscard]] std::optional<RecordingTime> parseRecordingTime(const std::string& text);

/// ISO 6709, annex H: degrees (+52.4597+013.3220+051.178/), degrees and minutes (+4043.5-07401.2/) or with seconds.
[[nodiscard]] std::optional<RecordingPlace> parseRecordingPlace(const std::string& text);

}  // namespace clipworks::engine
