#include <clipworks/media/base/SettingsDictionary.h>

#include <cmath>

namespace clipworks {

SettingsValue::SettingsValue(SettingsDictionary value)
    : value_(std::make_shared<const SettingsDictionary>(std::move(value))) {}

std::optional<double> SettingsValue::number() const {
  if (const auto* truth = std::get_if<bool>(&value_)) return *truth ? 1.0 : 0.0;
  if (const auto* whole = std::get_if<std::int64_t>(&value_)) return static_cast<double>(*whole);
  if (const auto* real = std::get_if<double>(&value_)) return *real;
  return std::nullopt;
}

std::optional<std::int64_t> SettingsValue::integer() const {
  if (const auto* whole = std::get_if<std::int64_t>(&value_)) return *whole;
  const auto real = number();
  constexpr double end = 9223372036854775808.0;  // 2^63
  if (!real || !(*real >= -end && *real < end)) return std::nullopt;
  return static_cast<std::int64_t>(*real);
}

std::optional<bool> SettingsValue::truth() const {
  const auto real = number();
  if (!real) return std::nullopt;
  return *real != 0;
}

const SettingsDictionary* SettingsValue::dictionary() const {
  const auto* nested = std::get_if<std::shared_ptr<const SettingsDictionary>>(&value_);
  return nested == nullptr ? nullptr : nested->get();
}

const SettingsValue* SettingsDictionary::find(std::string_view key) const {
  const auto entry = entries_.find(key);
  return entry == entries_.end() ? nullptr : &entry->second;
}

std::optional<double> SettingsDictionary::number(std::string_view key) const {
  const auto* value = find(key);
  return value == nullptr ? std::nullopt : value->number();
}

std::optional<std::int64_t> SettingsDictionary::integer(std::string_view key) const {
  const auto* value = find(key);
  return value == nullptr ? std::nullopt : value->integer();
}

std::optional<std::string> SettingsDictionary::text(std::string_view key) const {
  const auto* value = find(key);
  if (value == nullptr || value->text() == nullptr) return std::nullopt;
  return *value->text();
}

}  // namespace clipworks
