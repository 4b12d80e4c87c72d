#pragma once

#include <optional>
#include <string>
#include <vector>

#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/export/ExportPlan.h>
#include <clipworks/media/export/ExportPreset.h>

namespace clipworks {

/// The pictures of a track in time.
struct LaidOutPictures {
  /// Complete but for how it is coded.
  engine::PictureJob job;
  /// By run: where its segments say that it is drawn.
  std::vector<std::optional<CGAffineTransform>> places;
};

/// Lays the pictures of a track out: which picture is shown when, which stretches repeat, and at what time scale.
/// Nothing for a track without a picture.
[[nodiscard]] Result<std::optional<LaidOutPictures>, NSError> layOutPictures(const ExportTrack& track);

/// A time scale for pictures whose times are whole ticks of `timescale`, fine enough for any player.
[[nodiscard]] std::int32_t outputTimescale(std::int32_t timescale);

/// Codec, quality, depth and colours, as `preset`, which names a codec, asks for pictures like those of `media`.
void applyPreset(engine::VideoEncoderSettings& encoder, const ExportPreset& preset, const MediaTrack& media);

/// The encoder's size for pictures of `width` × `height`: even, and no larger than the preset says.
void setEncodedSize(engine::PictureJob& job, double width, double height, const ExportPreset& preset);

/// The rate of the pictures of the job's first run with any, for the rate control.
void setNominalRate(engine::PictureJob& job, const ExportPreset& preset);

/// The encoder's settings for a job whose pictures are encoded.
void chooseEncoding(engine::PictureJob& job, const ExportPreset& preset);

}  // namespace clipworks
