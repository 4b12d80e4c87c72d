#include <app/Printable.h>

namespace clipworks::app {

std::string printable(std::string_view text) {
  std::string line(text);
  for (char& c : line) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) c = ' ';
  }
  return line;
}

}  // namespace clipworks::app
