#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/MediaFile.h>
#include <clipworks/engine/input/PictureTable.h>
#include <clipworks/engine/input/StreamPackets.h>

namespace clipworks::engine {

/// Hands out the coded samples of one track of pictures by their index in its table, whatever the container: where
/// samples lie plainly in the file they are read straight from their place, elsewhere through a demuxer.
/// Cheapest in rising order. One thread at a time.
class CodedPictureReader {
 public:
  [[nodiscard]] static Expected<CodedPictureReader> open(std::shared_ptr<const MediaFile> file, int stream);

  [[nodiscard]] const PictureTable& table() const { return *table_; }

  /// Sample number `index` of the decoding order, its times in ticks of the track. Fails with `damaged` when the file
  /// ends before it.
  [[nodiscard]] Expected<Packet> read(std::uint32_t index);

 private:
  CodedPictureReader(std::shared_ptr<const MediaFile> file, int stream, std::shared_ptr<const PictureTable> table)
      : file_(std::move(file)), stream_(stream), table_(std::move(table)) {}
  Expected<Packet> readStored(const Sample& sample) const;
  Expected<Packet> readDemuxed(std::uint32_t index);
  Expected<void> rewind();

  std::shared_ptr<const MediaFile> file_;
  int stream_;
  std::shared_ptr<const PictureTable> table_;
  std::optional<StreamPackets> demuxer_;
  std::uint32_t next_ = 0;  // index of the sample that the demuxer gives next
};

}  // namespace clipworks::engine
