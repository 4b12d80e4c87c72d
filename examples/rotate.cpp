// Turns a clip by a quarter turn, into a new file in the current directory.
#include <iostream>

#include "until_reported.h"

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: rotate CLIP\n";
    return 2;
  }
  FileSystem::shared().setOutputsURL(URL("."));

  return untilReported([&](const auto& report) { VideoRotateUtils::make()->rotateVideo(URL(argv[1]), report); });
}
