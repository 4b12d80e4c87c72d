// Plays a clip three times in a row, into one new file in the current directory.
#include <iostream>

#include "until_reported.h"

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: loop CLIP\n";
    return 2;
  }
  FileSystem::shared().setOutputsURL(URL("."));
  const auto looper = VideoLooperUtils::make(URL(argv[1]));

  // Reports before it returns, on this thread.
  bool isComposed = false;
  looper->createLoopComposition(3, [&](const auto& composition) { isComposed = composition.has_value(); });
  if (!isComposed) {
    std::cerr << argv[1] << " cannot be looped; a clip needs pictures and sound\n";
    return 1;
  }

  return untilReported([&](const auto& report) { looper->exportCurrentComposition(report); });
}
