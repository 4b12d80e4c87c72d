// Plays a clip three times in a row, into one new file in the current directory.
#include <iostream>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/looper/VideoLooperUtils.h>
#include <clipworks/media/dispatch/DispatchQueue.h>

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: loop CLIP\n";
    return 2;
  }
  FileSystem::shared().setOutputsURL(URL("."));
  const auto looper = VideoLooperUtils::make(URL(argv[1]));

  // Reports before it returns, on this thread.
  bool isComposed = false;
  looper->createLoopComposition(3, [&](const auto& composition) { isComposed = composition.has_value(); });
  if (!isComposed) {
    std::cerr << argv[1] << " cannot be looped; a clip needs pictures and sound\n";
    return 1;
  }

  // Reports on the main queue, which belongs to the host: run() runs its items until stop().
  int exitCode = 1;
  looper->exportCurrentComposition([&](const auto& result) {
    if (result) {
      std::cout << result->path().string() << '\n';
      exitCode = 0;
    }
    DispatchQueue::main().stop();
  });
  DispatchQueue::main().run();
  return exitCode;
}
