#include <clipworks/engine/Memory.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include <clipworks/engine/ControlGroups.h>

namespace clipworks::engine {
namespace {

namespace fs = std::filesystem;

/// The number behind `key` in a file of lines such as "MemAvailable:   123 kB"; nothing where it is not there.
std::optional<double> numberIn(const fs::path& file, const std::string& key) {
  std::ifstream stream(file);
  for (std::string word; stream >> word;) {
    double number = 0;
    if (word == key && stream >> number) return number;
  }
  return std::nullopt;
}

std::optional<double> leftBy(const fs::path& group, const char* most, const char* used, const char* files) {
  const std::string limit = firstWordIn(group / most);
  if (limit.empty() || limit == "max") return std::nullopt;
  const double left = std::strtod(limit.c_str(), nullptr) - std::strtod(firstWordIn(group / used).c_str(), nullptr);
  return std::max(left + numberIn(group / "memory.stat", files).value_or(0), 0.0);
}

}  // namespace

std::int64_t usableMemory(const fs::path& root) {
  const auto left = leastOfControlGroups(root, "memory", [](const fs::path& group) {
    const auto now = leftBy(group, "memory.max", "memory.current", "inactive_file");
    return now ? now : leftBy(group, "memory.limit_in_bytes", "memory.usage_in_bytes", "total_inactive_file");
  });
  constexpr double kibibyte = 1024;
  const auto available = numberIn(root / "proc/meminfo", "MemAvailable:");
  if (!available) return static_cast<std::int64_t>(left.value_or(0));
  return static_cast<std::int64_t>(std::min(*available * kibibyte, left.value_or(*available * kibibyte)));
}

bool hasMemory(std::size_t bytes) {
  const std::unique_ptr<void, decltype(&std::free)> memory(std::malloc(bytes), &std::free);
  return memory != nullptr;
}

}  // namespace clipworks::engine
