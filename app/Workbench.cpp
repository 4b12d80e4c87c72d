#include <app/Workbench.h>

#include <chrono>
#include <utility>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/media/asset/AVAsset.h>
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
  return std::unique_ptr<Workbench>(new Workbench(program, std::move(inputs), std::move(*directories)));
}

Workbench::Workbench(const Program& program, std::vector<std::filesystem::path> inputs,
                     std::unique_ptr<PrivateDirectories> directories)
    : reporter_(program.reporter),
      interruption_(program.interruption),
      inputs_(std::move(inputs)),
      directories_(std::move(directories)),
      watch_(program.reporter) {}

void Workbench::pumpUntil(const std::function<bool()>& isOver) {
  reporter_.progress(0);
  while (!isOver()) {
    watch_.look();
    // At every turn: an operation may start one session after the other.
    if (interruption_.isRequested()) watch_.cancel();
    if (const auto value = watch_.progress()) reporter_.progress(*value);
    DispatchQueue::main().runOne(lookInterval);
  }
}

Failure Workbench::interrupted() { return {ExitCode::interrupted, "interrupted"}; }

Failure Workbench::failureWithReason(const std::string& what) const {
  const std::string reason = watch_.reason();
  return {ExitCode::failed, reason.empty() ? what : what + ": " + reason};
}

Failure Workbench::silence(const std::string& what) {
  // An operation says nothing when it gets no export session, which is when an encoder is missing.
  if (!EncoderAvailability::isAvailable(VideoCodecKind::h264)) {
    return {ExitCode::failed, what + ": no encoder for H.264 is available"};
  }
  return {ExitCode::failed, what + ": the export could not be set up"};
}

Outcome Workbench::deliver(const URL& made) {
  const auto asset = AVAsset::make(made);
  if (asset->tracks().empty()) return failed("the result cannot be read back: " + asset->loadError());
  return deliverWhole(made);
}

Outcome Workbench::deliverWhole(const URL& made) {
  const auto place = directories_->moveIntoPlace(made.path(), inputs_);
  if (!place) return failure(place.error());
  reporter_.output(*place);
  return {};
}

}  // namespace clipworks::app
