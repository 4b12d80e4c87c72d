#include <clipworks/engine/Memory.h>
#include <clipworks/engine/Processors.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

/// What a kernel says of a process's control groups.
class SystemFiles {
 public:
  SystemFiles(const std::string& groups, const std::vector<std::pair<std::string, std::string>>& files) {
    write("proc/self/cgroup", groups);
    for (const auto& [name, text] : files) write("sys/fs/cgroup/" + name, text);
  }
  void write(const std::string& name, const std::string& text) const {
    std::filesystem::create_directories(root_.file(name).parent_path());
    writeTo(root_.file(name), text);
  }
  [[nodiscard]] std::filesystem::path root() const { return root_.path(); }

 private:
  test::TemporaryDirectory root_;
};

TEST(ProcessorQuota, IsTheLeastAlongThePathOfTheControlGroup) {
  using Files = std::vector<std::pair<std::string, std::string>>;
  const std::string v1 = "cpu,cpuacct/";
  const std::tuple<std::string, Files, std::optional<double>> cases[] = {
      {"0::/a/b", {{"cpu.max", "max 100000"}, {"a/cpu.max", "150000 100000"}, {"a/b/cpu.max", "max 100000"}}, 1.5},
      {"0::/a", {{"a/cpu.max", "400000 100000"}, {"cpu.max", "100000 50000"}}, 2},
      {"0::/a", {{"a/cpu.max", "max 100000"}}, std::nullopt},
      {"0::/../../out", {{"cpu.max", "50000 100000"}}, 0.5},
      // The host's path, which a container does not have.
      {"5:cpu,cpuacct:/docker/1\n4:cpuset:/",
       {{v1 + "cpu.cfs_quota_us", "300000"}, {v1 + "cpu.cfs_period_us", "100000"}},
       3},
      {"5:cpu,cpuacct:/a", {{v1 + "a/cpu.cfs_quota_us", "-1"}, {v1 + "a/cpu.cfs_period_us", "100000"}}, std::nullopt},
  };
  for (const auto& [groups, files, quota] : cases) {
    SCOPED_TRACE(groups);
    const SystemFiles system(groups, files);
    EXPECT_EQ(processorQuota(system.root()), quota);
  }
}

TEST(UsableMemory, IsTheLeastOfTheSystemAndTheControlGroups) {
  using Files = std::vector<std::pair<std::string, std::string>>;
  const std::string v1 = "memory/";
  const std::tuple<std::string, Files, std::int64_t> cases[] = {
      {"0::/", {}, 2'048'000},
      {"0::/a", {{"a/memory.max", "max"}, {"a/memory.current", "500"}}, 2'048'000},
      {"0::/a/b",
       {{"a/memory.max", "1000000"}, {"a/memory.current", "600000"}, {"a/memory.stat", "anon 1\ninactive_file 100000"}},
       500'000},
      {"0::/a", {{"a/memory.max", "1000"}, {"a/memory.current", "2000"}}, 0},
      {"3:memory:/a", {{v1 + "a/memory.limit_in_bytes", "3000"}, {v1 + "a/memory.usage_in_bytes", "1000"}}, 2'000},
  };
  for (const auto& [groups, files, bytes] : cases) {
    SCOPED_TRACE(groups);
    const SystemFiles system(groups, files);
    system.write("proc/meminfo", "MemTotal: 4000 kB\nMemAvailable:    2000 kB\n");
    EXPECT_EQ(usableMemory(system.root()), bytes);
  }
}

}  // namespace
}  // namespace clipworks::engine
