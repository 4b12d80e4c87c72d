#include <app/ResultName.h>

namespace clipworks::app {

Outcome checkResultName(const std::string& name) {
  if (name.empty()) return wrongUse("--name must not be empty");
  if (name.find('/') != std::string::npos) {
    return wrongUse("--name takes a name, not a path; --outputs tells where the file goes");
  }
  return {};
}

}  // namespace clipworks::app
