#include <app/confinement/Landlock.h>

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace clipworks::app {
namespace {

// What the kernel's header has gained since Debian 12's (include/uapi/linux/landlock.h), by version.
constexpr std::uint64_t truncate = 1ULL << 14;     // 3
constexpr std::uint64_t deviceIoctl = 1ULL << 15;  // 5
constexpr std::uint64_t bindTCP = 1ULL << 0;       // 4
constexpr std::uint64_t connectTCP = 1ULL << 1;
constexpr std::uint64_t abstractSockets = 1ULL << 0;  // 6
constexpr std::uint64_t signals = 1ULL << 1;

struct RulesetAttributes {
  std::uint64_t files;
  std::uint64_t network;
  std::uint64_t scopes;
};

constexpr std::uint64_t reading = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;

std::uint64_t knownRights(int version) {
  std::uint64_t rights = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1) - 1;
  if (version >= 2) rights |= LANDLOCK_ACCESS_FS_REFER;
  if (version >= 3) rights |= truncate;
  if (version >= 5) rights |= deviceIoctl;
  return rights;
}

/// Of files that are no directories.
std::uint64_t fittingFiles(std::uint64_t rights) {
  return rights & (LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE | truncate | deviceIoctl);
}

int allow(int ruleset, const std::filesystem::path& path, std::uint64_t rights) {
  const int place = ::open(path.c_str(), O_PATH | O_CLOEXEC);
  if (place < 0) return 0;
  struct stat facts {};
  int code = ::fstat(place, &facts) == 0 ? 0 : errno;
  if (code == 0) {
    if (!S_ISDIR(facts.st_mode)) rights = fittingFiles(rights);
    const landlock_path_beneath_attr rule{rights, place};
    if (::syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) != 0) code = errno;
  }
  ::close(place);
  return code;
}

int enforce(int ruleset, std::uint64_t known, const FileRights& rights) {
  constexpr std::uint64_t never = LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                                  LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
                                  LANDLOCK_ACCESS_FS_MAKE_SYM;
  for (const auto& path : rights.read) {
    if (const int code = allow(ruleset, path, reading); code != 0) return code;
  }
  for (const auto& path : rights.write) {
    if (const int code = allow(ruleset, path, known & ~never); code != 0) return code;
  }
  return ::syscall(SYS_landlock_restrict_self, ruleset, 0) == 0 ? 0 : errno;
}

}  // namespace

int landlockVersion() {
  const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  return version > 0 ? static_cast<int>(version) : 0;
}

int restrictFiles(int version, const FileRights& rights) {
  RulesetAttributes attributes{knownRights(version), 0, 0};
  std::size_t size = sizeof attributes.files;
  if (version >= 4) {
    attributes.network = bindTCP | connectTCP;
    size += sizeof attributes.network;
  }
  if (version >= 6) {
    attributes.scopes = abstractSockets | signals;
    size += sizeof attributes.scopes;
  }
  const auto ruleset = static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attributes, size, 0));
  if (ruleset < 0) return errno;
  const int code = enforce(ruleset, attributes.files, rights);
  ::close(ruleset);
  return code;
}

}  // namespace clipworks::app
