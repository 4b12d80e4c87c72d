// Saves the picture at the first second of a clip as a JPEG file in the current directory.
#include <iostream>

#include <clipworks/clipworks.h>

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: frame CLIP\n";
    return 2;
  }
  FileSystem::shared().setOutputsURL(URL("."));

  // Reports on the main queue, which belongs to the host: run() runs its items until stop().
  int exitCode = 1;
  const auto report = [&](const auto& result) {
    if (result) {
      std::cout << result->path().string() << '\n';
      exitCode = 0;
    }
    DispatchQueue::main().stop();
  };
  const auto photos = VideoToPhotoUtils::make(URL(argv[1]));
  photos->getFrameAt(CMTime(1.0, 600), "picture", VideoToPhotoUtils::ExportFormat::jpg, report);
  DispatchQueue::main().run();
  return exitCode;
}
