#pragma once

#include <atomic>
#include <optional>
#include <string>

#include <app/serve/HttpServer.h>

namespace clipworks::app {

/// A name that nobody guesses: 256 random bits as text.
[[nodiscard]] std::string newSecret();

/// Lets in the one browser that was given the address, and no other page that it has open: exact `Host` and `Origin`,
/// and a cookie, for which the key in the address is traded once. Thread-safe.
class Gate {
 public:
  explicit Gate(int port);

  /// To be opened by the browser, once.
  [[nodiscard]] std::string address() const { return origin_ + "/?key=" + key_; }
  /// Why a request is not let in; or the cookie, for the key.
  [[nodiscard]] std::optional<HttpAnswer> judge(const HttpRequest& request);

 private:
  [[nodiscard]] std::optional<HttpAnswer> trade(const HttpRequest& request);

  const std::string host_;
  const std::string origin_;
  const std::string cookie_;  // name and value
  const std::string key_ = newSecret();
  std::atomic<bool> isTraded_ = false;
};

}  // namespace clipworks::app
