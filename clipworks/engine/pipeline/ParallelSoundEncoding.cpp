#include <clipworks/engine/pipeline/ParallelSoundEncoding.h>

#include <algorithm>
#include <new>

namespace clipworks::engine {
namespace {

// How early an encoder begins: one packet for its delay, a few until its kinds of windows follow from the sound alone,
// and more than a second until its rate control has forgotten its start. With less, restless sound loses 4 to 9 dB of
// what it has above the noise, for half a second behind a join.
constexpr std::int64_t early = 64;

// How much too long it goes on: its last own packet needs the sound of the next, and one more to look ahead.
constexpr std::int64_t late = 3;

static_assert(ParallelSoundEncoding::sectionPackets > early + late);

// Coded or being coded; some minutes, so that packets of one part of the sound wait for those of another.
constexpr std::size_t sectionsUnderWay = 16;

}  // namespace

ParallelSoundEncoding::Section::Section(std::int64_t first) : begin(first), samples(early + sectionPackets + late) {}

Expected<std::unique_ptr<ParallelSoundEncoding>> ParallelSoundEncoding::open(const SoundEncoderSettings& settings,
                                                                             const Sections& sections,
                                                                             const Means& means) {
  auto encoder = SoundEncoder::open(settings);
  if (!encoder) return tl::make_unexpected(encoder.error());
  std::unique_ptr<ParallelSoundEncoding> encoding(
      new ParallelSoundEncoding(settings, sections, means, std::move(*encoder)));
  for (unsigned i = 0; i < means.encoders; ++i) {
    auto worker = Thread::start([made = encoding.get()] { made->work(); });
    if (worker) {
      encoding->workers_.push_back(std::move(*worker));
    } else if (encoding->workers_.empty()) {
      return tl::make_unexpected(worker.error());
    } else {
      break;  // those that there are make the same, later
    }
  }
  return encoding;
}

ParallelSoundEncoding::ParallelSoundEncoding(const SoundEncoderSettings& settings, const Sections& sections,
                                             const Means& means, SoundEncoder model)
    : settings_(settings),
      sections_(sections),
      model_(std::move(model)),
      position_(firstPacket(sections.first)),
      next_(sections.first),
      taken_(sections.first),
      waiting_(means.sectionsAhead),
      order_(sectionsUnderWay) {}

ParallelSoundEncoding::~ParallelSoundEncoding() { abandon(); }

void ParallelSoundEncoding::abandon() {
  waiting_.abandon();
  order_.abandon();
  const std::lock_guard lock(mutex_);
  for (const auto& section : open_) section->samples.abandon();
}

std::int64_t ParallelSoundEncoding::firstPacket(std::int64_t section) {
  return section == 0 ? 0 : section * sectionPackets - early;
}

std::int64_t ParallelSoundEncoding::endPacket(std::int64_t section) { return section * sectionPackets + late; }

bool ParallelSoundEncoding::push(std::vector<float> samples) {
  if (position_ == firstPacket(next_) && next_ != sections_.end && !beginSection(next_++)) return false;
  ++position_;
  for (const auto& section : open_) {
    if (!section->samples.push(samples)) return false;
  }
  if (open_.size() > 1 && position_ == endPacket(next_ - 1)) {
    open_.front()->samples.finish();
    const std::lock_guard lock(mutex_);
    open_.pop_front();
  }
  return true;
}

bool ParallelSoundEncoding::beginSection(std::int64_t index) {
  auto section = std::make_shared<Section>(firstPacket(index));
  std::promise<Expected<Packets>> packets;
  if (!order_.push(packets.get_future()) || !waiting_.push({section, std::move(packets)})) return false;
  const std::lock_guard lock(mutex_);
  open_.push_back(std::move(section));
  return true;
}

void ParallelSoundEncoding::finish() {
  for (const auto& section : open_) section->samples.finish();
  waiting_.finish();
  order_.finish();
}

void ParallelSoundEncoding::fail(Error error) {
  for (const auto& section : open_) section->samples.fail(error);
  waiting_.finish();
  order_.fail(std::move(error));
}

void ParallelSoundEncoding::work() {
  for (;;) {
    auto waiting = waiting_.pop();
    if (!waiting || !*waiting) return;
    Expected<Packets> packets = failed(ErrorKind::outOfMemory, "out of memory");
    try {
      packets = encode(*(*waiting)->section);
    } catch (const std::bad_alloc&) {  // said already
    }
    (*waiting)->packets.set_value(std::move(packets));
  }
}

// The first section has nothing before it for its encoder to begin with. It gets its own beginning backwards, so that
// its rate control has forgotten its start and the sound goes on without a step; packets of that are dropped.
Expected<std::int64_t> ParallelSoundEncoding::runUp(const std::deque<std::vector<float>>& beginning,
                                                    SoundEncoder& encoder) const {
  const auto channels = static_cast<std::ptrdiff_t>(settings_.channels);
  std::int64_t packets = 0;
  std::vector<float> backwards;
  for (auto portion = beginning.rbegin(); portion != beginning.rend(); ++portion) {
    if (std::ssize(*portion) != SoundEncoder::samplesPerPacket * channels) continue;  // the end of short sound
    backwards.resize(portion->size());
    for (std::ptrdiff_t i = 0; i < SoundEncoder::samplesPerPacket; ++i) {
      std::copy_n(portion->end() - (i + 1) * channels, channels, backwards.begin() + i * channels);
    }
    if (auto pushed = encoder.push(backwards.data(), SoundEncoder::samplesPerPacket); !pushed)
      return tl::make_unexpected(pushed.error());
    if (auto dropped = encoder.pull(); !dropped) return tl::make_unexpected(dropped.error());
    ++packets;
  }
  return packets;
}

Expected<ParallelSoundEncoding::Packets> ParallelSoundEncoding::encode(Section& section) const {
  auto encoder = SoundEncoder::open(settings_);
  if (!encoder) return tl::make_unexpected(encoder.error());
  std::deque<std::vector<float>> beginning;
  while (section.begin == 0 && std::ssize(beginning) < early) {
    auto samples = section.samples.pop();
    if (!samples) return tl::make_unexpected(samples.error());
    if (!*samples) break;
    beginning.push_back(std::move(**samples));
  }
  const auto before = runUp(beginning, *encoder);
  if (!before) return tl::make_unexpected(before.error());

  Packets packets;
  const std::int64_t first = -encoder->delay();
  const std::int64_t offset = (section.begin - *before) * SoundEncoder::samplesPerPacket;
  const auto takeAll = [&]() -> Expected<void> {
    for (;;) {
      auto packet = encoder->pull();
      if (!packet) return tl::make_unexpected(packet.error());
      if (!*packet) return {};
      (**packet)->pts += offset;
      (**packet)->dts += offset;
      if ((**packet)->pts >= first) packets.push_back(std::move(**packet));
    }
  };
  for (;;) {
    std::optional<std::vector<float>> portion;
    if (!beginning.empty()) {
      portion = std::move(beginning.front());
      beginning.pop_front();
    } else {
      auto samples = section.samples.pop();
      if (!samples) return tl::make_unexpected(samples.error());
      portion = std::move(*samples);
    }
    if (!portion) break;
    const auto count = static_cast<int>(portion->size()) / settings_.channels;
    if (auto pushed = encoder->push(portion->data(), count); !pushed) return tl::make_unexpected(pushed.error());
    if (auto taken = takeAll(); !taken) return tl::make_unexpected(taken.error());
  }
  if (auto finished = encoder->finish(); !finished) return tl::make_unexpected(finished.error());
  if (auto taken = takeAll(); !taken) return tl::make_unexpected(taken.error());
  return packets;
}

Expected<std::optional<Packet>> ParallelSoundEncoding::pull() {
  while (ready_.empty() && !isEnded_) {
    auto next = order_.pop();
    if (!next) return tl::make_unexpected(next.error());
    if (!*next) {
      if (!sections_.end) ready_ = std::move(overhang_);
      isEnded_ = true;
      break;
    }
    try {
      auto packets = (**next).get();
      if (!packets) return tl::make_unexpected(packets.error());
      join(std::move(*packets));
    } catch (const std::future_error&) {  // it was abandoned while it waited for an encoder
      return failed(ErrorKind::cancelled, "cancelled");
    }
  }
  if (ready_.empty()) return std::nullopt;
  std::optional<Packet> packet(std::move(ready_.front()));
  ready_.pop_front();
  return packet;
}

// Replaces the overhang of the section before this one.
void ParallelSoundEncoding::join(Packets packets) {
  constexpr std::int64_t length = sectionPackets * SoundEncoder::samplesPerPacket;
  const std::int64_t begin = taken_ == 0 ? INT64_MIN : taken_ * length;
  const std::int64_t end = ++taken_ * length;
  overhang_.clear();
  for (auto& packet : packets) {
    if (packet->pts >= begin) (packet->pts < end ? ready_ : overhang_).push_back(std::move(packet));
  }
}

}  // namespace clipworks::engine
