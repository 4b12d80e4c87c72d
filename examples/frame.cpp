// Saves the picture at the first second of a clip as a JPEG file in the current directory.
#include <iostream>

#include "until_reported.h"

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: frame CLIP\n";
    return 2;
  }
  FileSystem::shared().setOutputsURL(URL("."));

  const auto photos = VideoToPhotoUtils::make(URL(argv[1]));
  return untilReported([&](const auto& report) {
    photos->getFrameAt(CMTime(1.0, 600), "picture", VideoToPhotoUtils::ExportFormat::jpg, report);
  });
}
