#pragma once

#include <clipworks/engine/Error.h>
#include <clipworks/engine/boxes/MovieBoxes.h>
#include <clipworks/engine/input/PictureTable.h>

namespace clipworks::engine {

class MediaFile;

/// Where the list of a stream's samples comes from.
struct PictureTableSource {
  const MovieBoxes::Track* track = nullptr;  ///< what the boxes say of it, where they list it whole; else null
  bool isFragmented = false;                 ///< an MP4 file in fragments
};

/// Lists all samples of stream `index` of pictures: from its boxes and the demuxer's index where those agree, else by
/// going through its packets. Fails with `tooLarge` beyond a limit, and where the file cannot be read.
[[nodiscard]] Expected<PictureTable> buildPictureTable(const MediaFile& file, int index,
                                                       const PictureTableSource& source);

}  // namespace clipworks::engine
