#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <stop_token>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/input/CachedPictureReader.h>

namespace clipworks::engine {

/// The pictures of a `CachedPictureReader`, interlaced ones made whole: with the help of the one before and the one
/// after, as they are when the whole track is deinterlaced. One thread at a time.
class WholePictureReader {
 public:
  explicit WholePictureReader(CachedPictureReader reader) : reader_(std::move(reader)) {}

  void setCacheLimit(std::size_t bytes) { reader_.setCacheLimit(bytes); }

  /// See `CachedPictureReader::picture`.
  [[nodiscard]] Expected<Frame> picture(std::size_t picture, std::span<const std::uint32_t> upcoming = {},
                                        const std::stop_token& stop = {});

 private:
  Expected<Frame> neighbour(std::size_t picture, std::span<const std::uint32_t> upcoming, const std::stop_token& stop);

  CachedPictureReader reader_;
  std::map<std::size_t, Frame> neighbours_;  // the last interlaced picture and the ones beside it
};

}  // namespace clipworks::engine
