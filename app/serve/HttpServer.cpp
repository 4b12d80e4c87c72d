#include <app/serve/HttpServer.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <mutex>
#include <set>

#include <httplib.h>

namespace clipworks::app {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t mostConnections = 64;
constexpr std::size_t servedAtOnce = 24;
constexpr std::uint64_t mostHeadBytes = 32'768;
constexpr std::uint64_t mostRangeBytes = 4'194'304;  // of one answer; players ask on
constexpr milliseconds patience(10'000);
constexpr milliseconds idlePatience(5'000);
constexpr milliseconds idleInterval(200);
constexpr std::uint64_t leastBytesPerMillisecond = 64;
constexpr int requestsPerConnection = 1'000;

/// A connection that waits for nobody forever.
class BoundedStream final : public httplib::Stream {
 public:
  explicit BoundedStream(int socket) : socket_(socket) {}

  /// Whether a request begins soon.
  bool awaitsRequest() {
    start_ = Clock::now();
    mostIn_ = mostHeadBytes;
    in_ = out_ = 0;
    isOver = false;
    return begin_ < end_ || isReady(POLLIN, idlePatience);
  }
  /// So many bytes may come beside the head.
  void expect(std::uint64_t bytes) { mostIn_ += bytes; }

  bool is_readable() const override { return begin_ < end_ || isReady(POLLIN, timeLeft(in_)); }
  bool is_writable() const override { return isReady(POLLOUT, timeLeft(out_)); }

  ssize_t read(char* bytes, std::size_t count) override {
    if (in_ >= mostIn_) return -1;
    if (begin_ == end_) {
      if (!isReady(POLLIN, timeLeft(in_))) return -1;
      const ssize_t received = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
      if (received <= 0) return received;
      begin_ = 0;
      end_ = static_cast<std::size_t>(received);
    }
    const std::size_t taken = std::min(count, end_ - begin_);
    std::memcpy(bytes, buffer_.data() + begin_, taken);
    begin_ += taken;
    in_ += taken;
    return static_cast<ssize_t>(taken);
  }

  ssize_t write(const char* bytes, std::size_t count) override {
    if (!isReady(POLLOUT, timeLeft(out_))) return -1;
    const ssize_t sent = ::send(socket_, bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent > 0) out_ += static_cast<std::uint64_t>(sent);
    return sent < 0 && errno == EAGAIN ? 0 : sent;
  }

  void get_remote_ip_and_port(std::string& ip, int& port) const override { tell(ip, port); }
  void get_local_ip_and_port(std::string& ip, int& port) const override { tell(ip, port); }
  socket_t socket() const override { return socket_; }

  bool isOver = false;  ///< a body was left unread, so that no request can follow

 private:
  static void tell(std::string& ip, int& port) {
    ip = "127.0.0.1";
    port = 0;
  }

  [[nodiscard]] milliseconds timeLeft(std::uint64_t done) const {
    const auto until = start_ + patience + milliseconds(done / leastBytesPerMillisecond);
    return std::chrono::duration_cast<milliseconds>(until - Clock::now());
  }

  [[nodiscard]] bool isReady(short what, milliseconds wait) const {
    if (wait.count() <= 0) return false;
    pollfd awaited{socket_, what, 0};
    return ::poll(&awaited, 1, static_cast<int>(wait.count())) > 0;
  }

  int socket_;
  std::array<char, 16'384> buffer_{};
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  Clock::time_point start_;
  std::uint64_t mostIn_ = 0;
  std::uint64_t in_ = 0;
  std::uint64_t out_ = 0;
};

/// Whether this thread only closes the connection it is given.
thread_local bool isRefusing = false;
/// The connection that this thread serves.
thread_local BoundedStream* served = nullptr;

/// Some threads, and an end to what waits for them.
class BoundedConnections final : public httplib::TaskQueue {
 public:
  explicit BoundedConnections(std::function<void()> onIdle) : onIdle_(std::move(onIdle)) {}

  void enqueue(std::function<void()> task) override {
    if (open_ >= mostConnections) {
      isRefusing = true;
      task();
      isRefusing = false;
      return;
    }
    ++open_;
    threads_.enqueue([this, task = std::move(task)] {
      task();
      --open_;
    });
  }
  void shutdown() override { threads_.shutdown(); }
  void on_idle() override { onIdle_(); }

 private:
  std::function<void()> onIdle_;
  std::atomic<std::size_t> open_ = 0;
  httplib::ThreadPool threads_{servedAtOnce};
};

std::uint64_t numberIn(const std::string& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : UINT64_MAX;
}

HttpRequest requestOf(const httplib::Request& asked) {
  HttpRequest request;
  request.method = asked.method;
  request.path = asked.path;
  for (const auto& [name, value] : asked.params) request.query.emplace(name, value);
  if (asked.has_header("Content-Length")) request.bodyBytes = numberIn(asked.get_header_value("Content-Length"));
  request.header = [&asked](const std::string& name) {
    return asked.get_header_value_count(name) == 1 ? asked.get_header_value(name) : std::string();
  };
  return request;
}

/// The first and the last byte that a Range header asks for. One range only: others are answered whole.
std::optional<std::pair<std::uint64_t, std::uint64_t>> rangeIn(std::string_view text, std::uint64_t bytes) {
  if (!text.starts_with("bytes=") || bytes == 0) return std::nullopt;
  text.remove_prefix(6);
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos || text.find(',') != std::string_view::npos) return std::nullopt;
  const std::string from(text.substr(0, dash));
  const std::string to(text.substr(dash + 1));
  if (from.empty()) {
    const std::uint64_t last = numberIn(to);
    if (last == UINT64_MAX) return std::nullopt;
    return std::pair(bytes - std::min(last, bytes), bytes - 1);
  }
  const std::uint64_t first = numberIn(from);
  const std::uint64_t last = to.empty() ? bytes - 1 : std::min(numberIn(to), bytes - 1);
  if (to.empty()) return std::pair(first, std::min(last, first + mostRangeBytes - 1));
  return std::pair(first, last);
}

bool sendPiece(int descriptor, std::uint64_t offset, std::size_t length, httplib::DataSink& sink) {
  std::array<char, 65'536> bytes;
  const ssize_t count = ::pread(descriptor, bytes.data(), std::min(length, bytes.size()), static_cast<off_t>(offset));
  return count > 0 && sink.write(bytes.data(), static_cast<std::size_t>(count));
}

void sendFile(const HttpFile& file, const HttpAnswer& answer, const httplib::Request& asked,
              httplib::Response& response) {
  std::uint64_t first = 0;
  std::uint64_t count = file.bytes;
  response.set_header("Accept-Ranges", "bytes");
  if (const auto range = rangeIn(asked.get_header_value("Range"), file.bytes)) {
    if (range->first > range->second || range->first >= file.bytes) {
      response.status = 416;
      response.set_header("Content-Range", "bytes */" + std::to_string(file.bytes));
      return;
    }
    first = range->first;
    count = range->second - first + 1;
    response.status = 206;
    response.set_header("Content-Range", "bytes " + std::to_string(first) + "-" + std::to_string(range->second) + "/" +
                                             std::to_string(file.bytes));
  }
  if (count == 0) return;
  response.set_content_provider(
      count, answer.type,
      [descriptor = file.descriptor, first](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
        return sendPiece(*descriptor, first + offset, length, sink);
      });
}

void fill(httplib::Response& response, const HttpAnswer& answer, const httplib::Request& asked) {
  response.status = answer.status;
  for (const auto& [name, value] : answer.headers) response.set_header(name, value);
  if (answer.file) {
    sendFile(*answer.file, answer, asked, response);
  } else {
    response.set_content(answer.body, answer.type);
  }
}

}  // namespace

class HttpServer::Server final : public httplib::Server {
 public:
  Server() {
    new_task_queue = [this] {
      return new BoundedConnections([this] {
        if (isEnded_) end();
      });
    };
    set_idle_interval(idleInterval);
    set_socket_options([](socket_t) {});  // no port is shared
    set_default_headers(
        {{"Content-Security-Policy",
          "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; media-src "
          "'self' blob:; connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
         {"X-Content-Type-Options", "nosniff"},
         {"Referrer-Policy", "no-referrer"},
         {"Cross-Origin-Resource-Policy", "same-origin"},
         {"Cross-Origin-Opener-Policy", "same-origin"},
         {"Permissions-Policy", "camera=(), geolocation=(), microphone=(self)"}});
    set_exception_handler(
        [](const httplib::Request&, httplib::Response& response, const std::exception_ptr&) { response.status = 500; });
    set_pre_routing_handler([this](const auto& asked, auto& response) { return admit(asked, response); });
    Get("/.*", [this](const auto& asked, auto& response) {
      fill(response, site_->answer(requestOf(asked), [](const auto&) { return true; }), asked);
    });
    Post("/.*", [this](const auto& asked, auto& response, const auto& reader) { take(asked, response, reader); });
  }

  void show(HttpSite& site) {
    site_ = &site;
    listen_after_bind();
  }

  /// Before it listens there is nothing to stop: it then sees that it is over as soon as it is idle.
  void end() {
    isEnded_ = true;
    stop();
    const std::lock_guard lock(mutex_);
    for (const int socket : open_) ::shutdown(socket, SHUT_RDWR);
  }

 private:
  HandlerResponse admit(const httplib::Request& asked, httplib::Response& response) {
    const bool mayHaveBody = asked.method == "POST";
    const HttpRequest request = requestOf(asked);
    std::optional<HttpAnswer> refusal;
    if (!mayHaveBody && asked.method != "GET" && asked.method != "HEAD") {
      refusal = HttpAnswer{405, "text/plain", "not allowed\n"};
    } else if (asked.has_header("Transfer-Encoding") || asked.has_header("Content-Encoding") ||
               (mayHaveBody ? !asked.has_header("Content-Length") : request.bodyBytes > 0)) {
      refusal = HttpAnswer{411, "text/plain", "a body has a length and no encoding\n"};
    } else {
      refusal = site_->refusal(request);
    }
    served->isOver = asked.method != "GET" && asked.method != "HEAD";
    if (!refusal) return HandlerResponse::Unhandled;
    served->isOver = true;
    fill(response, *refusal, asked);
    return HandlerResponse::Handled;
  }

  void take(const httplib::Request& asked, httplib::Response& response, const httplib::ContentReader& reader) {
    const HttpRequest request = requestOf(asked);
    served->expect(request.bodyBytes);
    const HttpBody body = [&reader](const auto& takePiece) {
      const bool isWhole = reader([&](const char* bytes, std::size_t count) { return takePiece({bytes, count}); });
      served->isOver = !isWhole;
      return isWhole;
    };
    fill(response, site_->answer(request, body), asked);
  }

  bool process_and_close_socket(socket_t socket) override {
    // Before a program can be started that would inherit it.
    ::fcntl(socket, F_SETFD, FD_CLOEXEC);
    if (!isRefusing) {
      note(socket);
      serveAll(socket);
      forget(socket);
    }
    ::close(socket);
    return true;
  }

  void serveAll(int socket) {
    BoundedStream stream(socket);
    served = &stream;
    for (int i = 1; i <= requestsPerConnection && stream.awaitsRequest(); ++i) {
      bool isClosed = false;
      // Ranges are ours.
      const auto forgetRanges = [](httplib::Request& asked) { asked.ranges.clear(); };
      if (!process_request(stream, i == requestsPerConnection, isClosed, forgetRanges)) break;
      if (isClosed || stream.isOver || !is_running()) break;
    }
    served = nullptr;
    drain(socket);
  }

  /// So that a client reads the answer although not all that it sent was read.
  static void drain(int socket) {
    ::shutdown(socket, SHUT_WR);
    std::array<char, 65'536> ignored;
    for (int i = 0; i < 32; ++i) {
      pollfd awaited{socket, POLLIN, 0};
      if (::poll(&awaited, 1, 100) <= 0 || ::recv(socket, ignored.data(), ignored.size(), 0) <= 0) return;
    }
  }

  void note(int socket) {
    const std::lock_guard lock(mutex_);
    open_.insert(socket);
  }
  void forget(int socket) {
    const std::lock_guard lock(mutex_);
    open_.erase(socket);
  }

  HttpSite* site_ = nullptr;
  std::atomic<bool> isEnded_ = false;
  std::mutex mutex_;
  std::set<int> open_;  // guarded by mutex_
};

std::string HttpRequest::parameter(const std::string& name) const {
  const auto found = query.find(name);
  return found == query.end() ? "" : found->second;
}

HttpServer::HttpServer() : server_(std::make_unique<Server>()) {}
HttpServer::~HttpServer() = default;

Result<int, Failure> HttpServer::bind(int port) {
  constexpr const char* here = "127.0.0.1";
  const int bound = port == 0 ? server_->bind_to_any_port(here) : server_->bind_to_port(here, port) ? port : -1;
  if (bound > 0) return bound;
  return failure(Failure{ExitCode::tryAgain, "port " + std::to_string(port) + " of this machine cannot be had", {}});
}

void HttpServer::serve(HttpSite& site) { server_->show(site); }
void HttpServer::stop() { server_->end(); }

}  // namespace clipworks::app
