#pragma once

namespace clipworks::app {

/// Whether Enter was pressed: a line came on standard input. Never waits. Its end is no line, so that a program started
/// without input is not stopped by it.
class EnterKey {
 public:
  /// True once, for what has come since the last look.
  [[nodiscard]] bool wasPressed();

 private:
  bool isOpen_ = true;
};

}  // namespace clipworks::app
