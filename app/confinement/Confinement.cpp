#include <app/confinement/Confinement.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string_view>
#include <utility>
#include <vector>

#include <app/confinement/FileBroker.h>
#include <app/confinement/Landlock.h>
#include <app/confinement/SystemCalls.h>
#include <app/jobs/Receipt.h>
#include <clipworks/edit/Error.h>
#include <clipworks/edit/MakeMovie.h>

namespace clipworks::app {
namespace {

namespace fs = std::filesystem;

/// Where the library lies, and with it others that are no part of the system.
fs::path ownLibraries() {
  Dl_info facts{};
  const auto* here = reinterpret_cast<const void*>(static_cast<std::string_view (*)(ErrorCode)>(&clipworks::name));
  const bool isFound = ::dladdr(here, &facts) != 0 && facts.dli_fname != nullptr;
  const fs::path library = isFound ? facts.dli_fname : "";
  return library.filename().native().find(".so") != std::string::npos ? library.parent_path() : fs::path();
}

#ifdef __SANITIZE_ADDRESS__
/// The file that LSAN_OPTIONS names, which is read once there are leaks; empty for none.
fs::path leakSuppressions() {
  const char* variable = std::getenv("LSAN_OPTIONS");
  const std::string_view options = variable != nullptr ? variable : "";
  const std::string_view key = "suppressions=";
  const std::size_t found = options.find(key);
  if (found == std::string_view::npos) return {};
  const std::size_t begin = found + key.size();
  return options.substr(begin, options.find(':', begin) - begin);
}
#endif

/// What the libraries open late: others that they load, and what the system says of its processors and its clock.
std::vector<fs::path> systemPlaces() {
  return {ownLibraries(), "/usr/lib", "/lib", "/lib64", "/usr/local/lib", "/etc/ld.so.cache",
          // The clock's zone, the processors, and how much of them this process may use.
          "/etc/localtime", "/usr/share/zoneinfo", "/proc/cpuinfo", "/proc/meminfo", "/proc/sys/vm/overcommit_memory",
          "/proc/self/cgroup", "/sys/devices/system/cpu", "/sys/devices/system/node", "/sys/fs/cgroup",
          // What the C library takes numbers from, and puts nothing into.
          "/dev/urandom",
#ifdef __SANITIZE_ADDRESS__
          "/proc/self", leakSuppressions(),  // the leak checker looks for the process's threads
#endif
          "/dev/null"};
}

/// The sound server's and the devices' own files are in many places; nothing of a stranger's is read.
FileRights rightsForSound(const Options& options) {
  FileRights rights{{"/"}, {options.outputs, "/dev/snd", "/dev/shm", "/dev/null"}};
  rights.write.push_back(options.temp ? *options.temp : fs::temp_directory_path());
  return rights;
}

FilePermissions permissionsOf(const Needs& needs, const Options& options) {
  FilePermissions permissions{{options.outputs}, {}, {".mp4", ".mov", ".m4a", ".jpg", ".png", ".heic"}};
  permissions.mayReplace = needs.replacedName || (options.output && options.replacesFile);
  if (options.output) {
    permissions.directories = {options.output->has_parent_path() ? options.output->parent_path() : fs::path(".")};
    permissions.beginnings = {options.output->stem().native()};
    permissions.endings.push_back(options.output->extension().native());
    if (options.job) permissions.replacedEnding = Receipt::ending;
  } else if (needs.replacedName) {
    permissions.beginnings = {*needs.replacedName};
  } else {
    for (const auto& input : needs.inputs) permissions.beginnings.push_back(input.stem().native() + "-");
  }
  return permissions;
}

/// Whether a filter from outside holds for this process: its answer to what it does not know may be the end.
bool isFilteredFromOutside() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("Seccomp:")) return line.find('2') != std::string::npos;
  }
  return false;
}

Confinement restrict(const FileRights& rights, bool usesSoundServer) {
  Confinement confinement;
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return confinement;
  const int version = landlockVersion();
  if (version > 0 && restrictFiles(version, rights) == 0) confinement.landlock = version;
  confinement.systemCalls = restrictSystemCalls(usesSoundServer) == 0;
  return confinement;
}

}  // namespace

std::string Confinement::lacks() const {
  if (!isSurvived) return "a filter around this process forbids confining it";
  if (isWhole()) return "";
  if (landlock == 0 && !systemCalls) return "this system has neither Landlock nor seccomp";
  return landlock == 0 ? "this kernel has no Landlock, so that files are not restricted"
                       : "seccomp is missing, so that calls to the kernel are not restricted";
}

Confinement availableConfinement() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return {};
  const pid_t child = ::fork();
  if (child == 0) {
    const Confinement got = restrict({}, false);
    (void)!::write(ends[1], &got, sizeof got);
    ::_exit(0);
  }
  ::close(ends[1]);
  Confinement available;
  const bool isTold = child > 0 && ::read(ends[0], &available, sizeof available) == sizeof available;
  ::close(ends[0]);
  while (child > 0 && ::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  return isTold ? available : Confinement{0, false, child < 0};
}

Result<Confined, Failure> confine(const Needs& needs, const Options& options) {
  Confined confined{{}, newFilesOfThisProcess()};
  if (options.confinement == ConfinementMode::off || needs.isTrusted) return confined;
  ::tzset();  // reads the time zone
  if (isFilteredFromOutside()) confined.confinement = availableConfinement();
  if (confined.confinement.isSurvived) {
    if (needs.usesSoundServer) {
      confined.confinement = restrict(rightsForSound(options), true);
    } else {
      if (needs.makesFiles) {
        auto files = startFileBroker(permissionsOf(needs, options));
        if (!files) {
          return failure(Failure{ExitCode::tryAgain, std::string("no process for new files can be started: ") +
                                                         std::strerror(files.error())});
        }
        confined.files = std::move(*files);
      }
      FileRights rights{systemPlaces(), {}};
      rights.read.insert(rights.read.end(), needs.inputs.begin(), needs.inputs.end());
      confined.confinement = restrict(rights, false);
    }
  }
  if (options.confinement == ConfinementMode::required && !confined.confinement.isWhole())
    return failed("--confinement require: " + confined.confinement.lacks());
  return confined;
}

}  // namespace clipworks::app
