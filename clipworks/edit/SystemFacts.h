#pragma once

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

}  // namespace clipworks
