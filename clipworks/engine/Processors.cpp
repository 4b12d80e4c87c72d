#include <clipworks/engine/Processors.h>

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string>
#include <vector>

#include <clipworks/engine/ControlGroups.h>

namespace clipworks::engine {
namespace {

namespace fs = std::filesystem;

/// Quota and period in microseconds, as text; "max" and -1 are no quota.
std::optional<double> ratio(const std::string& quota, const std::string& period) {
  const auto number = [](const std::string& text) { return std::strtod(text.c_str(), nullptr); };
  if (!(number(quota) > 0 && number(period) > 0)) return std::nullopt;
  return number(quota) / number(period);
}

std::optional<double> quotaOf(const fs::path& group) {
  std::string quota;
  std::string period;
  if (std::ifstream(group / "cpu.max") >> quota >> period) return ratio(quota, period);
  return ratio(firstWordIn(group / "cpu.cfs_quota_us"), firstWordIn(group / "cpu.cfs_period_us"));
}

int affinity() {
  constexpr int mostProcessors = 1 << 20;
  for (int room = CPU_SETSIZE; room <= mostProcessors; room *= 2) {
    std::vector<cpu_set_t> set(static_cast<std::size_t>(room / CPU_SETSIZE));
    const std::size_t bytes = set.size() * sizeof(cpu_set_t);
    if (::sched_getaffinity(0, bytes, set.data()) == 0) return CPU_COUNT_S(bytes, set.data());
    if (errno != EINVAL) break;  // else the kernel has more of them
  }
  return static_cast<int>(::sysconf(_SC_NPROCESSORS_ONLN));
}

int count() noexcept {
  const int processors = std::max(affinity(), 1);
  try {
    const auto quota = processorQuota();
    if (quota && *quota < processors) return std::max(static_cast<int>(std::ceil(*quota)), 1);
  } catch (const std::exception&) {  // where the groups cannot be read, there is no quota
  }
  return processors;
}

}  // namespace

std::optional<double> processorQuota(const fs::path& root) { return leastOfControlGroups(root, "cpu", quotaOf); }

int usableProcessors() {
  static const int processors = count();
  return processors;
}

namespace {

// When the library is loaded: a program that has confined itself could not read it any more.
const int processorsAtFirst = usableProcessors();

}  // namespace

int coderThreads(int wanted) {
  if (wanted > 0) return wanted;
  return usableProcessors() < ::sysconf(_SC_NPROCESSORS_ONLN) ? usableProcessors() : 0;
}

}  // namespace clipworks::engine
