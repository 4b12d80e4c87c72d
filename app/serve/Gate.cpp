#include <app/serve/Gate.h>

#include <sys/random.h>

#include <array>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

namespace clipworks::app {
namespace {

/// Takes as long for any text of that length.
bool isSame(std::string_view a, std::string_view b) {
  unsigned differences = a.size() == b.size() ? 0 : 1;
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i)
    differences |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  return differences == 0;
}

bool hasCookie(std::string_view cookies, std::string_view wanted) {
  while (!cookies.empty()) {
    const std::size_t end = std::min(cookies.find(';'), cookies.size());
    std::string_view cookie = cookies.substr(0, end);
    cookie.remove_prefix(std::min(cookie.find_first_not_of(' '), cookie.size()));
    if (isSame(cookie, wanted)) return true;
    cookies.remove_prefix(std::min(end + 1, cookies.size()));
  }
  return false;
}

HttpAnswer refused(const char* sentence) { return {403, "text/plain; charset=utf-8", sentence}; }

}  // namespace

std::string newSecret() {
  std::array<unsigned char, 32> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
    throw std::system_error(errno, std::generic_category(), "no random numbers");
  return fmt::format("{:02x}", fmt::join(bytes, ""));
}

// Cookies know no ports: the name keeps two servers apart.
Gate::Gate(int port)
    : host_(fmt::format("127.0.0.1:{}", port)),
      origin_("http://" + host_),
      cookie_(fmt::format("clipworks-{}={}", port, newSecret())) {}

std::optional<HttpAnswer> Gate::judge(const HttpRequest& request) {
  if (request.header("Host") != host_) return refused("This server knows itself by another name.\n");
  const std::string origin = request.header("Origin");
  if (request.method == "POST" ? origin != origin_ : !origin.empty() && origin != origin_)
    return refused("Other pages are not let in.\n");
  if (hasCookie(request.header("Cookie"), cookie_)) {
    // Browsers send cookies to every port of a host, for pages of other ports, too, and say so here.
    const std::string site = request.header("Sec-Fetch-Site");
    const bool isOwn = site.empty() || site == "same-origin" || site == "none" || request.path == "/";
    return isOwn ? std::nullopt : std::optional(refused("Other pages are not let in.\n"));
  }
  return trade(request);
}

std::optional<HttpAnswer> Gate::trade(const HttpRequest& request) {
  const std::string key = request.parameter("key");
  if (request.method != "GET" || request.path != "/" || !isSame(key, key_) || isTraded_.exchange(true))
    return refused("Open the address that \"clipworks serve\" printed. It lets one browser in, once.\n");
  // The browser goes on by itself, so that the cookie counts as this page's own, whoever opened the address.
  return HttpAnswer{200,
                    "text/html; charset=utf-8",
                    "<!doctype html><meta http-equiv=\"refresh\" content=\"0;url=/\"><link rel=\"icon\" "
                    "href=\"/icon.svg\"><title>Clipworks</title>",
                    {{"Set-Cookie", cookie_ + "; HttpOnly; SameSite=Strict; Path=/"}, {"Cache-Control", "no-store"}}};
}

}  // namespace clipworks::app
