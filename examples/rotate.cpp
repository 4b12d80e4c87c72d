// Turns a clip by a quarter turn, into a new file in the current directory.
#include <iostream>

#include <clipworks/clipworks.h>

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: rotate CLIP\n";
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
  VideoRotateUtils::make()->rotateVideo(URL(argv[1]), report);
  DispatchQueue::main().run();
  return exitCode;
}
