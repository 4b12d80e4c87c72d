#pragma once

#include <filesystem>
#include <vector>

namespace clipworks::app {

/// What a process may still do with files once it is confined. Directories hold for all that is in them.
struct FileRights {
  std::vector<std::filesystem::path> read;
  std::vector<std::filesystem::path> write;  ///< new files, changes, removals; reading, too
};

/// What of Landlock the kernel has: the version of its interface, 0 for nothing.
[[nodiscard]] int landlockVersion();

/// Takes from this process, for good, all rights to files but `rights`; from version 4 on TCP, too, from version 6 on
/// signals to processes outside and abstract Unix sockets outside. Files that are open stay so. Places that are not
/// there are left out. Before there are other threads, after `PR_SET_NO_NEW_PRIVS`. Returns a value of `errno`, 0 for
/// success. See landlock(7).
[[nodiscard]] int restrictFiles(int version, const FileRights& rights);

}  // namespace clipworks::app
