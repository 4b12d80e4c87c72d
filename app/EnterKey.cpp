#include <app/EnterKey.h>

#include <poll.h>
#include <unistd.h>

#include <array>
#include <string_view>

namespace clipworks::app {

bool EnterKey::wasPressed() {
  if (!isOpen_) return false;
  // A program in the background that reads from its terminal is stopped.
  if (::isatty(STDIN_FILENO) == 1 && ::tcgetpgrp(STDIN_FILENO) != ::getpgrp()) return false;
  pollfd input{STDIN_FILENO, POLLIN, 0};
  if (::poll(&input, 1, 0) <= 0) return false;
  std::array<char, 256> bytes{};
  const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
  isOpen_ = count > 0;
  return isOpen_ &&
         std::string_view(bytes.data(), static_cast<std::size_t>(count)).find('\n') != std::string_view::npos;
}

}  // namespace clipworks::app
