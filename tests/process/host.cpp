// A host of the library that starts one operation, and then leaves, or goes on with few threads.
//
//   host OPERATION CLIP threads N    waits for the result with N threads allowed beside this one
//   host OPERATION CLIP return N     returns from main after N milliseconds, whatever is going on
//   host OPERATION CLIP exit N       the same by exit(0)
//
// Exit code 3: no result comes. 4: more than one does. Prints "success", "failure" or "silence".
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <clipworks/clipworks.h>
#include <clipworks/media/base/FileManager.h>
#include <clipworks/media/export/AVAssetExportSession.h>

using namespace clipworks;

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<int> successes = 0;
std::atomic<int> failures = 0;
std::atomic<bool> isForgotten = false;

bool isOver() { return successes + failures > 0 || isForgotten; }

/// Notes, too, that it goes.
auto completion() {
  const std::shared_ptr<void> token(nullptr, [](void*) { isForgotten = true; });
  return [token](const auto& result) { ++(result ? successes : failures); };
}

struct Listener : VideoNarrationUtilsDelegate {
  void narrationDidFinish(const Result<NarrationPiece, NarrationError>& result) override {
    ++(result ? successes : failures);
  }
};

void pump(std::chrono::milliseconds time, const std::function<bool()>& isEnough) {
  for (const auto end = Clock::now() + time; Clock::now() < end && !isEnough();) {
    DispatchQueue::main().runOne(std::chrono::milliseconds(2));
  }
}

/// What has to be kept meanwhile.
using Kept = std::shared_ptr<void>;

/// A batch of as many; without any, a preview.
template <std::size_t count>
Kept compress(const URL& clip) {
  const auto compressor = VideoCompressorUtils::make();
  const auto done = completion();
  const auto whole = [done](const auto& result) {
    if (result) std::printf("%zu of %zu\n", result->size(), count);
    done(result);
  };
  const VideoCompressorUtils::Parameters small{Quality144p()};
  count == 0 ? compressor->previewCompression(clip, small, done)
             : compressor->compress(std::vector<URL>(count, clip), small, whole);
  return compressor;
}

Kept crop(const URL& clip) {
  const auto utils = VideoRotateUtils::make();
  utils->cropVideo(clip, CGRect{{0, 0}, {32, 32}}, completion());
  return utils;
}

Kept reverse(const URL& clip) {
  const auto converter = VideoReverseConverter::make(clip);
  converter->reverse("back", completion());
  return converter;
}

Kept askForPermission(const URL&) {
  const auto narration = VideoNarrationUtils::make();
  narration->requestAuthorization(completion());
  return narration;
}

Kept record(const URL&) {
  const auto narration = VideoNarrationUtils::make();
  const auto listener = std::make_shared<Listener>();
  if (!narration->startNarration(kCMTimeZero, listener)) ++failures;
  pump(std::chrono::milliseconds(50), [] { return false; });
  narration->finishNarration();
  return std::make_shared<std::pair<Kept, Kept>>(narration, listener);
}

Kept exportSession(const URL& clip) {
  const auto session = AVAssetExportSession::make(AVAsset::make(clip), AVAssetExportPresetHEVCHighestQuality);
  FileSystem::shared().deleteFile(URL("exported.mp4"));
  session->setOutputURL(URL("exported.mp4"));
  session->exportAsynchronously([session, done = completion()] {
    if (const auto error = session->error()) std::printf("%s\n", error->localizedDescription().c_str());
    done(session->status() == AVAssetExportSessionStatus::completed);
  });
  return session;
}

Kept loop(const URL& clip) {
  const auto looper = VideoLooperUtils::make(clip);
  looper->createLoopComposition(3, [](const auto&) {});
  looper->exportCurrentComposition(completion());
  return looper;
}

Kept frame(const URL& clip) {
  const auto photo = VideoToPhotoUtils::make(clip);
  photo->getFrameAt(kCMTimeZero, std::nullopt, VideoToPhotoUtils::ExportFormat::heic, completion());
  return photo;
}

const std::map<std::string, Kept (*)(const URL&)> operations{{"loop", loop},
                                                             {"compress", compress<6>},
                                                             {"long_batch", compress<300>},
                                                             {"preview", compress<0>},
                                                             {"crop", crop},
                                                             {"reverse", reverse},
                                                             {"record", record},
                                                             {"permission", askForPermission},
                                                             {"frame", frame},
                                                             {"export", exportSession}};

/// The limit binds no root, and counts whatever the user has: so this becomes a user that nobody else is.
bool allowThreads(int count) {
  const auto user = static_cast<uid_t>(200'000 + ::getpid());
  const rlimit limit{static_cast<rlim_t>(count) + 1, static_cast<rlim_t>(count) + 1};
  return ::setrlimit(RLIMIT_NPROC, &limit) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0 &&
         ::prctl(PR_SET_DUMPABLE, 1) == 0;  // its own files in /proc are its own again
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  const std::string mode = argv[3];
  const int number = std::atoi(argv[4]);
  FileSystem::shared().setOutputsURL(URL("."));
  FileSystem::shared().setTempURL(URL("."));
  FileManager::default_().setDocumentDirectory(URL("."));
  if (mode == "threads" && !allowThreads(number)) return 2;
  const Kept kept = operations.at(argv[1])(URL(argv[2]));
  if (mode != "threads") {
    pump(std::chrono::milliseconds(number), [] { return false; });
    if (mode == "exit") std::exit(0);
    return 0;
  }
  pump(std::chrono::minutes(4), isOver);
  if (!isOver()) return 3;
  pump(std::chrono::milliseconds(30), [] { return false; });
  std::puts(successes > 0 ? "success" : failures > 0 ? "failure" : "silence");
  return successes + failures > 1 ? 4 : 0;
}
