// Plays the second second of a clip at half its speed, into a new file in the current directory.
#include <iostream>

#include "until_reported.h"

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: speed CLIP\n";
    return 2;
  }
  FileSystem::shared().setOutputsURL(URL("."));

  const auto converter = VideoSpeedConverter::make(URL(argv[1]));
  return untilReported([&](const auto& report) {
    converter->applySpeedChange(1.0, 2.0, 2.0, std::nullopt, VideoSpeedConverter::ConversionQuality::high, report);
  });
}
