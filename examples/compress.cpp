// Compresses clips to 480 lines, one after the other, into new files in the current directory.
#include <iostream>

#include <clipworks/clipworks.h>

using namespace clipworks;

class Progress : public VideoCompressorDelegate {
 public:
  void videoCompressorDidUpdateProgress(float progress) override {
    std::cerr << static_cast<int>(100 * progress) << " %\n";
  }
};

int main(int argc, char** argv) {
  FileSystem::shared().setOutputsURL(URL("."));
  std::vector<URL> clips;
  for (int i = 1; i < argc; ++i) clips.emplace_back(argv[i]);

  const auto progress = std::make_shared<Progress>();
  const auto compressor = VideoCompressorUtils::make();
  compressor->setDelegate(progress);
  // Reports on the main queue, which belongs to the host: run() runs its items until stop().
  int exitCode = 1;
  compressor->compress(clips, VideoCompressorUtils::Parameters(Quality480p()), [&](const auto& result) {
    if (result) {
      for (const auto& made : *result) std::cout << made.path().string() << '\n';
      exitCode = 0;
    }
    DispatchQueue::main().stop();
  });
  DispatchQueue::main().run();
  return exitCode;
}
