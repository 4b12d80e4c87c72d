#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// What the library finds on this system.
struct SystemFacts {
  /// One that is loaded.
  struct Library {
    std::string name;
    std::string version;
  };
  std::vector<Library> libraries;  ///< those that read and write media
  /// What can be written.
  struct Encoder {
    std::string name;  ///< what it writes: "H.264", "HEVC", "AAC"
    bool works = false;
  };
  std::vector<Encoder> encoders;
  bool recordsSound = false;  ///< a sound server or device lets itself be opened
  std::string soundError;     ///< why not, one sentence
};

/// Looks; opens the encoders of pictures once, and the microphone without listening. Takes some tenths of a second. Any
/// thread.
[[nodiscard]] CLIPWORKS_API SystemFacts systemFacts();

/// How many processors this process may use at once, 1 at least: those of its affinity, and no more than the quota of
/// its control groups (cgroups) comes to, rounded up. Any thread.
[[nodiscard]] CLIPWORKS_API int usableProcessors();

/// How many bytes of memory this process and its children may take now: what the system has available, and no more than
/// its control groups leave; 0 where nothing tells. Any thread.
[[nodiscard]] CLIPWORKS_API std::int64_t usableMemory();

}  // namespace clipworks
