#pragma once

#include <cstddef>
#include <vector>

#include <clipworks/engine/Error.h>

namespace clipworks::engine {

/// The content of a file's first `moov`, in memory, and whether a movie fragment lies beside it.
struct MovieIndex {
  std::vector<std::byte> content;
  bool hasFragments = false;  ///< there is a `moof`
};

/// Walks the top-level boxes of the open regular file `fd` (with `pread`: its offset is neither used nor moved) and
/// reads the first `moov`, wherever it lies. Memory is taken only for what the file really holds. Fails with
/// `notMedia` when there is none, `damaged` when it is cut off, `tooLarge` beyond a limit, `unreadable` when the system
/// reports an error. May throw `std::bad_alloc`.
[[nodiscard]] Expected<MovieIndex> readMovieIndex(int fd);

}  // namespace clipworks::engine
