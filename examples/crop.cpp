// Cuts the middle square out of a landscape clip of 1080 lines, into a new file in the current directory.
#include <iostream>

#include <clipworks/clipworks.h>

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: crop CLIP\n";
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
  VideoRotateUtils::make()->cropVideo(URL(argv[1]), CGRect(420, 0, 1080, 1080), report);
  DispatchQueue::main().run();
  return exitCode;
}
