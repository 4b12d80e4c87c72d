#include <app/Limits.h>

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <map>

#include <fmt/format.h>

#include <app/ParseNumber.h>

namespace clipworks::app {
namespace {

void limit(int resource, rlim_t most) {
  rlimit now{};
  if (::getrlimit(static_cast<__rlimit_resource_t>(resource), &now) != 0) return;
  now.rlim_cur = std::min(now.rlim_cur, most);
  now.rlim_max = std::min(now.rlim_max, most);
  (void)::setrlimit(static_cast<__rlimit_resource_t>(resource), &now);
}

}  // namespace

void enforce(const Limits& limits) {
  // Of one byte, not of none: only that keeps programs that take dumps (core_pattern) from being given one; see
  // core(5).
  limit(RLIMIT_CORE, 1);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // what they map for themselves counts, too
  if (limits.memory) limit(RLIMIT_DATA, static_cast<rlim_t>(*limits.memory));
#endif
  if (limits.file) {
    std::signal(SIGXFSZ, SIG_IGN);
    limit(RLIMIT_FSIZE, static_cast<rlim_t>(*limits.file));
  }
}

std::optional<std::int64_t> bytesIn(std::string_view text) {
  static const std::map<std::string_view, double> units{
      {"", 1},     {"B", 1},   {"k", 1e3},  {"K", 1e3},       {"kB", 1e3},      {"KB", 1e3},     {"M", 1e6},
      {"MB", 1e6}, {"G", 1e9}, {"GB", 1e9}, {"KiB", 1 << 10}, {"MiB", 1 << 20}, {"GiB", 1 << 30}};
  const std::size_t digits = std::min(text.find_first_not_of("0123456789."), text.size());
  const auto number = parseNumber(text.substr(0, digits));
  std::string_view unit = text.substr(digits);
  if (unit.starts_with(' ')) unit.remove_prefix(1);
  const auto known = units.find(unit);
  constexpr double most = 1e15;
  if (!number || known == units.end() || !(*number > 0) || *number * known->second > most) return std::nullopt;
  return static_cast<std::int64_t>(*number * known->second);
}

std::string shownSize(double bytes) {
  if (bytes >= 1e9) return fmt::format("{:.2f} GB", bytes / 1e9);
  return bytes >= 1e6 ? fmt::format("{:.1f} MB", bytes / 1e6) : fmt::format("{:.1f} kB", bytes / 1e3);
}

}  // namespace clipworks::app
