// Cuts the middle square out of a landscape clip of 1080 lines, into a new file in the current directory.
#include <iostream>

#include "until_reported.h"

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: crop CLIP\n";
    return 2;
  }
  FileSystem::shared().setOutputsURL(URL("."));

  return untilReported([&](const auto& report) {
    VideoRotateUtils::make()->cropVideo(URL(argv[1]), CGRect(420, 0, 1080, 1080), report);
  });
}
