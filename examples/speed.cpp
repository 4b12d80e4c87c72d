// Plays the second second of a clip at half its speed, into a new file in the current directory.
#include <iostream>

#include <clipworks/clipworks.h>

using namespace clipworks;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: speed CLIP\n";
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
  const auto converter = VideoSpeedConverter::make(URL(argv[1]));
  converter->applySpeedChange(1.0, 2.0, 2.0, std::nullopt, VideoSpeedConverter::ConversionQuality::high, report);
  DispatchQueue::main().run();
  return exitCode;
}
