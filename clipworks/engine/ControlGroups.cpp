#include <clipworks/engine/ControlGroups.h>

#include <fstream>
#include <vector>

namespace clipworks::engine {
namespace {

namespace fs = std::filesystem;

/// Where a controller is mounted, and the group of this process there.
struct Group {
  fs::path mount;
  fs::path path;
};

/// Lines of /proc/self/cgroup are "number:controllers:path"; version 2 names no controllers.
std::vector<Group> groupsOf(const fs::path& root, const std::string& controller) {
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
    } else if (("," + controllers + ",").find("," + controller + ",") != std::string::npos) {
      groups.push_back({mounts / controllers, path});
      groups.push_back({mounts / controller, path});
    }
  }
  return groups;
}

}  // namespace

std::optional<double> leastOfControlGroups(const fs::path& root, const std::string& controller,
                                           const std::function<std::optional<double>(const fs::path&)>& told) {
  std::optional<double> least;
  for (const auto& group : groupsOf(root, controller)) {
    // In a container the path may be that of the host, which is not there; what is there stands further up.
    for (fs::path path = group.path;; path = path.parent_path()) {
      const auto one = told(group.mount / path);
      if (one && (!least || *one < *least)) least = one;
      if (path.empty()) break;
    }
  }
  return least;
}

std::string firstWordIn(const fs::path& file) {
  std::string word;
  std::ifstream(file) >> word;
  return word;
}

}  // namespace clipworks::engine
