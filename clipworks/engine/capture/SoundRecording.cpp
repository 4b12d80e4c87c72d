#include <clipworks/engine/capture/SoundRecording.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <new>
#include <utility>

namespace clipworks::engine {
namespace {

// How long one look at the source waits; `wake()` ends it earlier.
constexpr std::chrono::milliseconds readPatience{100};
// A source that gives nothing for so long is gone. At the start it may have to wake up first: headsets take seconds.
constexpr std::chrono::seconds silencePatience{5};
constexpr std::chrono::seconds startPatience{10};
// What sounded at the stop comes later by the source's latency; more than this no source has.
constexpr std::chrono::seconds latencyPatience{2};

// In samples: later than any recording, and far enough from the greatest number for places before the start.
constexpr std::int64_t noLimit = std::numeric_limits<std::int64_t>::max() / 2;

}  // namespace

Expected<std::unique_ptr<SoundRecording>> SoundRecording::prepare(const std::filesystem::path& path,
                                                                  const PcmFormat& format) {
  auto capture = openSoundCapture(format);
  if (!capture) return tl::make_unexpected(capture.error());
  auto writer = PcmMovieWriter::create(path, format);
  if (!writer) return tl::make_unexpected(writer.error());
  return std::unique_ptr<SoundRecording>(new SoundRecording(path, format, std::move(*capture), std::move(*writer)));
}

SoundRecording::SoundRecording(std::filesystem::path path, const PcmFormat& format,
                               std::unique_ptr<SoundCapture> capture, std::unique_ptr<PcmMovieWriter> writer)
    : path_(std::move(path)),
      format_(format),
      capture_(std::move(capture)),
      writer_(std::move(writer)),
      meter_(format.channels) {}

SoundRecording::~SoundRecording() {
  if (!thread_.isJoinable()) {
    ::unlink(path_.c_str());
    return;
  }
  isAbandoned_ = true;
  stop(CaptureClock::now());
  thread_.join();
}

Expected<void> SoundRecording::start(CaptureClock::time_point moment, const EndHandler& onEnd) {
  return Thread::start([this, moment, onEnd] { run(moment, onEnd); }).map([this](Thread thread) {
    thread_ = std::move(thread);
  });
}

void SoundRecording::stop(CaptureClock::time_point moment) {
  {
    const std::lock_guard lock(mutex_);
    if (!stopMoment_) stopMoment_ = moment;
  }
  capture_->wake();
}

std::optional<CaptureClock::time_point> SoundRecording::stopMoment() const {
  const std::lock_guard lock(mutex_);
  return stopMoment_;
}

void SoundRecording::run(CaptureClock::time_point start, const EndHandler& onEnd) {
  Expected<void> outcome;
  try {
    outcome = record(start);
    // Whatever ended it, the file is closed; what it lacks is told by the first failure.
    const auto closed = writer_->finish();
    if (outcome) outcome = closed;
  } catch (const std::bad_alloc&) {
    outcome = failed(ErrorKind::outOfMemory, "out of memory while recording");
  } catch (const std::exception& thrown) {
    outcome = failed(ErrorKind::internal, thrown.what());
  }
  if (!isAbandoned_) onEnd(outcome);
}

Expected<void> SoundRecording::record(CaptureClock::time_point start) {
  if (auto started = capture_->start(); !started) return started;
  auto lastSound = CaptureClock::now();
  while (!isAbandoned_) {
    const auto stop = stopMoment();
    if (stop && writer_->frames() >= framesBetween(start, *stop)) return {};
    const auto sound = capture_->read(readPatience);
    if (!sound) return tl::make_unexpected(sound.error());
    const auto now = CaptureClock::now();
    if (!sound->samples.empty()) {
      lastSound = now;
      if (auto taken = take(*sound, start); !taken) return taken;
    } else if (stop && now > *stop + latencyPatience) {
      break;
    } else if (now > lastSound + (isPlaced_ ? silencePatience : startPatience)) {
      return failed(ErrorKind::deviceLost, "no sound comes from the microphone any more");
    }
  }
  if (writer_->frames() > 0 || isAbandoned_) return {};
  return failed(ErrorKind::deviceLost, "no sound came from the microphone");
}

Expected<void> SoundRecording::take(const CapturedSound& sound, CaptureClock::time_point start) {
  meter_.add(sound.samples);
  // Only where sound does not follow what came before is its place measured: the samples count time better than any
  // report of latency.
  const bool isMeasured = !isPlaced_ || sound.followsGap;
  const std::int64_t end = writer_->frames();
  const std::int64_t position = isMeasured ? framesBetween(start, sound.begin) : end;
  // Until something of it lies behind the start, the place is measured again.
  const auto stop = stopMoment();
  const std::int64_t limit = stop ? framesBetween(start, *stop) : noLimit;
  if (auto placed = place(sound, isPlaced_ ? std::max(position, end) : position, limit); !placed) return placed;
  isPlaced_ = isPlaced_ || writer_->frames() > 0;
  frames_ = writer_->frames();
  return {};
}

/// Writes what of the sound lies behind the end of the file and before `limit`, after silence where there is a hole.
Expected<void> SoundRecording::place(const CapturedSound& sound, std::int64_t position, std::int64_t limit) {
  const std::int64_t count = static_cast<std::int64_t>(sound.samples.size()) / format_.channels;
  const std::int64_t end = writer_->frames();
  const std::int64_t hole = std::max<std::int64_t>(std::min(position, limit) - end, 0);
  if (auto filled = writer_->writeSilence(hole); !filled) return filled;
  const std::int64_t first = std::clamp<std::int64_t>(end - position, 0, count);
  const std::int64_t last = std::clamp<std::int64_t>(limit - position, first, count);
  const auto inSamples = [this](std::int64_t frames) { return static_cast<std::size_t>(frames * format_.channels); };
  return writer_->write(sound.samples.subspan(inSamples(first), inSamples(last - first)));
}

std::int64_t SoundRecording::framesBetween(CaptureClock::time_point from, CaptureClock::time_point to) const {
  const std::chrono::duration<double> seconds = to - from;
  return std::llround(seconds.count() * format_.sampleRate);
}

}  // namespace clipworks::engine
