// Plays a clip backwards, into the file backwards.mp4 in the current directory.
#include <iostream>

#include <clipworks/clipworks.h>

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: reverse CLIP\n";
    return 2;
  }
  // A reversal is written to the temporary directory, its halves to the documents while it works.
  FileSystem::shared().setTempURL(URL("."));
  FileManager::default_().setDocumentDirectory(URL("."));

  // Reports on a thread of its own, not on the main queue; stop() may come from there.
  int exitCode = 1;
  const auto report = [&](const auto& result) {
    if (result) {
      std::cout << result->path().string() << '\n';
      exitCode = 0;
    }
    DispatchQueue::main().stop();
  };
  const auto converter = VideoReverseConverter::make(URL(argv[1]));
  converter->reverse("backwards", report);
  DispatchQueue::main().run();
  return exitCode;
}
