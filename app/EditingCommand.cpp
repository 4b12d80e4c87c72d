#include <app/EditingCommand.h>

#include <optional>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/export/AVAssetExportSession.h>
#include <clipworks/media/export/EncoderAvailability.h>
#include <clipworks/stillpress/ImageConverter.h>

namespace clipworks::app {
namespace {

bool holdsHEVC(const std::filesystem::path& file) {
  const auto tracks = AVAsset::make(URL(file))->tracks(AVMediaTypeVideo);
  return !tracks.empty() && tracks.front()->codecName() == "hevc";
}

void encodeH264Only() {
  // Which also spares the operations the search for an encoder of HEVC.
  EncoderAvailability::withhold(VideoCodecKind::hevc);
  AVAssetExportSession::setHighestQualityCodec(VideoCodecKind::h264);
}

/// For every operation from now on.
Outcome applyCodec(CodecChoice choice, const std::filesystem::path& firstInput) {
  EncoderAvailability::restore(VideoCodecKind::hevc);
  AVAssetExportSession::setHighestQualityCodec(std::nullopt);
  switch (choice) {
    case CodecChoice::automatic:
      if (!holdsHEVC(firstInput)) encodeH264Only();
      return {};
    case CodecChoice::h264:
      encodeH264Only();
      return {};
    case CodecChoice::hevc:
      if (!EncoderAvailability::isAvailable(VideoCodecKind::hevc)) return failed("no encoder for HEVC is available");
      AVAssetExportSession::setHighestQualityCodec(VideoCodecKind::hevc);
      return {};
  }
  return {};
}

/// Found here it is wrong use, and costs nobody the work.
Outcome keepInputs(const std::filesystem::path& outputs, const std::vector<std::string>& names,
                   const std::vector<std::filesystem::path>& inputs) {
  for (const auto& name : names) {
    const Outcome allowed = refuseToOverwrite((outputs / name).lexically_normal(), inputs);
    if (!allowed) return wrongUse(allowed.error().sentence);
  }
  return {};
}

}  // namespace

Outcome EditingCommand::checkPictures(const std::filesystem::path& file, const std::string& work) {
  const auto asset = AVAsset::make(URL(file));
  if (asset->tracks().empty()) return failed(asset->loadError());
  if (!asset->tracks(AVMediaTypeVideo).empty()) return {};
  return failed(file.filename().string() + " has no video track; " + work + " needs one");
}

Outcome EditingCommand::run(const Program& program) {
  // As long as it is open, all who open it again share what is known of it.
  const auto first = AVAsset::make(URL(inputs().front()));
  (void)first->tracks();
  if (const Outcome checked = check(); !checked) return checked;
  if (const Outcome kept = keepInputs(program.options.outputs, resultNames(), inputs()); !kept) return kept;
  if (const Outcome applied = applyCodec(program.options.codec, inputs().front()); !applied) return applied;
  AVAssetExportSession::setKeepsRecordingMetadataByDefault(!program.options.stripMetadata);
  ImageConverter::setKeepsRecordingMetadataByDefault(!program.options.stripMetadata);
  const auto bench = Workbench::make(program, inputs());
  if (!bench) return failure(bench.error());
  const Outcome edited = edit(**bench);
  if (!edited) return edited;
  (*bench)->tellDamage();
  program.reporter.done();
  return edited;
}

}  // namespace clipworks::app
