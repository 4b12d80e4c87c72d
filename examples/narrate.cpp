// Lays a recording over a clip from its first second on, the clip's own sound at half its level.
#include <iostream>

#include "until_reported.h"

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: narrate CLIP RECORDING\n";
    return 2;
  }
  FileSystem::shared().setOutputsURL(URL("."));

  const auto narration = VideoNarrationUtils::make();
  bool isComposed = false;
  narration->createComposition(URL(argv[1]), {{CMTime(1, 1), URL(argv[2]), 1.0F}}, 0.5F,
                               [&](const auto& composition) { isComposed = composition.has_value(); });
  if (!isComposed) {
    std::cerr << argv[1] << " needs pictures and sound\n";
    return 1;
  }

  return untilReported(
      [&](const auto& report) { narration->exportComposition(ExportQuality::highCompressed, report); });
}
