#include <clipworks/engine/pipeline/CodedSound.h>

#include <algorithm>
#include <exception>

#include <clipworks/engine/pipeline/SoundMixer.h>

namespace clipworks::engine {
namespace {

constexpr std::size_t packetsUnderWay = 256;

}  // namespace

CodedSound::CodedSound(const SoundJob& job) : job_(job), coded_(packetsUnderWay) {}

CodedSound::~CodedSound() { abandon(); }

Expected<void> CodedSound::open() {
  if (job_.copy) {
    const auto& lane = job_.lanes.front();
    format_ = owned<CodecParameters>(avcodec_parameters_alloc());
    if (avcodec_parameters_copy(format_.get(), &lane.file->parameters(lane.stream)) < 0) throw std::bad_alloc();
  } else {
    auto encoder = SoundEncoder::open(job_.encoder);
    if (!encoder) return tl::make_unexpected(encoder.error());
    encoder_.emplace(std::move(*encoder));
    format_ = encoder_->format();
  }
  thread_ = std::jthread([this] { run(); });
  return {};
}

void CodedSound::run() {
  try {
    auto done = job_.copy ? copyAll() : encodeAll();
    if (!done) return coded_.fail(done.error());
    coded_.finish();
  } catch (const std::bad_alloc&) {
    coded_.fail({ErrorKind::outOfMemory, "out of memory", 0});
  } catch (const std::exception& thrown) {
    coded_.fail({ErrorKind::internal, thrown.what(), 0});
  }
}

Expected<void> CodedSound::encodeAll() {
  auto mixer = SoundMixer::open(job_);
  if (!mixer) return tl::make_unexpected(mixer.error());
  std::vector<float> samples;
  for (std::int64_t at = 0; at < job_.length;) {
    const std::int64_t count = std::min<std::int64_t>(encoder_->samplesPerPacket(), job_.length - at);
    if (auto mixed = mixer->next(count, samples); !mixed) return mixed;
    if (auto pushed = encoder_->push(samples.data(), static_cast<int>(count)); !pushed) return pushed;
    at += count;
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
