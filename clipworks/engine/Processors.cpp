#include <clipworks/engine/Processors.h>

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace clipworks::engine {
namespace {

namespace fs = std::filesystem;

/// Where controllers are mounted, and the group of this process there.
struct Group {
  fs::path mount;
  fs::path path;
};

/// Quota and period in microseconds, as text; "max" and -1 are no quota.
std::optional<double> ratio(const std::string& quota, const std::string& period) {
  const auto number = [](const std::string& text) { return std::strtod(text.c_str(), nullptr); };
  if (!(number(quota) > 0 && number(period) > 0)) return std::nullopt;
  return number(quota) / number(period);
}

std::string wordIn(const fs::path& file) {
  std::string word;
  std::ifstream(file) >> word;
  return word;
}

std::optional<double> quotaOf(const fs::path& group) {
  std::string quota;
  std::string period;
  if (std::ifstream(group / "cpu.max") >> quota >> period) return ratio(quota, period);
  return ratio(wordIn(group / "cpu.cfs_quota_us"), wordIn(group / "cpu.cfs_period_us"));
}

/// Lines of /proc/self/cgroup are "number:controllers:path"; version 2 names no controllers.
std::vector<Group> groupsOf(const fs::path& root) {
  std::vector<Group> groups;
  const fs::path mounts = root / "sys/fs/cgroup";
  std::ifstream lines(root / "proc/self/cgroup");
  for (std::string line; std::getline(lines, line);) {
    const auto first = line.find(':');
    const auto second = first == std::string::npos ? first : line.find(':', first + 1);
    if (second == std::string::npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    const fs::path path = fs::path(line.substr(second + 1)).lexically_normal().relative_path();
    if (controllers.empty()) {
      groups.push_back({mounts, path});
      groups.push_back({mounts / "unified", path});
    } else if (("," + controllers + ",").find(",cpu,") != std::string::npos) {
      groups.push_back({mounts / controllers, path});
      groups.push_back({mounts / "cpu", path});
    }
  }
  return groups;
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

std::optional<double> processorQuota(const fs::path& root) {
  std::optional<double> least;
  for (const auto& group : groupsOf(root)) {
    // In a container the path may be that of the host, which is not there; what is there stands further up.
    for (fs::path path = group.path;; path = path.parent_path()) {
      const auto quota = quotaOf(group.mount / path);
      if (quota && (!least || *quota < *least)) least = quota;
      if (path.empty()) break;
    }
  }
  return least;
}

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
