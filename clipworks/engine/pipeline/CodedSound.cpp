#include <clipworks/engine/pipeline/CodedSound.h>

#include <algorithm>
#include <exception>

#include <clipworks/engine/pipeline/SoundMixer.h>

namespace clipworks::engine {
namespace {

constexpr std::size_t packetsUnderWay = 256;

// Mixing and encoding take turns at being the slower: a stretch takes longer than its encoding, a plain stretch of sound
// less. Where there are both, mixing may run ahead by a minute or so.
constexpr std::size_t mixedUnderWay = 64;
constexpr std::size_t mixedBytesBesideStretches = 16 << 20;
constexpr std::size_t usualBlock = 1024;  // samples

std::size_t mixedCapacity(const SoundJob& job) {
  const bool stretches = std::any_of(job.lanes.begin(), job.lanes.end(), [](const SoundLane& lane) {
    return std::any_of(lane.pieces.begin(), lane.pieces.end(), [](const SoundPiece& piece) { return piece.isStretched(); });
  });
  if (!stretches) return mixedUnderWay;
  return mixedBytesBesideStretches / (usualBlock * sizeof(float) * static_cast<std::size_t>(job.encoder.channels));
}

/// Carries out a stage, and ends its queue whichever way that went.
template <class Item, class Stage>
void carryOut(BoundedQueue<Item>& queue, Stage stage) {
  try {
    if (Expected<void> done = stage(); !done) return queue.fail(done.error());
    queue.finish();
  } catch (const std::bad_alloc&) {
    queue.fail({ErrorKind::outOfMemory, "out of memory", 0});
  } catch (const std::exception& thrown) {
    queue.fail({ErrorKind::internal, thrown.what(), 0});
  }
}

}  // namespace

CodedSound::CodedSound(const SoundJob& job) : job_(job), mixed_(mixedCapacity(job)), coded_(packetsUnderWay) {}

CodedSound::~CodedSound() { abandon(); }

void CodedSound::abandon() {
  mixed_.abandon();
  coded_.abandon();
}

Expected<void> CodedSound::open() {
  if (job_.copy) {
    const auto& lane = job_.lanes.front();
    format_ = owned<CodecParameters>(avcodec_parameters_alloc());
    if (avcodec_parameters_copy(format_.get(), &lane.file->parameters(lane.stream)) < 0) throw std::bad_alloc();
    coding_ = std::jthread([this] { copy(); });
    return {};
  }
  auto encoder = SoundEncoder::open(job_.encoder);
  if (!encoder) return tl::make_unexpected(encoder.error());
  encoder_.emplace(std::move(*encoder));
  format_ = encoder_->format();
  mixing_ = std::jthread([this] { mix(); });
  coding_ = std::jthread([this] { encode(); });
  return {};
}

void CodedSound::copy() {
  carryOut(coded_, [this] { return copyAll(); });
}

void CodedSound::mix() {
  carryOut(mixed_, [this] { return mixAll(); });
}

void CodedSound::encode() {
  carryOut(coded_, [this] { return encodeAll(); });
  mixed_.abandon();  // after a failure nobody takes what is mixed
}

Expected<void> CodedSound::mixAll() {
  auto mixer = SoundMixer::open(job_);
  if (!mixer) return tl::make_unexpected(mixer.error());
  const std::int64_t portion = encoder_->samplesPerPacket();
  for (std::int64_t at = 0; at < job_.length; at += portion) {
    std::vector<float> samples;
    if (auto mixed = mixer->next(std::min(portion, job_.length - at), samples); !mixed) return mixed;
    if (!mixed_.push(std::move(samples))) return failed(ErrorKind::cancelled, "cancelled");
  }
  return {};
}

Expected<void> CodedSound::encodeAll() {
  for (;;) {
    auto samples = mixed_.pop();
    if (!samples) return tl::make_unexpected(samples.error());
    if (!*samples) break;
    const auto count = static_cast<int>((*samples)->size()) / job_.encoder.channels;
    if (auto pushed = encoder_->push((*samples)->data(), count); !pushed) return pushed;
    if (auto passed = passOn(); !passed) return passed;
  }
  if (auto finished = encoder_->finish(); !finished) return finished;
  return passOn();
}

Expected<void> CodedSound::passOn() {
  for (;;) {
    auto packet = encoder_->pull();
    if (!packet) return tl::make_unexpected(packet.error());
    if (!*packet) return {};
    if (!coded_.push(std::move(**packet))) return failed(ErrorKind::cancelled, "cancelled");
  }
}

Expected<void> CodedSound::copyAll() {
  const SoundLane& lane = job_.lanes.front();
  const SoundPiece& piece = lane.pieces.front();
  const StreamFacts& facts = lane.file->stream(lane.stream);
  auto input = lane.file->openStream(lane.stream);
  if (!input) return tl::make_unexpected(input.error());
  const AVRational from = input->get()->streams[lane.stream]->time_base;
  const AVRational to{1, facts.sampleRate};
  for (;;) {
    Packet packet = makePacket();
    if (av_read_frame(input->get(), packet.get()) < 0) return {};
    if (packet->stream_index != lane.stream) continue;
    packet->pts = av_rescale_q(packet->pts, from, to) - piece.source;
    packet->dts = packet->pts;
    packet->duration = av_rescale_q(packet->duration, from, to);
    if (packet->pts >= piece.length) return {};
    packet->duration = std::min(packet->duration, piece.length - packet->pts);
    if (!coded_.push(std::move(packet))) return failed(ErrorKind::cancelled, "cancelled");
  }
}

}  // namespace clipworks::engine
