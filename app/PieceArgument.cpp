#include <app/PieceArgument.h>

#include <algorithm>
#include <cctype>

#include <app/ParseNumber.h>

namespace clipworks::app {

std::optional<PieceArgument> PieceArgument::parse(std::string_view text) {
  const auto mark = text.rfind('@');
  if (mark == std::string_view::npos || mark == 0) return std::nullopt;
  std::string_view start = text.substr(mark + 1);
  PieceArgument piece{text.substr(0, mark)};
  if (const auto colon = start.find(':'); colon != std::string_view::npos) {
    const auto volume = parseNumber(start.substr(colon + 1));
    if (!volume) return std::nullopt;
    piece.volume = *volume;
    start = start.substr(0, colon);
  }
  const auto seconds = parseNumber(start);
  if (!seconds) return std::nullopt;
  piece.seconds = *seconds;
  return piece;
}

std::string shellWord(std::string_view text) {
  const auto isPlain = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
           std::string_view("@%+=:,./_-").find(c) != std::string_view::npos;
  };
  if (!text.empty() && std::all_of(text.begin(), text.end(), isPlain)) return std::string(text);
  std::string word = "'";
  for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return word + "'";
}

}  // namespace clipworks::app
