// Plays a clip backwards, into the file backwards.mp4 in the current directory.
#include <iostream>

#include <clipworks/clipworks.h>

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: reverse CLIP\n";
    return 2;
  }
  FileSystem::shared().setOutputsURL(URL("."));

  // Reports on the main queue, which belongs to the host: run() works it off until stop().
  int exitCode = 1;
  const auto report = [&](const auto& result) {
    if (result) {
      std::cout << result->path().string() << '\n';
      exitCode = 0;
    }
    DispatchQueue::main().stop();
  };
  FileManager::default_().setDocumentDirectory(URL("."));  // for its halves, while it works
  const auto converter = VideoReverseConverter::make(URL(argv[1]));
  converter->reverse("backwards", report);
  DispatchQueue::main().run();
  return exitCode;
}
