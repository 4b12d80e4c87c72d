#pragma once

#include <vector>

#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Plan.h>
#include <clipworks/engine/output/DataJob.h>
#include <clipworks/engine/pipeline/ExportJob.h>

namespace clipworks {

/// What becomes of the data tracks (timed metadata, time code, subtitles) of an edit's files.
struct DataPlan {
  std::vector<engine::DataJob> jobs;
  std::vector<PlannedTrack> tracks;  ///< one for each job
  std::vector<PlannedLoss> leftOut;
};

/// Cuts the data tracks as the pictures of their files are cut, where all pictures play forwards at their own pace;
/// `pictures` is what becomes of those, null without any. Tracks of several files that mean the same become one. Reads
/// the index of each file that has such tracks; a file whose index cannot be read any more has none.
[[nodiscard]] DataPlan planData(const EditState& state, const engine::PictureJob* pictures, bool keepsMetadata);

}  // namespace clipworks
