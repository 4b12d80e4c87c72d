#include <clipworks/engine/boxes/GaplessTag.h>

#include <algorithm>
#include <charconv>
#include <concepts>
#include <cstdint>
#include <string_view>
#include <system_error>

#include <clipworks/engine/boxes/BoxCursor.h>
#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>

namespace clipworks::engine {
namespace {

/// The text in the first box of `type` within `content`, behind `prefixBytes` of fixed fields; empty without one.
std::string_view textIn(std::span<const std::byte> content, std::uint32_t type, std::size_t prefixBytes) {
  const auto box = findBox(content, {type});
  if (!box || box->size() < prefixBytes) {
    return {};
  }
  const auto text = box->subspan(prefixBytes);
  return {reinterpret_cast<const char*>(text.data()), text.size()};
}

/// Takes the next word, a hexadecimal number, off the front of `text`. Null when it is none, or too large.
template <std::unsigned_integral T>
std::optional<T> takeHexadecimal(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(word.size());
  T value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value, 16);
  if (error != std::errc{} || end != word.data() + word.size()) {
    return std::nullopt;
  }
  return value;
}

/// Words of hexadecimal digits: one reserved, the delay, the padding, the count of samples, and more that is not used.
std::optional<MovieBoxes::GaplessInfo> parseGaplessText(std::string_view text) {
  const auto reserved = takeHexadecimal<std::uint32_t>(text);
  const auto delay = takeHexadecimal<std::uint32_t>(text);
  const auto padding = takeHexadecimal<std::uint32_t>(text);
  const auto samples = takeHexadecimal<std::uint64_t>(text);
  if (!reserved || !delay || !padding || !samples) {
    return std::nullopt;
  }
  return MovieBoxes::GaplessInfo{*delay, *padding, *samples};
}

/// The standard's `meta` begins with version and flags, always 0; QuickTime's with the size of its first box, never 0.
std::span<const std::byte> boxesOfMeta(std::span<const std::byte> meta) {
  BoxCursor cursor(meta);
  const bool hasVersion = cursor.read<std::uint32_t>() == 0;
  return hasVersion ? cursor.rest() : meta;
}

}  // namespace

std::optional<MovieBoxes::GaplessInfo> findGaplessInfo(std::span<const std::byte> meta) {
  constexpr std::size_t versionBytes = 4;  // of `name`
  constexpr std::size_t typeBytes = 8;     // of `data`: the value's type and locale
  const auto list = findBox(boxesOfMeta(meta), {fourCC("ilst")});
  if (!list) {
    return std::nullopt;
  }
  BoxSequence items(*list);
  while (const auto item = items.next()) {
    // The name alone decides: writers differ in the `mean` beside it.
    if (item->type != fourCC("----") || textIn(item->content, fourCC("name"), versionBytes) != "iTunSMPB") {
      continue;
    }
    if (const auto info = parseGaplessText(textIn(item->content, fourCC("data"), typeBytes))) {
      return info;
    }
  }
  return std::nullopt;
}

}  // namespace clipworks::engine
