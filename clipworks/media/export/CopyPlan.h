#pragma once

#include <string>

#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/media/export/ExportPreset.h>

namespace clipworks {

/// Decides which coded pictures of a job, whose encoder is chosen where `preset` names a codec, are kept as they are.
/// A run that can be decoded by itself is copied whole; where the job starts or ends inside a group of pictures, those
/// that are not shown, but that others refer to, are kept hidden. Any other run is divided: its whole groups are copied
/// and the pictures between them encoded, where the encoder's stand among copied ones; else all of the job is encoded.
/// Returns why not all is copied, in a few words; empty where it is.
[[nodiscard]] std::string chooseCopies(engine::PictureJob& job, const ExportPreset& preset);

}  // namespace clipworks
