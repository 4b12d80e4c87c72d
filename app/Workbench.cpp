#include <app/Workbench.h>

#include <chrono>
#include <utility>

#include <app/DamageSentence.h>
#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/base/FileManager.h>
#include <clipworks/media/export/EncoderAvailability.h>

namespace clipworks::app {
namespace {

constexpr std::chrono::milliseconds lookInterval{100};

}  // namespace

Result<std::unique_ptr<Workbench>, Failure> Workbench::make(const Program& program,
                                                            std::vector<std::filesystem::path> inputs) {
  // From here on there is something to clean up.
  program.interruption.defer();
  auto directories = PrivateDirectories::make(program.options);
  if (!directories) return failure(directories.error());
  FileSystem::shared().setOutputsURL(URL((*directories)->outputs()));
  FileSystem::shared().setTempURL(URL((*directories)->temp()));
  FileManager::default_().setDocumentDirectory(URL((*directories)->documents()));
  return std::unique_ptr<Workbench>(new Workbench(program, std::move(inputs), std::move(*directories)));
}

Workbench::Workbench(const Program& program, std::vector<std::filesystem::path> inputs,
                     std::unique_ptr<PrivateDirectories> directories)
    : reporter_(program.reporter),
      interruption_(program.interruption),
      inputs_(std::move(inputs)),
      directories_(std::move(directories)),
      isStrict_(program.options.strict),
      watch_(program.reporter) {}

void Workbench::enterStage(double from, double to) {
  stageStart_ = from;
  stageEnd_ = to;
  watch_.startAfresh();
}

void Workbench::pumpUntil(const std::function<bool()>& isOver) {
  reporter_.progress(0);
  while (!isOver()) {
    watch_.look();
    // At every turn: an operation may start one session after the other. Where there is none, nothing can be asked to
    // stop; the end of the process stops it, or it comes to its own end.
    if (interruption_.isRequested() && !watch_.cancel() && interruption_.endsProcess()) return;
    if (const auto value = watch_.progress()) reporter_.progress(stageStart_ + *value * (stageEnd_ - stageStart_));
    DispatchQueue::main().runOne(lookInterval);
  }
}

Failure Workbench::interrupted() { return {ExitCode::interrupted, "interrupted"}; }

Failure Workbench::failureWithReason(const std::string& what, const std::function<std::string()>& askWhy) const {
  std::string reason = watch_.reason();
  if (reason.empty() && askWhy) reason = askWhy();
  return {ExitCode::failed, reason.empty() ? what : what + ": " + reason};
}

Failure Workbench::silence(const std::string& what) const {
  // Some operations print why, and say nothing else.
  if (!watch_.reason().empty()) return failureWithReason(what);
  // Others say nothing when they get no export session, which is when an encoder is missing.
  if (!EncoderAvailability::isAvailable(VideoCodecKind::h264)) {
    return {ExitCode::failed, what + ": no encoder for H.264 is available"};
  }
  return {ExitCode::failed, what + ": the export could not be set up"};
}

Outcome Workbench::checkName(const std::string& fileName) const {
  return refuseToOverwrite(directories_->place(fileName), inputs_);
}

Result<URL, Failure> Workbench::withMetadataOf(const std::filesystem::path& recording, const URL& made,
                                               const std::string& fileName) {
  const std::string what = fileName + " could not be put together";
  const URL place(directories_->outputs() / fileName);
  const auto session = AVAssetExportSession::make(AVAsset::make(made), AVAssetExportPresetPassthrough);
  if (session == nullptr) return failed(what);
  const std::string extension = made.pathExtension();
  session->setOutputFileType(extension == "mov"   ? AVFileTypeQuickTimeMovie
                             : extension == "m4a" ? AVFileTypeAppleM4A
                                                  : AVFileTypeMPEG4);
  session->setOutputURL(place);
  session->setMetadata(AVAsset::make(URL(recording))->metadata());
  Awaited<Result<URL, NSError>> exported;
  session->exportAsynchronously([session, place, report = exported.closure()] {
    const auto error = session->error();
    report(error ? Result<URL, NSError>(failure(*error)) : place);
  });
  return wait(exported, what);
}

Outcome Workbench::deliver(const URL& made, const std::filesystem::path& input) {
  const auto asset = AVAsset::make(made);
  if (asset->tracks().empty()) return failed("the result cannot be read back: " + asset->loadError());
  return deliverWhole(made, input);
}

Outcome Workbench::deliverWhole(const URL& made, const std::filesystem::path& input) {
  for (const auto& media : damage_.damagedMedia()) {
    const bool isItsOwn = input.empty() || input.filename() == media.fileName;
    if (isStrict_ && isItsOwn) {
      return failed(damageSentence(media.fileName, media.pictures) + ", which strict work does not allow");
    }
  }
  const auto place = directories_->moveIntoPlace(made.path(), inputs_);
  if (!place) return failure(place.error());
  reporter_.output(*place);
  return {};
}

void Workbench::tellDamage() const {
  for (const auto& media : damage_.damagedMedia()) reporter_.damaged(media.fileName, media.pictures);
}

}  // namespace clipworks::app
