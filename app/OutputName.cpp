#include <app/OutputName.h>

namespace clipworks::app {

Outcome checkOutputName(const std::string& name) {
  if (name.empty()) return wrongUse("--name must not be empty");
  if (name.find('/') != std::string::npos) {
    return wrongUse("--name takes a name without a folder, not \"" + name + "\"; --outputs tells where the file goes");
  }
  return {};
}

}  // namespace clipworks::app
