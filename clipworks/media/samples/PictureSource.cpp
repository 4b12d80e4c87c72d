#include <clipworks/media/samples/SampleSource.h>

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include <clipworks/engine/input/PictureReader.h>
#include <clipworks/engine/output/VideoEncoder.h>
#include <clipworks/engine/pictures/BiPlanar.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/composition/PictureTimeline.h>

namespace clipworks {
namespace {

/// Decodes pictures for the buffers of one source, as long as one of them may ask. Thread-safe.
class PictureDecoding {
 public:
  PictureDecoding(std::uint32_t pixelFormatType, engine::PictureRange range)
      : pixelFormatType_(pixelFormatType), converter_(range) {}

  /// Null when nothing there can be decoded.
  std::shared_ptr<CVPixelBuffer> decode(const std::shared_ptr<const MediaTrack>& media, std::size_t picture) {
    const std::lock_guard lock(mutex_);
    try {
      auto* reader = readerOf(media);
      if (reader == nullptr) return nullptr;
      auto decoded = reader->picture(picture);
      if (!decoded) return nullptr;
      auto converted = converter_.convert(*decoded);
      if (!converted) return nullptr;
      return wrapped(std::move(*converted), *media);
    } catch (const std::exception&) {
      return nullptr;  // out of memory
    }
  }

 private:
  engine::PictureReader* readerOf(const std::shared_ptr<const MediaTrack>& media) {
    const auto known = readers_.find(media);
    if (known != readers_.end()) return &known->second;
    auto opened = engine::PictureReader::open(media->file(), media->stream());
    if (!opened) return nullptr;
    return &readers_.emplace(media, std::move(*opened)).first->second;
  }

  [[nodiscard]] std::shared_ptr<CVPixelBuffer> wrapped(engine::Frame frame, const MediaTrack& media) const {
    const auto owner = std::make_shared<const engine::Frame>(std::move(frame));
    const AVFrame& pixels = **owner;
    const auto width = static_cast<std::size_t>(pixels.width);
    const auto height = static_cast<std::size_t>(pixels.height);
    std::vector<PixelPlane> planes{
        {pixels.data[0], static_cast<std::size_t>(pixels.linesize[0]), width, height},
        {pixels.data[1], static_cast<std::size_t>(pixels.linesize[1]), (width + 1) / 2, (height + 1) / 2}};
    auto buffer = std::make_shared<CVPixelBuffer>(width, height, pixelFormatType_, std::move(planes), owner);
    const auto colour = engine::completeColour(media.file()->parameters(media.stream()));
    buffer->setAttachments({{kCVImageBufferYCbCrMatrixKey, colour.matrix},
                            {kCVImageBufferColorPrimariesKey, colour.primaries},
                            {kCVImageBufferTransferFunctionKey, colour.transfer}});
    return buffer;
  }

  const std::uint32_t pixelFormatType_;
  std::mutex mutex_;
  engine::BiPlanarConverter converter_;                                         // guarded by mutex_
  std::map<std::shared_ptr<const MediaTrack>, engine::PictureReader> readers_;  // guarded by mutex_
};

class PictureSource final : public SampleSource {
 public:
  PictureSource(std::vector<ScreenPicture> pictures, const CMTime& end, std::shared_ptr<PictureDecoding> decoding,
                std::shared_ptr<const CMFormatDescription> format)
      : pictures_(std::move(pictures)), end_(end), decoding_(std::move(decoding)), format_(std::move(format)) {}

  Result<std::shared_ptr<CMSampleBuffer>, NSError> next() override {
    if (next_ == pictures_.size()) return std::shared_ptr<CMSampleBuffer>();
    const ScreenPicture& shown = pictures_[next_++];
    CMSampleTimingInfo timing;
    timing.presentationTimeStamp = shown.since;
    timing.duration = (next_ < pictures_.size() ? pictures_[next_].since : end_) - shown.since;
    return CMSampleBuffer::picture(format_, timing,
                                   [decoding = decoding_, media = shown.media, picture = shown.picture] {
                                     return decoding->decode(media, picture);
                                   });
  }

 private:
  std::vector<ScreenPicture> pictures_;
  CMTime end_;  // of the track
  std::shared_ptr<PictureDecoding> decoding_;
  std::shared_ptr<const CMFormatDescription> format_;
  std::size_t next_ = 0;
};

}  // namespace

Result<std::unique_ptr<SampleSource>, NSError> openPictureSource(const AVAssetTrack& track,
                                                                 const SettingsDictionary& settings) {
  const auto wanted = settings.integer(kCVPixelBufferPixelFormatTypeKey);
  const bool isFull = wanted == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
  if (!isFull && wanted != kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange) {
    return failure(
        makeError(AVError::operationNotSupportedForAsset, "pictures are read in the pixel formats 420f and 420v only"));
  }
  const auto timeline = PictureTimeline::make(resolveToMedia(track));
  if (!timeline) return failure(timeline.error());
  auto pictures = timeline->pictures();
  CMVideoDimensions size;
  if (!pictures.empty()) {
    const auto& facts = pictures.front().media->facts();
    size = {facts.codedWidth, facts.codedHeight};
  }
  const auto pixelFormatType = static_cast<std::uint32_t>(*wanted);
  auto decoding = std::make_shared<PictureDecoding>(pixelFormatType,
                                                    isFull ? engine::PictureRange::full : engine::PictureRange::video);
  return std::make_unique<PictureSource>(std::move(pictures), timeline->end(), std::move(decoding),
                                         CMFormatDescription::pictures(pixelFormatType, size));
}

}  // namespace clipworks
