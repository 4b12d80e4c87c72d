#include <app/confinement/SystemCalls.h>

#include <fcntl.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace clipworks::app {
namespace {

constexpr std::uint32_t denied = SCMP_ACT_ERRNO(EPERM);

// By name, since not every architecture and version of the library has each.
constexpr const char* always[] = {
    // Other programs and processes.
    "execve", "execveat", "fork", "vfork", "ptrace", "process_vm_readv", "process_vm_writev", "process_madvise",
    "process_mrelease", "kcmp", "pidfd_open", "pidfd_getfd", "pidfd_send_signal", "tkill", "rt_sigqueueinfo",
    "rt_tgsigqueueinfo", "migrate_pages", "move_pages",
    // The system as a whole.
    "mount", "umount", "umount2", "pivot_root", "chroot", "fsopen", "fsconfig", "fsmount", "fspick", "move_mount",
    "open_tree", "open_tree_attr", "mount_setattr", "unshare", "setns", "bpf", "perf_event_open", "io_uring_setup",
    "io_uring_enter", "io_uring_register", "userfaultfd", "add_key", "request_key", "keyctl", "kexec_load",
    "kexec_file_load", "init_module", "finit_module", "delete_module", "reboot", "swapon", "swapoff", "acct",
    "settimeofday", "clock_settime", "clock_adjtime", "adjtimex", "stime", "sethostname", "setdomainname", "quotactl",
    "quotactl_fd", "iopl", "ioperm", "modify_ldt", "syslog", "vhangup", "lookup_dcookie", "fanotify_init",
    "fanotify_mark", "open_by_handle_at", "name_to_handle_at", "uselib", "ustat", "sysfs", "nfsservctl", "vm86",
    "vm86old", "personality",
    // Rights.
    "setuid", "setgid", "setreuid", "setregid", "setresuid", "setresgid", "setfsuid", "setfsgid", "setgroups", "capset",
    // What Landlock does not see: changes by path.
    "chmod", "fchmodat", "fchmodat2", "chown", "lchown", "fchownat", "setxattr", "lsetxattr", "setxattrat",
    "removexattr", "lremovexattr", "removexattrat", "utime", "utimes", "futimesat",
    // Memory and queues outside the process's own.
    "shmget", "shmat", "semget", "semop", "semtimedop", "msgget", "msgsnd", "msgrcv", "mq_open", "mq_unlink",
    "memfd_secret"};

constexpr const char* sockets[] = {"socketpair", "bind",    "connect",  "listen",   "accept",   "accept4",
                                   "sendto",     "sendmsg", "sendmmsg", "recvmmsg", "recvfrom", "memfd_create"};

/// A filter under way; remembers its first failure.
class Filter {
 public:
  Filter() : context_(seccomp_init(SCMP_ACT_ALLOW)), code_(context_ == nullptr ? ENOMEM : 0) {}
  ~Filter() { seccomp_release(context_); }
  Filter(const Filter&) = delete;
  Filter& operator=(const Filter&) = delete;

  void deny(const char* name) { add(denied, name, {}); }
  void deny(const char* name, const scmp_arg_cmp& where) { add(denied, name, {where}); }
  void add(std::uint32_t action, const char* name, std::initializer_list<scmp_arg_cmp> where) {
    const int call = seccomp_syscall_resolve_name(name);
    if (code_ != 0 || call == __NR_SCMP_ERROR || call < 0) return;
    code_ = -seccomp_rule_add_array(context_, action, call, static_cast<unsigned>(where.size()), where.begin());
  }
  [[nodiscard]] int load() {
    // A tree of numbers in place of a list: with that many calls it is faster at every one.
    if (code_ == 0) code_ = -seccomp_attr_set(context_, SCMP_FLTATR_CTL_OPTIMIZE, 2);
    return code_ == 0 ? -seccomp_load(context_) : code_;
  }

 private:
  scmp_filter_ctx context_;
  int code_;
};

scmp_arg_cmp has(unsigned argument, std::uint64_t bits) { return {argument, SCMP_CMP_MASKED_EQ, bits, bits}; }

scmp_arg_cmp isOther(unsigned argument, std::uint64_t value) { return {argument, SCMP_CMP_NE, value, 0}; }

scmp_arg_cmp is(unsigned argument, std::uint64_t value) { return {argument, SCMP_CMP_EQ, value, 0}; }

}  // namespace

int restrictSystemCalls(bool usesSoundServer) {
  Filter filter;
  for (const char* name : always) {
#ifdef __SANITIZE_ADDRESS__
    // The leak checker stops the process's threads as a debugger does.
    if (std::string_view(name) == "ptrace") continue;
#endif
    filter.deny(name);
  }
  // Threads, but no processes. The C library takes the older call where this one is missing, and that one's flags can
  // be seen.
  filter.add(SCMP_ACT_ERRNO(ENOSYS), "clone3", {});
#ifndef __SANITIZE_ADDRESS__
  filter.deny("clone", {0, SCMP_CMP_MASKED_EQ, CLONE_THREAD, 0});
#endif
  const auto self = static_cast<std::uint64_t>(::getpid());
  filter.deny("kill", isOther(0, self));
  filter.deny("tgkill", isOther(0, self));
  filter.deny("prlimit64", {0, SCMP_CMP_GT, 0, 0});
  filter.deny("utimensat", isOther(1, 0));  // by path; by descriptor there is none
  // Words that are put into the terminal's mouth.
  filter.deny("ioctl", is(1, TIOCSTI));
  filter.deny("ioctl", is(1, TIOCLINUX));
  if (usesSoundServer) {
    filter.deny("socket", isOther(0, AF_UNIX));
  } else {
    filter.deny("socket");
    for (const char* name : sockets) filter.deny(name);
    // No limit of the process counts it.
    filter.deny("mmap", has(3, MAP_SHARED | MAP_ANONYMOUS));
  }
  return filter.load();
}

}  // namespace clipworks::app
