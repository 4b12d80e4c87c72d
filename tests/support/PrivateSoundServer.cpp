#include <tests/support/PrivateSoundServer.h>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>

namespace clipworks::test {
namespace {

constexpr int sampleRate = 44'100;
// Short, since the server knows no more of a sample's moment than when its block came.
using Blocks = std::chrono::duration<std::int64_t, std::ratio<1, 300>>;
constexpr std::size_t framesPerBlock = sampleRate / 300;
constexpr int blocksPerBurst = 15;
constexpr int blocksBetweenBursts = 150;
constexpr std::chrono::seconds patience{10};

}  // namespace

PrivateSoundServer::PrivateSoundServer() {
  std::signal(SIGPIPE, SIG_IGN);  // feeding a server that was killed
  const auto script = directory_.file("server.pa");
  const auto microphone = directory_.file("microphone");
  // The loopback keeps the microphone running as hardware does: idle, it would leave old sound in the pipe.
  std::ofstream(script)
      << "load-module module-native-protocol-unix auth-anonymous=1 socket=" << directory_.file("native").string()
      << "\nload-module module-pipe-source source_name=microphone format=s16le rate=44100 channels=2 file="
      << microphone.string()
      << "\nload-module module-null-sink sink_name=nowhere\n"
         "load-module module-loopback source=microphone sink=nowhere\n"
         "set-default-source microphone\n";
  server_ = std::make_unique<RunningProgram>(
      std::vector<std::string>{"pulseaudio", "-n", "-F", script, "--system=false", "--daemonize=no",
                               "--use-pid-file=no", "--exit-idle-time=-1", "--realtime=no", "--high-priority=no",
                               "--log-target=stderr", "--log-level=info"},
      ProgramOptions{.deadline = std::chrono::minutes(5), .environment = environment()});
  if (!server_->waitForText("Daemon startup complete")) {
    whyNot_ = "no private PulseAudio server can be started here: " + server_->wait().standardError;
    return;
  }
  microphone_ = ::open(microphone.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (microphone_ < 0) {
    whyNot_ = "the server's microphone cannot be opened";
    return;
  }
  feeder_ = std::thread([this] { feed(); });
}

PrivateSoundServer::~PrivateSoundServer() {
  {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
  }
  changed_.notify_all();
  if (feeder_.joinable()) feeder_.join();
  if (microphone_ >= 0) ::close(microphone_);
  if (isRunning()) server_->send(SIGKILL);
}

std::vector<std::string> PrivateSoundServer::environment() const {
  const std::string home = directory_.path();
  return {"PULSE_SERVER=" + socket(), "HOME=" + home, "XDG_RUNTIME_DIR=" + home,
          "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/none"};
}

void PrivateSoundServer::enter() const { ::setenv("PULSE_SERVER", socket().c_str(), 1); }

std::vector<std::string> PrivateSoundServer::noSoundEnvironment() {
  return {"PULSE_SERVER=unix:/nowhere/native", "ALSA_CONFIG_PATH=/dev/null"};
}

// Blocks at their times by the clock, so that a late one delays no other.
void PrivateSoundServer::feed() {
  const std::vector<std::int16_t> silence(2 * framesPerBlock, 0);
  const auto start = Clock::now();
  std::unique_lock lock(mutex_);
  for (std::int64_t i = 0; !changed_.wait_until(lock, start + Blocks(i), [this] { return isOver_; }); ++i) {
    const auto phase = i % blocksBetweenBursts;
    const std::vector<std::int16_t> sound(2 * framesPerBlock,
                                          levelOf(static_cast<std::size_t>(i / blocksBetweenBursts)));
    const auto& samples = phase < blocksPerBurst ? sound : silence;
    if (phase == 0) bursts_.push_back(Clock::now());
    if (::write(microphone_, samples.data(), samples.size() * sizeof samples[0]) < 0) return;  // the server has gone
    if (phase == 0) changed_.notify_all();
  }
}

std::vector<PrivateSoundServer::Clock::time_point> PrivateSoundServer::bursts() const {
  const std::lock_guard lock(mutex_);
  return bursts_;
}

bool PrivateSoundServer::waitForBursts(std::size_t count) {
  std::unique_lock lock(mutex_);
  const std::size_t wanted = bursts_.size() + count;
  return changed_.wait_for(lock, patience, [&] { return bursts_.size() >= wanted; });
}

void PrivateSoundServer::kill() {
  server_->send(SIGKILL);
  (void)server_->wait();
}

}  // namespace clipworks::test
