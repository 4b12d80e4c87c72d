#include <clipworks/engine/boxes/MovieIndex.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>

namespace clipworks::engine {
namespace {

/// An index at the end follows a handful of boxes; of a fragmented file, only the first fragment is looked for.
constexpr int maxTopLevelBoxes = 4096;

/// A box of the file's top level and the place of its first byte.
struct PlacedBox {
  std::uint64_t offset = 0;
  BoxHeader header;
};

/// What a walk over the top-level boxes found.
struct TopLevel {
  std::optional<PlacedBox> movie;
  bool hasFragments = false;
  bool isWhole = false;  ///< the walk came to the end, not to `maxTopLevelBoxes`
};

Expected<std::uint64_t> sizeOfFile(int fd) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) {
    return failed(ErrorKind::unreadable, "The file's size cannot be read.", errno);
  }
  if (!S_ISREG(status.st_mode)) {
    return failed(ErrorKind::unreadable, "This is not a regular file.", S_ISDIR(status.st_mode) ? EISDIR : ESPIPE);
  }
  return static_cast<std::uint64_t>(status.st_size);
}

/// Fills `buffer` from `offset` on.
Expected<void> readAt(int fd, std::uint64_t offset, std::span<std::byte> buffer) {
  while (!buffer.empty()) {
    const ssize_t count = ::pread(fd, buffer.data(), buffer.size(), static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      return failed(ErrorKind::unreadable, "The file cannot be read.", errno);
    }
    if (count == 0) {
      return failed(ErrorKind::damaged, "The file became shorter while it was read.");
    }
    buffer = buffer.subspan(static_cast<std::size_t>(count));
    offset += static_cast<std::uint64_t>(count);
  }
  return {};
}

/// The head of the box at `offset`; null at the end of the file, or where the rest is too short for a head.
Expected<std::optional<BoxHeader>> readHeaderAt(int fd, std::uint64_t offset, std::uint64_t fileSize) {
  std::array<std::byte, 16> buffer{};
  const auto bytes = std::span(buffer).first(std::min<std::uint64_t>(buffer.size(), fileSize - offset));
  return readAt(fd, offset, bytes).map([&] { return readBoxHeader(bytes, fileSize - offset); });
}

/// Looks at the heads of the top-level boxes until nothing more can be learnt.
Expected<TopLevel> walkTopLevel(int fd, std::uint64_t fileSize) {
  TopLevel found;
  std::uint64_t offset = 0;
  for (int count = 0; count < maxTopLevelBoxes; ++count) {
    const auto header = readHeaderAt(fd, offset, fileSize);
    if (!header) {
      return tl::make_unexpected(header.error());
    }
    if (!*header) {
      found.isWhole = true;
      return found;
    }
    const BoxHeader& box = **header;
    if (box.type == fourCC("moov") && !found.movie) {
      found.movie = PlacedBox{offset, box};
    }
    found.hasFragments = found.hasFragments || box.type == fourCC("moof");
    const bool isLast = !box.isSound() || box.size > fileSize - offset;
    if (isLast || (found.movie && found.hasFragments)) {
      found.isWhole = true;
      return found;
    }
    offset += box.size;
  }
  return found;
}

/// The size of the index's content, once it is known to lie in the file and within the limit.
Expected<std::size_t> contentSize(const PlacedBox& movie, std::uint64_t fileSize) {
  if (!movie.header.isSound()) {
    return failed(ErrorKind::damaged, "The movie index (moov) has an impossible size.");
  }
  if (movie.header.size > fileSize - movie.offset) {
    return failed(ErrorKind::damaged, "The movie index (moov) is cut off: it claims " +
                                          std::to_string(movie.header.size) + " bytes, the file has " +
                                          std::to_string(fileSize - movie.offset) + " left.");
  }
  if (movie.header.size > limits::maxMovieIndexBytes) {
    return failed(ErrorKind::tooLarge, "The movie index (moov) of " + std::to_string(movie.header.size) +
                                           " bytes is larger than is accepted.");
  }
  return static_cast<std::size_t>(movie.header.size - movie.header.headerSize);
}

}  // namespace

Expected<MovieIndex> readMovieIndex(int fd) {
  const auto fileSize = sizeOfFile(fd);
  if (!fileSize) {
    return tl::make_unexpected(fileSize.error());
  }
  const auto topLevel = walkTopLevel(fd, *fileSize);
  if (!topLevel) {
    return tl::make_unexpected(topLevel.error());
  }
  if (!topLevel->movie) {
    return topLevel->isWhole ? failed(ErrorKind::notMedia, "The file has no movie index (moov).")
                             : failed(ErrorKind::tooLarge, "No movie index (moov) is among the file's first " +
                                                               std::to_string(maxTopLevelBoxes) + " boxes.");
  }
  const PlacedBox& movie = *topLevel->movie;
  const auto size = contentSize(movie, *fileSize);
  if (!size) {
    return tl::make_unexpected(size.error());
  }
  MovieIndex index{std::vector<std::byte>(*size), topLevel->hasFragments};
  const auto read = readAt(fd, movie.offset + movie.header.headerSize, index.content);
  if (!read) {
    return tl::make_unexpected(read.error());
  }
  return index;
}

}  // namespace clipworks::engine
