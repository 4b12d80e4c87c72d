#include <clipworks/engine/pipeline/CodedSound.h>

#include <algorithm>
#include <exception>
#include <new>

#include <clipworks/engine/Processors.h>
#include <clipworks/engine/pipeline/SoundMixer.h>
#include <clipworks/engine/pipeline/SoundParts.h>

namespace clipworks::engine {
namespace {

constexpr std::size_t packetsUnderWay = 256;

// Beyond this many, decoding and mixing are the slower part.
constexpr unsigned mostEncoders = 4;

// A stretch takes longer than its encoding, plain sound less. Where there are both, mixing may run ahead to the
// stretch.
constexpr std::size_t sectionsBeforeStretch = 4;

ParallelSoundEncoding::Means meansFor(const SoundJob& job, std::size_t parts) {
  const int threads = job.threads > 0 ? std::min(job.threads, usableProcessors()) : usableProcessors();
  const auto share = static_cast<unsigned>(threads) / static_cast<unsigned>(parts);
  const unsigned encoders = std::clamp(share, 1U, mostEncoders);
  return {encoders, stretches(job, 0, job.length) ? sectionsBeforeStretch : encoders};
}

/// Carries out a stage, and ends what it fills whichever way that went.
template <class Filled, class Stage>
void carryOut(Filled& filled, Stage stage) {
  try {
    if (Expected<void> done = stage(); !done) return filled.fail(done.error());
    filled.finish();
  } catch (const std::bad_alloc&) {
    filled.fail({ErrorKind::outOfMemory, "out of memory", 0});
  } catch (const std::exception& thrown) {
    filled.fail({ErrorKind::internal, thrown.what(), 0});
  }
}

}  // namespace

CodedSound::CodedSound(const SoundJob& job) : job_(job), copied_(packetsUnderWay) {}

CodedSound::~CodedSound() { abandon(); }

void CodedSound::abandon() {
  abandoned_.request_stop();
  copied_.abandon();
  const std::lock_guard lock(mutex_);
  for (const auto& part : parts_) part.encoding->abandon();
}

Expected<void> CodedSound::open() {
  if (job_.copy) {
    const auto& lane = job_.lanes.front();
    format_ = owned<CodecParameters>(avcodec_parameters_alloc());
    if (avcodec_parameters_copy(format_.get(), &lane.file->parameters(lane.stream)) < 0) throw std::bad_alloc();
    return Thread::start([this] { carryOut(copied_, [this] { return copyAll(); }); }).map([this](Thread thread) {
      copying_ = std::move(thread);
    });
  }
  auto parts = soundParts(job_);
  if (!parts) return tl::make_unexpected(parts.error());
  const auto means = meansFor(job_, parts->size());
  std::vector<Part> opened;
  for (const auto& sections : *parts) {
    auto encoding = ParallelSoundEncoding::open(job_.encoder, sections, means);
    if (!encoding) return tl::make_unexpected(encoding.error());
    opened.push_back({sections, std::move(*encoding), {}});
  }
  {
    const std::lock_guard lock(mutex_);
    if (abandoned_.stop_requested()) return failed(ErrorKind::cancelled, "cancelled");
    parts_ = std::move(opened);
  }
  format_ = parts_.front().encoding->format();
  for (auto& part : parts_) {
    auto mixing = Thread::start([this, &part] { carryOut(*part.encoding, [this, &part] { return mixAll(part); }); });
    if (!mixing) return tl::make_unexpected(mixing.error());
    part.mixing = std::move(*mixing);
  }
  return {};
}

Expected<std::optional<Packet>> CodedSound::next() {
  if (job_.copy) return copied_.pop();
  for (; part_ < parts_.size(); ++part_) {
    auto packet = parts_[part_].encoding->pull();
    if (!packet || *packet) return packet;
  }
  return std::nullopt;
}

Expected<void> CodedSound::mixAll(const Part& part) {
  constexpr std::int64_t portion = SoundEncoder::samplesPerPacket;
  const std::int64_t begin = ParallelSoundEncoding::firstPacket(part.sections.first) * portion;
  const std::int64_t end = part.sections.end
                               ? std::min(ParallelSoundEncoding::endPacket(*part.sections.end) * portion, job_.length)
                               : job_.length;
  auto mixer = SoundMixer::open(job_, begin, abandoned_.get_token());
  if (!mixer) return tl::make_unexpected(mixer.error());
  for (std::int64_t at = begin; at < end; at += portion) {
    std::vector<float> samples;
    if (auto mixed = mixer->next(std::min(portion, end - at), samples); !mixed) return mixed;
    if (!part.encoding->push(std::move(samples))) return failed(ErrorKind::cancelled, "cancelled");
  }
  return {};
}

Expected<void> CodedSound::copyAll() {
  const SoundLane& lane = job_.lanes.front();
  const SoundPiece& piece = lane.pieces.front();
  const StreamFacts& facts = lane.file->stream(lane.stream);
  auto packets = lane.file->openStream(lane.stream);
  if (!packets) return tl::make_unexpected(packets.error());
  const auto inSamples = [&](std::int64_t ticks) { return av_rescale(ticks, facts.sampleRate, facts.timescale); };
  const int frameSize = lane.file->parameters(lane.stream).frame_size;
  const std::int64_t samplesOfPacket = frameSize > 0 ? frameSize : SoundEncoder::samplesPerPacket;
  for (;;) {
    Packet packet = makePacket();
    const auto got = packets->read(*packet);
    if (!got) return tl::make_unexpected(got.error());
    if (!*got) return {};
    packet->pts = inSamples(packet->pts) - piece.source;
    packet->dts = packet->pts;
    // Fragments may leave the length of a sample to the codec.
    packet->duration = packet->duration > 0 ? inSamples(packet->duration) : samplesOfPacket;
    if (packet->pts >= piece.length) return {};
    packet->duration = std::min(packet->duration, piece.length - packet->pts);
    if (!copied_.push(std::move(packet))) return failed(ErrorKind::cancelled, "cancelled");
  }
}

}  // namespace clipworks::engine
