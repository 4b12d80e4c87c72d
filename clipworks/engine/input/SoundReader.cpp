#include <clipworks/engine/input/SoundReader.h>

#include <algorithm>
#include <cstdlib>

#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/input/PictureDecoder.h>

namespace clipworks::engine {
namespace {

// What every codec here needs to settle after a jump: two AAC frames, 80 ms of Opus (RFC 7845, 4.6), and spare.
constexpr int settleSamples = 4096;
constexpr double settleSeconds = 0.1;

// Packets of containers with coarse clocks jitter; only a step beyond this is a real gap or overlap. Telephones stamp
// AMR frames (20 ms each) when they arrive, up to a frame early or late.
constexpr double jitterSeconds = 0.003;
constexpr double arrivalJitterSeconds = 0.05;

bool isStampedOnArrival(AVCodecID codec) { return codec == AV_CODEC_ID_AMR_NB || codec == AV_CODEC_ID_AMR_WB; }

double jitterOf(AVCodecID codec) { return isStampedOnArrival(codec) ? arrivalJitterSeconds : jitterSeconds; }

}  // namespace

Expected<SoundReader> SoundReader::open(std::shared_ptr<const MediaFile> file, int stream) {
  const StreamFacts& facts = file->stream(stream);
  SoundReader reader(std::move(file), facts);
  if (auto started = reader.restart(); !started) return tl::make_unexpected(started.error());
  return reader;
}

// With a decoder that knows of nothing: some keep a little of what they decoded when they are flushed.
Expected<void> SoundReader::restart() {
  auto packets = file_->openStream(facts_->index);
  if (!packets) return tl::make_unexpected(packets.error());
  packets_.emplace(std::move(*packets));
  const AVCodecParameters& parameters = file_->parameters(facts_->index);
  auto decoder = openDecoder(*file_, parameters, AVRational{1, facts_->timescale}, 1);
  if (!decoder) return tl::make_unexpected(decoder.error());
  decoder_ = std::move(*decoder);
  forgetDecoded();
  return {};
}

void SoundReader::forgetDecoded() {
  avcodec_flush_buffers(decoder_.get());
  drained_ = false;
  anchored_ = false;
  start_ = 0;
  block_.clear();
}

bool SoundReader::jumpsExactly() const {
  AVStream* stream = &packets_->stream();
  const int count = avformat_index_get_entries_count(stream);
  if (count < 3) return false;
  const auto timeOf = [stream](int i) { return avformat_index_get_entry(stream, i)->timestamp; };
  const std::int64_t step = timeOf(1) - timeOf(0);
  for (int i = 2; i < count - 1; ++i) {  // the last one may be cut short
    if (timeOf(i) - timeOf(i - 1) != step) return false;
  }
  const AVRational samples{1, facts_->sampleRate};
  return av_compare_ts(av_rescale_q(step, stream->time_base, samples), samples, step, stream->time_base) == 0;
}

Expected<void> SoundReader::jumpTo(std::int64_t position) {
  const std::int64_t settle = settleSamples + static_cast<std::int64_t>(settleSeconds * sampleRate());
  const std::int64_t from = position - settle;
  const bool ahead = from > end();
  if (!ahead && position >= start_ && anchored_) return {};
  // Such a packet's own time is a frame off; where its sound lies is counted from the start, unless that is known.
  if (from <= 0 || (isStampedOnArrival(decoder_->codec_id) && places_.empty())) return restart();
  if (!packets_->seeksWhereItIs()) {
    if (auto again = restart(); !again) return again;
  }
  if (!packets_->seek(av_rescale(from, facts_->timescale, sampleRate()))) return restart();
  forgetDecoded();
  return {};
}

Expected<void> SoundReader::learnPlaces(std::int64_t from, std::int64_t to, const std::stop_token& stop) {
  places_.clear();
  if (auto jumped = jumpTo(from); !jumped) return jumped;
  isLearning_ = true;
  Expected<bool> more = true;
  while (more && *more && (!anchored_ || end() < to) && !stop.stop_requested()) more = decodeBlock();
  isLearning_ = false;
  if (stop.stop_requested()) return failed(ErrorKind::cancelled, "cancelled");
  if (!more) return tl::make_unexpected(more.error());
  return {};
}

Expected<void> SoundReader::read(std::int64_t position, std::int64_t count, float* samples) {
  if (auto jumped = jumpTo(position); !jumped) return jumped;
  const auto channels = static_cast<std::int64_t>(facts_->channels);
  while (count > 0) {
    const std::int64_t available = end() - position;
    if (anchored_ && position < start_) {  // a gap between packets
      const std::int64_t silent = std::min(count, start_ - position);
      samples = std::fill_n(samples, silent * channels, 0.0F);
      position += silent;
      count -= silent;
    } else if (available > 0) {
      const std::int64_t part = std::min(count, available);
      const auto from = block_.begin() + (position - start_) * channels;
      samples = std::copy(from, from + part * channels, samples);
      position += part;
      count -= part;
    } else {
      auto more = decodeBlock();
      if (!more) return tl::make_unexpected(more.error());
      if (*more) continue;
      std::fill_n(samples, count * channels, 0.0F);
      return {};
    }
  }
  return {};
}

// Replaces block_ by the next decoded frame; false at the end of the track.
Expected<bool> SoundReader::decodeBlock() {
  Frame frame = makeFrame();
  Packet packet = makePacket();
  for (;;) {
    const int code = avcodec_receive_frame(decoder_.get(), frame.get());
    if (code == 0) {
      if (auto taken = takeFrame(frame); !taken) return tl::make_unexpected(taken.error());
      return true;
    }
    if (code == AVERROR_EOF) return false;
    if (code != AVERROR(EAGAIN)) continue;  // one broken packet: silence
    const auto got = packets_->read(*packet);
    if (!got) return got;
    if (!*got) {
      if (drained_) return false;
      drained_ = true;
      avcodec_send_packet(decoder_.get(), nullptr);
    } else {
      avcodec_send_packet(decoder_.get(), packet.get());
    }
    av_packet_unref(packet.get());
  }
}

Expected<void> SoundReader::prepareConverter(const AVFrame& frame) {
  if (converter_ != nullptr) return {};
  AVChannelLayout to{};
  av_channel_layout_default(&to, facts_->channels);
  AVChannelLayout from{};
  if (frame.ch_layout.nb_channels == facts_->channels) {
    av_channel_layout_copy(&from, &to);  // same count: same order, whatever the layout is called
  } else {
    av_channel_layout_copy(&from, &frame.ch_layout);
  }
  SwrContext* converter = nullptr;
  const int code = swr_alloc_set_opts2(&converter, &to, AV_SAMPLE_FMT_FLT, sampleRate(), &from,
                                       static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
  av_channel_layout_uninit(&from);
  av_channel_layout_uninit(&to);
  converter_.reset(converter);
  const int begun = code < 0 ? code : swr_init(converter_.get());
  if (begun < 0) return tl::make_unexpected(libraryError(begun, file_->name() + ": the sound cannot be converted"));
  return {};
}

// Where the sound of a packet of that time lies, behind what was decoded so far.
std::int64_t SoundReader::placeOf(std::int64_t time) {
  const auto known = std::lower_bound(places_.begin(), places_.end(), time,
                                      [](const Place& place, std::int64_t wanted) { return place.time < wanted; });
  if (!isLearning_ && known != places_.end() && known->time == time) return known->position;
  const std::int64_t counted = end();
  const std::int64_t told = av_rescale(time, sampleRate(), facts_->timescale);
  const auto jitter = static_cast<std::int64_t>(jitterOf(decoder_->codec_id) * sampleRate());
  const std::int64_t position = !anchored_ || std::llabs(told - counted) > jitter ? told : counted;
  if (isLearning_ && (places_.empty() || places_.back().time < time)) places_.push_back({time, position});
  return position;
}

Expected<void> SoundReader::takeFrame(const Frame& frame) {
  if (auto ready = prepareConverter(*frame); !ready) return ready;
  const std::int64_t position = frame->pts == AV_NOPTS_VALUE ? end() : placeOf(frame->pts);
  const int room = swr_get_out_samples(converter_.get(), frame->nb_samples);
  block_.resize(static_cast<std::size_t>(std::max(room, 0)) * static_cast<std::size_t>(facts_->channels));
  auto* out = reinterpret_cast<std::uint8_t*>(block_.data());
  const int made = swr_convert(converter_.get(), &out, room, const_cast<const std::uint8_t**>(frame->extended_data),
                               frame->nb_samples);
  if (made < 0) return tl::make_unexpected(libraryError(made, file_->name() + ": the sound cannot be converted"));
  block_.resize(static_cast<std::size_t>(made) * static_cast<std::size_t>(facts_->channels));
  start_ = position;
  anchored_ = true;
  return {};
}

}  // namespace clipworks::engine
