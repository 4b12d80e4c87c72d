#include <clipworks/engine/capture/PulseCapture.h>

#include <algorithm>
#include <string_view>

namespace clipworks::engine {
namespace {

// For one answer of the server. A source may have to be woken: a headset that changes its profile takes seconds.
constexpr std::chrono::seconds answerPatience{5};
constexpr int fragmentsPerSecond = 50;
// What the server offers when it has no hardware at all.
constexpr std::string_view standInSource = "auto_null.monitor";

}  // namespace

Expected<std::unique_ptr<SoundCapture>> PulseCapture::open(const PcmFormat& format) {
  std::unique_ptr<PulseCapture> capture(new PulseCapture(format));
  if (auto connected = capture->connect(); !connected) return tl::make_unexpected(connected.error());
  if (auto opened = capture->openStream(); !opened) return tl::make_unexpected(opened.error());
  return capture;
}

Expected<void> PulseCapture::connect() {
  loop_ = pa_mainloop_new();
  if (loop_ == nullptr) return failed(ErrorKind::outOfMemory, "out of memory while looking for a sound server");
  context_ = pa_context_new(pa_mainloop_get_api(loop_), "Clipworks");
  if (context_ == nullptr) return failed(ErrorKind::outOfMemory, "out of memory while looking for a sound server");
  // Asking for a permission must not start a server.
  const bool began = pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0;
  if (!began || !turnUntil([this] { return pa_context_get_state(context_) == PA_CONTEXT_READY; })) {
    return failed(ErrorKind::unreadable, "no sound server answers (" + reason() + ")");
  }
  return {};
}

Expected<void> PulseCapture::openStream() {
  const pa_sample_spec spec{PA_SAMPLE_S16LE, static_cast<std::uint32_t>(format_.sampleRate),
                            static_cast<std::uint8_t>(format_.channels)};
  stream_ = pa_stream_new(context_, "Recording", &spec, nullptr);
  if (stream_ == nullptr) return failed(ErrorKind::noDevice, "the sound server gives no microphone: " + reason());
  pa_stream_set_overflow_callback(
      stream_, [](pa_stream*, void* self) { static_cast<PulseCapture*>(self)->lostSound_ = true; }, this);
  pa_stream_set_suspended_callback(
      stream_, [](pa_stream*, void* self) { static_cast<PulseCapture*>(self)->lostSound_ = true; }, this);

  constexpr auto serversChoice = static_cast<std::uint32_t>(-1);
  const auto fragment = static_cast<std::uint32_t>(format_.sampleRate / fragmentsPerSecond * format_.channels * 2);
  const pa_buffer_attr sizes{serversChoice, serversChoice, serversChoice, serversChoice, fragment};
  const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_START_CORKED | PA_STREAM_ADJUST_LATENCY |
                                                    PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_DONT_MOVE);
  const bool began = pa_stream_connect_record(stream_, nullptr, &sizes, flags) >= 0;
  if (!began || !turnUntil([this] { return pa_stream_get_state(stream_) == PA_STREAM_READY; })) {
    return failed(ErrorKind::noDevice, "the sound server gives no microphone: " + reason());
  }
  const char* source = pa_stream_get_device_name(stream_);
  if (source != nullptr && source == standInSource) {
    return failed(ErrorKind::noDevice, "the sound server has no microphone");
  }
  return {};
}

PulseCapture::~PulseCapture() {
  if (stream_ != nullptr) {
    pa_stream_set_overflow_callback(stream_, nullptr, nullptr);
    pa_stream_set_suspended_callback(stream_, nullptr, nullptr);
    pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
  }
  if (context_ != nullptr) {
    pa_context_disconnect(context_);
    pa_context_unref(context_);
  }
  if (loop_ != nullptr) pa_mainloop_free(loop_);
}

Expected<void> PulseCapture::start() {
  if (!finish(pa_stream_cork(stream_, 0, nullptr, nullptr))) {
    return failed(ErrorKind::deviceLost, "the microphone cannot be started: " + reason());
  }
  lostSound_ = false;
  return {};
}

Expected<CapturedSound> PulseCapture::read(std::chrono::milliseconds patience) {
  dropFragment();
  if (pa_stream_readable_size(stream_) == 0) turn(patience);
  if (isLost()) return failed(ErrorKind::deviceLost, "the microphone went away: " + reason());
  const std::size_t readable = pa_stream_readable_size(stream_);
  if (readable == 0 || readable == static_cast<std::size_t>(-1)) return CapturedSound{};
  return takeFragment();
}

Expected<CapturedSound> PulseCapture::takeFragment() {
  // The place of the first sample depends on it, so it is asked for and not reckoned from what was told at the opening.
  if (!isTimed_ && !finish(pa_stream_update_timing_info(stream_, nullptr, nullptr))) {
    return failed(ErrorKind::deviceLost, "the microphone went away: " + reason());
  }
  isTimed_ = true;
  const void* data = nullptr;
  std::size_t bytes = 0;
  if (pa_stream_peek(stream_, &data, &bytes) < 0) {
    return failed(ErrorKind::deviceLost, "the microphone cannot be read: " + reason());
  }
  if (bytes == 0) return CapturedSound{};
  isHolding_ = true;
  CapturedSound sound;
  sound.begin = timeOfNextSample(bytes);
  sound.followsGap = std::exchange(lostSound_, false);
  const std::size_t count = bytes / sizeof(std::int16_t);
  if (data == nullptr) {
    hole_.assign(count, 0);
    sound.samples = hole_;
  } else {
    sound.samples = {static_cast<const std::int16_t*>(data), count};
  }
  return sound;
}

CaptureClock::time_point PulseCapture::timeOfNextSample(std::size_t bytes) {
  pa_usec_t latency = 0;
  int isNegative = 0;
  const auto now = CaptureClock::now();
  if (pa_stream_get_latency(stream_, &latency, &isNegative) < 0) {
    latency = pa_bytes_to_usec(bytes, pa_stream_get_sample_spec(stream_));  // its last sample came just now
  }
  const std::chrono::microseconds age(isNegative != 0 ? 0 : static_cast<std::int64_t>(latency));
  return now - age;
}

void PulseCapture::wake() noexcept { pa_mainloop_wakeup(loop_); }

PulseCapture::Turn PulseCapture::turn(std::chrono::milliseconds patience) {
  const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(patience).count();
  if (pa_mainloop_prepare(loop_, static_cast<int>(microseconds)) < 0 || pa_mainloop_poll(loop_) < 0) return Turn::lost;
  const int dispatched = pa_mainloop_dispatch(loop_);
  if (dispatched < 0) return Turn::lost;
  return dispatched == 0 ? Turn::quiet : Turn::worked;
}

template <class Condition>
bool PulseCapture::turnUntil(Condition isOver) {
  const auto end = CaptureClock::now() + answerPatience;
  while (!isOver()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - CaptureClock::now());
    if (left.count() <= 0 || isLost() || turn(left) == Turn::lost) return false;
  }
  return true;
}

bool PulseCapture::finish(pa_operation* operation) {
  if (operation == nullptr) return false;
  const bool isDone = turnUntil([operation] { return pa_operation_get_state(operation) != PA_OPERATION_RUNNING; });
  const bool succeeded = isDone && pa_operation_get_state(operation) == PA_OPERATION_DONE;
  if (!isDone) pa_operation_cancel(operation);
  pa_operation_unref(operation);
  return succeeded;
}

bool PulseCapture::isLost() const {
  if (PA_CONTEXT_IS_GOOD(pa_context_get_state(context_)) == 0) return true;
  return stream_ != nullptr && pa_stream_get_state(stream_) != PA_STREAM_UNCONNECTED &&
         PA_STREAM_IS_GOOD(pa_stream_get_state(stream_)) == 0;
}

std::string PulseCapture::reason() const {
  const int code = context_ == nullptr ? PA_ERR_UNKNOWN : pa_context_errno(context_);
  return code == PA_OK ? "no answer in time" : pa_strerror(code);
}

void PulseCapture::dropFragment() {
  if (isHolding_) pa_stream_drop(stream_);
  isHolding_ = false;
}

}  // namespace clipworks::engine
