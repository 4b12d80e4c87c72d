#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/Thread.h>
#include <clipworks/engine/output/VideoEncoder.h>
#include <clipworks/engine/pictures/PictureConverter.h>
#include <clipworks/engine/pipeline/BoundedQueue.h>
#include <clipworks/engine/pipeline/SharedMovie.h>

namespace clipworks::engine {

struct PictureEncodingSettings {
  VideoCodec codec = VideoCodec::h264;
  int width = 0;  ///< as asked for; odd sizes are rounded up, the edge repeated
  int height = 0;
  bool fills = false;               ///< pictures of another shape are cropped to fit, rather than stretched
  std::int64_t averageBitRate = 0;  ///< bits a second; 0 is constant quality
  std::optional<double> frameRate;  ///< pictures a second, for the rate control; else measured
  std::optional<std::array<std::int32_t, 9>> matrix;
};

/// Encodes the pictures of one track of a movie on a thread of its own. Pictures come with rising times; the colour of
/// the first one is the track's. One thread pushes; `hasRoom` from any.
class PictureEncoding {
 public:
  /// `onFailure` is called once, at most, on the encoding thread.
  [[nodiscard]] static Expected<std::unique_ptr<PictureEncoding>> open(const PictureEncodingSettings& settings,
                                                                       std::shared_ptr<SharedMovie> movie,
                                                                       std::size_t track,
                                                                       std::function<void(const Error&)> onFailure);
  /// Drops what is under way.
  ~PictureEncoding();
  PictureEncoding(const PictureEncoding&) = delete;
  PictureEncoding& operator=(const PictureEncoding&) = delete;

  /// Whether `push` would return at once.
  [[nodiscard]] bool hasRoom() const { return pictures_.hasRoom(); }
  /// Takes a planar picture that comes on screen at `value` / `timescale` seconds. The first one's time scale, or a
  /// multiple, becomes the track's; times in others are rounded half up. False when the encoding has ended or failed.
  [[nodiscard]] bool push(Frame picture, std::int64_t value, std::int32_t timescale);
  /// No more pictures will come.
  void finish() { pictures_.finish(); }
  /// Waits until all is encoded and handed to the movie.
  void join() { thread_.join(); }

 private:
  struct Picture {
    Frame frame;
    std::int64_t time = 0;  // in ticks of the track
  };
  PictureEncoding(const PictureEncodingSettings& settings, std::shared_ptr<SharedMovie> movie, std::size_t track,
                  std::function<void(const Error&)> onFailure);
  void run();
  Expected<void> encodeAll();
  Expected<void> openEncoder(const Picture& first, const std::optional<Picture>& second);
  Expected<void> encode(const Picture& picture);
  Expected<Frame> fitted(const Frame& picture);
  Expected<void> passOn();
  Expected<void> writeHeld();
  Expected<void> writeLast();

  const PictureEncodingSettings settings_;
  const std::shared_ptr<SharedMovie> movie_;
  const std::size_t track_;
  const std::function<void(const Error&)> onFailure_;
  BoundedQueue<Picture> pictures_;
  std::int32_t timescale_ = 0;  // set by the first push, before its picture is queued
  std::int64_t lastPushed_ = INT64_MIN;

  // Of the encoding thread.
  std::optional<VideoEncoder> encoder_;
  std::optional<PictureConverter> converter_;
  PictureConverter::Fit fit_ = PictureConverter::Fit::pad;  // of converter_
  int encodedWidth_ = 0;
  int encodedHeight_ = 0;
  std::set<std::int64_t> shownTimes_;  // of pictures whose coded sample has not been written
  std::int64_t firstTime_ = 0;
  std::optional<std::int64_t> lastTime_;
  std::int64_t interval_ = 0;  // between the last two pictures
  Packet held_;                // the last coded sample so far

  Thread thread_;
};

}  // namespace clipworks::engine
