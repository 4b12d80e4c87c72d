#include <clipworks/media/samples/TrackWriting.h>

#include <utility>

#include <clipworks/engine/pictures/BiPlanar.h>
#include <clipworks/engine/pictures/PlanarFromBGRA.h>
#include <clipworks/media/asset/EngineErrors.h>

namespace clipworks {
namespace {

/// What the buffer's attachments say, the rest as for video of its size.
engine::Colour colourOf(const CVPixelBuffer& buffer) {
  const auto told = [&buffer](const char* key) {
    constexpr std::int64_t unspecified = 2;  // ITU-T H.273
    return static_cast<int>(buffer.attachments().integer(key).value_or(unspecified));
  };
  return engine::completeColour(
      static_cast<int>(buffer.width()), static_cast<int>(buffer.height()),
      {told(kCVImageBufferColorPrimariesKey), told(kCVImageBufferTransferFunctionKey),
       told(kCVImageBufferYCbCrMatrixKey), buffer.attachments().integer(kCVImageBufferFullRangeKey).value_or(0) != 0});
}

engine::Expected<engine::Frame> planarFrame(const CVPixelBuffer& buffer) {
  const int width = static_cast<int>(buffer.width());
  const int height = static_cast<int>(buffer.height());
  const auto rowLength = [](const PixelPlane& plane) { return static_cast<std::ptrdiff_t>(plane.bytesPerRow); };
  const engine::Colour colour = colourOf(buffer);
  const PixelPlane& first = buffer.planes().front();
  if (buffer.pixelFormatType() == kCVPixelFormatType_32BGRA) {
    return engine::planarFromBGRA(first.baseAddress, rowLength(first), width, height, colour);
  }
  const bool isFull = buffer.pixelFormatType() == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
  const PixelPlane& second = buffer.planes().at(1);
  auto frame =
      engine::planarFromBiPlanar(first.baseAddress, rowLength(first), second.baseAddress, rowLength(second), width,
                                 height, isFull ? engine::PictureRange::full : engine::PictureRange::video);
  if (frame) engine::tag(**frame, {colour.primaries, colour.transfer, colour.matrix, isFull});
  return frame;
}

class PictureWriting final : public TrackWriting {
 public:
  explicit PictureWriting(std::unique_ptr<engine::PictureEncoding> encoding) : encoding_(std::move(encoding)) {}

  void setStart(const CMTime& start) override { start_ = start; }
  bool hasRoom() const override { return encoding_->hasRoom(); }

  Result<bool, NSError> append(CMSampleBuffer& sampleBuffer) override {
    const auto pixelBuffer = CMSampleBufferGetImageBuffer(sampleBuffer);
    if (pixelBuffer == nullptr)
      return failure(makeError(AVError::decodeFailed, "a buffer holds no picture to be written"));
    return append(*pixelBuffer, CMSampleBufferGetPresentationTimeStamp(sampleBuffer));
  }

  Result<bool, NSError> append(const CVPixelBuffer& pixelBuffer, const CMTime& time) override {
    if (!time.isNumeric() || time.timescale <= 0) {
      return failure(makeError(AVError::invalidTimeRange, "a picture to be written has no time"));
    }
    if (time < start_) return true;
    auto frame = planarFrame(pixelBuffer);
    if (!frame) return failure(errorFromEngine(frame.error()));
    return encoding_->push(std::move(*frame), time.value, time.timescale);
  }

  void finish() override { encoding_->finish(); }
  void join() override { encoding_->join(); }

 private:
  CMTime start_ = kCMTimeZero;
  std::unique_ptr<engine::PictureEncoding> encoding_;
};

}  // namespace

Result<std::unique_ptr<TrackWriting>, NSError> beginPictures(const engine::PictureEncodingSettings& settings,
                                                             std::shared_ptr<engine::SharedMovie> movie,
                                                             std::shared_ptr<WritingState> state) {
  const std::size_t track = movie->addTrack();
  auto encoding = engine::PictureEncoding::open(
      settings, std::move(movie), track, [state](const engine::Error& error) { state->fail(errorFromEngine(error)); });
  if (!encoding) return failure(errorFromEngine(encoding.error()));
  return std::make_unique<PictureWriting>(std::move(*encoding));
}

}  // namespace clipworks
