#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <clipworks/media/base/Export.h>

namespace clipworks {

class SettingsDictionary;

/// A value of a settings dictionary: a truth value, an integer, a floating-point number, a text, some bytes or another
/// dictionary. Immutable, cheap to copy.
class CLIPWORKS_API SettingsValue {
 public:
  /// Bytes of any meaning, such as a channel layout.
  using Data = std::vector<std::byte>;

  // Conversions, so that dictionaries can be written down as lists of keys and values.
  // NOLINTBEGIN(google-explicit-constructor)

  /// A truth value.
  SettingsValue(bool value) : value_(value) {}
  /// An integer of any size; those beyond 64 bits with sign wrap around.
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool>) SettingsValue(Integer value) : value_(static_cast<std::int64_t>(value)) {}
  /// A floating-point number of either precision.
  template <std::floating_point Number>
  SettingsValue(Number value) : value_(static_cast<double>(value)) {}
  /// A text, in any of three forms.
  SettingsValue(std::string value) : value_(std::move(value)) {}
  SettingsValue(std::string_view value) : value_(std::string(value)) {}
  SettingsValue(const char* value) : value_(std::string(value)) {}
  /// Bytes.
  SettingsValue(Data value) : value_(std::move(value)) {}
  /// A dictionary within a dictionary.
  SettingsValue(SettingsDictionary value);

  // NOLINTEND(google-explicit-constructor)

  /// As a number: a truth value is 0 or 1. Nothing for other kinds.
  [[nodiscard]] std::optional<double> number() const;
  /// As an integer: floating-point numbers are cut towards zero, those that do not fit give nothing.
  [[nodiscard]] std::optional<std::int64_t> integer() const;
  /// Whether a number is not 0. Nothing for other kinds.
  [[nodiscard]] std::optional<bool> truth() const;
  /// Null for other kinds, as the two below.
  [[nodiscard]] const std::string* text() const { return std::get_if<std::string>(&value_); }
  [[nodiscard]] const Data* data() const { return std::get_if<Data>(&value_); }
  [[nodiscard]] const SettingsDictionary* dictionary() const;

 private:
  std::variant<bool, std::int64_t, double, std::string, Data, std::shared_ptr<const SettingsDictionary>> value_;
};

/// Settings by name, as the platform's readers, writers and recorders take them. A value.
class CLIPWORKS_API SettingsDictionary {
 public:
  SettingsDictionary() = default;
  /// Of entries with the same key, the first counts.
  SettingsDictionary(std::initializer_list<std::pair<const std::string, SettingsValue>> entries) : entries_(entries) {}

  /// The value of `key`; null when there is none.
  [[nodiscard]] const SettingsValue* find(std::string_view key) const;
  /// Replaces the value of `key`.
  void set(std::string key, SettingsValue value) { entries_.insert_or_assign(std::move(key), std::move(value)); }
  [[nodiscard]] bool empty() const { return entries_.empty(); }
  /// All entries, by key.
  [[nodiscard]] const std::map<std::string, SettingsValue, std::less<>>& entries() const { return entries_; }

  /// The value of `key` as a number, an integer or a text; nothing when it is missing or of another kind.
  [[nodiscard]] std::optional<double> number(std::string_view key) const;
  [[nodiscard]] std::optional<std::int64_t> integer(std::string_view key) const;
  [[nodiscard]] std::optional<std::string> text(std::string_view key) const;

 private:
  std::map<std::string, SettingsValue, std::less<>> entries_;
};

}  // namespace clipworks
