// Plays a clip backwards, into the file backwards.mp4 in the current directory.
#include <iostream>

#include "until_reported.h"

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: reverse CLIP\n";
    return 2;
  }
  // A reversal is written to the temporary directory, its halves to the documents while it works.
  FileSystem::shared().setTempURL(URL("."));
  FileManager::default_().setDocumentDirectory(URL("."));

  const auto converter = VideoReverseConverter::make(URL(argv[1]));
  return untilReported([&](const auto& report) { converter->reverse("backwards", report); });
}
