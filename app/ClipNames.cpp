#include <app/ClipNames.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string>
#include <string_view>

namespace clipworks::app {

bool isClipName(const std::filesystem::path& file) {
  constexpr std::array<std::string_view, 14> endings{".mp4", ".mov", ".m4v", ".3gp",  ".3g2", ".mkv", ".webm",
                                                     ".avi", ".ts",  ".mts", ".m2ts", ".mpg", ".qt",  ".wmv"};
  std::string ending = file.extension().native();
  for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return std::find(endings.begin(), endings.end(), ending) != endings.end();
}

}  // namespace clipworks::app
