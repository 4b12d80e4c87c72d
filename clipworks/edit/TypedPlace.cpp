#include <clipworks/edit/TypedPlace.h>

#include <algorithm>
#include <charconv>
#include <regex>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/TakePicture.h>

namespace clipworks {
namespace {

constexpr std::size_t mostDigits = 9;  // of whole seconds and behind the point: both fit a time of 64 bits

std::uint64_t number(const std::string& digits) {
  std::uint64_t value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return value;
}

CMTime timeOf(std::uint64_t seconds, std::string fraction) {
  fraction.resize(std::min(fraction.size(), mostDigits));
  std::int32_t scale = 1;
  for (std::size_t i = 0; i < fraction.size(); ++i) scale *= 10;
  return CMTime(static_cast<std::int64_t>(seconds * static_cast<std::uint64_t>(scale) + number(fraction)), scale);
}

}  // namespace

std::optional<TypedPlace> typedPlace(const std::string& text) {
  static const auto& picture = *new std::regex(R"(#(\d{1,18}))");  // never destroyed: threads may outlive main()
  static const auto& seconds = *new std::regex(R"((\d{1,9})(?:\.(\d{0,40}))?)");
  static const auto& clock = *new std::regex(R"((?:(\d{1,5}):)?([0-5]?\d):([0-5]?\d)(?:\.(\d{0,40}))?)");
  std::smatch parts;
  if (text.size() > 64) return std::nullopt;
  if (std::regex_match(text, parts, picture)) return number(parts[1]);
  if (std::regex_match(text, parts, seconds)) return timeOf(number(parts[1]), parts[2]);
  if (std::regex_match(text, parts, clock)) {
    return timeOf(number(parts[1]) * 3600 + number(parts[2]) * 60 + number(parts[3]), parts[4]);
  }
  return std::nullopt;
}

Result<CMTime, Error> timeOfPlace(const Edit& edit, const TypedPlace& place) {
  if (const auto* time = std::get_if<CMTime>(&place)) return *time;
  const auto times = pictureTimes(edit);
  if (!times) return failure(times.error());
  const auto picture = std::get<std::uint64_t>(place);
  if (picture < times->size()) return (*times)[picture];
  const std::string count = std::to_string(times->size());
  return failed(ErrorCode::badArgument, edit.name() + " has " + count + " pictures, from #0 to #" +
                                            std::to_string(times->size() - 1) + "; there is no #" +
                                            std::to_string(picture));
}

}  // namespace clipworks
