#include <clipworks/media/samples/SampleSource.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include <clipworks/engine/input/SoundReader.h>
#include <clipworks/media/asset/EngineErrors.h>
#include <clipworks/media/asset/MediaTrack.h>
#include <clipworks/media/base/SettingsKeys.h>
#include <clipworks/media/composition/SegmentMapping.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

constexpr std::int64_t samplesPerBuffer = 8192;
constexpr int bitsPerSample = 16;

/// A stretch of sound and where it plays, in samples.
struct Piece {
  std::shared_ptr<const MediaTrack> media;
  std::int64_t source = 0;  // on the media's clock
  std::int64_t target = 0;  // on the track's timeline
  std::int64_t length = 0;
};

/// Full scale is 2^15, as decoders for 16 bits have it; halves go to the even neighbour, what is beyond is cut.
std::int16_t toInteger(float sample) {
  constexpr float fullScale = 32768.0F;
  return static_cast<std::int16_t>(std::clamp(std::lrintf(sample * fullScale), -32768L, 32767L));
}

class SoundSource final : public SampleSource {
 public:
  SoundSource(std::vector<Piece> pieces, int sampleRate, int channels)
      : pieces_(std::move(pieces)),
        sampleRate_(sampleRate),
        channels_(channels),
        format_(CMFormatDescription::pcm(sampleRate, static_cast<std::uint32_t>(channels), bitsPerSample)) {
    if (pieces_.empty()) return;
    position_ = pieces_.front().target;
    end_ = pieces_.back().target + pieces_.back().length;
  }

  Result<std::shared_ptr<CMSampleBuffer>, NSError> next() override {
    const std::int64_t count = std::min(samplesPerBuffer, end_ - position_);
    if (count <= 0) return std::shared_ptr<CMSampleBuffer>();
    samples_.assign(static_cast<std::size_t>(count * channels_), 0.0F);
    if (auto read = readPieces(position_, count); !read) return failure(read.error());

    std::vector<std::int16_t> integers(samples_.size());
    std::transform(samples_.begin(), samples_.end(), integers.begin(), toInteger);
    CMSampleTimingInfo timing;
    timing.duration = CMTime(1, sampleRate_);
    timing.presentationTimeStamp = CMTime(position_, sampleRate_);
    position_ += count;
    std::shared_ptr<CMSampleBuffer> buffer;
    const OSStatus made =
        CMSampleBufferCreate(CMBlockBuffer::make(integers.data(), integers.size() * sizeof(std::int16_t)), true, {},
                             format_, static_cast<std::size_t>(count), {timing}, {}, &buffer);
    if (made != noErr) return failure(makeError(AVError::unknown, "a buffer of sound could not be made"));
    return buffer;
  }

 private:
  /// Fills in what lies in the `count` samples from `position` on.
  Result<void, NSError> readPieces(std::int64_t position, std::int64_t count) {
    for (; piece_ < pieces_.size(); ++piece_) {
      const Piece& piece = pieces_[piece_];
      const std::int64_t from = std::max(position, piece.target);
      const std::int64_t to = std::min(position + count, piece.target + piece.length);
      if (from < to) {
        auto reader = readerOf(piece.media);
        if (!reader) return failure(reader.error());
        float* out = samples_.data() + (from - position) * channels_;
        if (auto read = (*reader)->read(piece.source + (from - piece.target), to - from, out); !read) {
          return failure(errorFromEngine(read.error()));
        }
      }
      if (piece.target + piece.length > position + count) break;
    }
    return {};
  }

  Result<engine::SoundReader*, NSError> readerOf(const std::shared_ptr<const MediaTrack>& media) {
    const auto known = readers_.find(media);
    if (known != readers_.end()) return &known->second;
    auto opened = engine::SoundReader::open(media->file(), media->stream());
    if (!opened) return failure(errorFromEngine(opened.error()));
    return &readers_.emplace(media, std::move(*opened)).first->second;
  }

  std::vector<Piece> pieces_;  // with rising targets, not overlapping
  int sampleRate_;
  int channels_;
  std::shared_ptr<const CMFormatDescription> format_;
  std::map<std::shared_ptr<const MediaTrack>, engine::SoundReader> readers_;
  std::int64_t position_ = 0;
  std::int64_t end_ = 0;
  std::size_t piece_ = 0;       // the first that does not end before position_
  std::vector<float> samples_;  // scratch
};

NSError unsupported(const char* sentence) { return makeError(AVError::operationNotSupportedForAsset, sentence); }

/// Whether `settings` ask for what is made: 16-bit integers of this machine, at the source's own rate and channels.
bool asksForWhatIsMade(const SettingsDictionary& settings, int sampleRate, int channels) {
  const auto isOr = [&settings](const char* key, double otherwise) { return settings.number(key).value_or(otherwise); };
  return isOr(AVFormatIDKey, 0) == kAudioFormatLinearPCM &&
         isOr(AVLinearPCMBitDepthKey, bitsPerSample) == bitsPerSample && isOr(AVLinearPCMIsBigEndianKey, 0) == 0 &&
         isOr(AVLinearPCMIsFloatKey, 0) == 0 && isOr(AVSampleRateKey, sampleRate) == sampleRate &&
         isOr(AVNumberOfChannelsKey, channels) == channels;
}

}  // namespace

Result<std::unique_ptr<SampleSource>, NSError> openSoundSource(const AVAssetTrack& track,
                                                               const SettingsDictionary& settings) {
  std::vector<Piece> pieces;
  int sampleRate = 0;
  int channels = 0;
  for (const MediaSegment& segment : resolveToMedia(track)) {
    if (segment.isEmpty()) continue;
    const auto& facts = segment.mediaTrack->facts();
    if (pieces.empty()) {
      sampleRate = facts.sampleRate;
      channels = facts.channels;
    }
    if (facts.sampleRate != sampleRate || facts.channels != channels) {
      return failure(unsupported("sound of several rates or channel counts is not read as one track"));
    }
    if (!(segment.source.duration == segment.target.duration)) {
      return failure(unsupported("sound that plays faster or slower is not read"));
    }
    Piece piece{segment.mediaTrack, ticks(segment.source.start, sampleRate), ticks(segment.target.start, sampleRate),
                0};
    piece.length = ticks(segment.target.end(), sampleRate) - piece.target;
    pieces.push_back(std::move(piece));
  }
  if (!asksForWhatIsMade(settings, sampleRate, channels)) {
    return failure(unsupported("sound is read as 16-bit PCM of its own rate and channels only"));
  }
  return std::make_unique<SoundSource>(std::move(pieces), sampleRate, channels);
}

}  // namespace clipworks
