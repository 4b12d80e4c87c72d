#include <clipworks/engine/Processors.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

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
    const test::TemporaryDirectory root;
    const auto write = [&](const std::string& name, const std::string& text) {
      std::filesystem::create_directories(root.file(name).parent_path());
      writeTo(root.file(name), text);
    };
    write("proc/self/cgroup", groups);
    for (const auto& [name, text] : files) write("sys/fs/cgroup/" + name, text);
    EXPECT_EQ(processorQuota(root.path()), quota);
  }
}

}  // namespace
}  // namespace clipworks::engine
