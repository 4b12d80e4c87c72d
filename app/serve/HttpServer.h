#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <app/Failure.h>

namespace clipworks::app {

/// What a client asks for, without its body.
struct HttpRequest {
  std::string method;
  std::string path;                            ///< decoded, without what stands behind "?"
  std::map<std::string, std::string> query{};  ///< decoded; of a name that comes twice the first
  std::uint64_t bodyBytes = 0;                 ///< as announced
  /// The value of a header, empty where it is not there or comes more than once.
  std::function<std::string(const std::string& name)> header;

  [[nodiscard]] std::string parameter(const std::string& name) const;
};

/// Gives the request's body piece by piece; stops and is false where `take` is, or where the client gives up.
using HttpBody = std::function<bool(const std::function<bool(std::string_view piece)>& take)>;

/// An open file that is sent piece by piece, whole or the range that was asked for.
struct HttpFile {
  std::shared_ptr<const int> descriptor;
  std::uint64_t bytes = 0;
};

struct HttpAnswer {
  int status = 200;
  std::string type = "application/json";
  std::string body{};
  std::vector<std::pair<std::string, std::string>> headers{};
  std::optional<HttpFile> file{};  ///< in place of `body`
};

/// What a server shows. Any number of threads at once.
class HttpSite {
 public:
  virtual ~HttpSite() = default;
  /// Judges a request before its body is read: the answer that ends the matter, or nothing.
  [[nodiscard]] virtual std::optional<HttpAnswer> refusal(const HttpRequest& request) = 0;
  /// Answers GET (and HEAD, whose body is left away) and POST; no others come here.
  [[nodiscard]] virtual HttpAnswer answer(const HttpRequest& request, const HttpBody& body) = 0;
};

/// Serves HTTP to this machine alone. Bounded: 64 connections, of which 24 are served at once; 32 KiB for what stands
/// before a body; requests must arrive, and answers be taken, at 64 KiB a second on average once ten seconds are over.
class HttpServer {
 public:
  HttpServer();
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  /// Takes a port of 127.0.0.1, any free one for 0. Fails where it cannot be had.
  [[nodiscard]] Result<int, Failure> bind(int port);
  /// Serves until `stop`, on this thread and others. After `bind`.
  void serve(HttpSite& site);
  /// Ends connections, too. Any thread.
  void stop();

 private:
  class Server;
  const std::unique_ptr<Server> server_;
};

}  // namespace clipworks::app
