#include <clipworks/engine/boxes/MovieBoxes.h>

#include <initializer_list>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>
#include <clipworks/engine/boxes/FullBoxCursor.h>
#include <clipworks/engine/boxes/GaplessTag.h>
#include <clipworks/engine/boxes/MovieIndex.h>
#include <clipworks/engine/boxes/TrackBoxes.h>

// Only boxes whose place is known are looked at, each by its path from `moov`; the deepest path has eight boxes, within
// limits::maxBoxNesting. So nesting needs no recursion, and what a file nests anywhere else is never entered.

namespace clipworks::engine {
namespace {

using Bytes = std::span<const std::byte>;

/// `mvhd`: ISO/IEC 14496-12, 8.2.2.
Expected<void> readMovieHeader(Bytes moov, MovieBoxes& movie) {
  const auto mvhd = findBox(moov, {fourCC("mvhd")});
  auto cursor = mvhd ? FullBoxCursor::open(*mvhd) : std::nullopt;
  if (!cursor) {
    return failed(ErrorKind::damaged, "The movie index has no movie header (mvhd) that can be read.");
  }
  cursor->skip(2 * cursor->timeBytes());  // when created and modified
  movie.timescale = cursor->read<std::uint32_t>();
  movie.duration = cursor->readWholeDuration();
  if (cursor->isOverrun()) {
    return failed(ErrorKind::damaged, "The movie header (mvhd) is cut off.");
  }
  constexpr std::size_t rateVolumeReserved = 4 + 2 + 2 + 8;
  cursor->skip(rateVolumeReserved);
  std::array<std::int32_t, 9> matrix{};
  for (std::int32_t& element : matrix) {
    element = cursor->read<std::int32_t>();
  }
  if (!cursor->isOverrun()) {
    movie.matrix = matrix;
  }
  return {};
}

/// `mvex` and the `mehd` in it: ISO/IEC 14496-12, 8.8.1 and 8.8.2.
void readFragmentHeader(Bytes moov, MovieBoxes& movie) {
  const auto mvex = findBox(moov, {fourCC("mvex")});
  if (!mvex) {
    return;
  }
  movie.fragmented = true;
  const auto mehd = findBox(*mvex, {fourCC("mehd")});
  if (auto cursor = mehd ? FullBoxCursor::open(*mehd) : std::nullopt) {
    movie.fragmentsDuration = cursor->readWholeDuration();
  }
}

/// A child of `parent` at `path` that may hold the tag, unless one was found before.
void lookForGapless(Bytes parent, std::initializer_list<std::uint32_t> path, MovieBoxes& movie) {
  if (movie.gapless) {
    return;
  }
  if (const auto meta = findBox(parent, path)) {
    movie.gapless = findGaplessInfo(*meta);
  }
}

/// The `trak` boxes, and what only they may tell of the movie.
Expected<void> readTracks(Bytes moov, MovieBoxes& movie) {
  BoxSequence boxes(moov);
  while (const auto box = boxes.next()) {
    if (box->type != fourCC("trak")) {
      continue;
    }
    if (movie.tracks.size() == limits::maxTracks) {
      return failed(ErrorKind::tooLarge, "The file has more than " + std::to_string(limits::maxTracks) + " tracks.");
    }
    auto track = readTrack(box->content);
    if (!track) {
      return tl::make_unexpected(track.error());
    }
    movie.tracks.push_back(std::move(*track));
    lookForGapless(box->content, {fourCC("udta"), fourCC("meta")}, movie);
  }
  return {};
}

Expected<MovieBoxes> readMovie(Bytes moov) {
  if (findBox(moov, {fourCC("cmov")})) {
    return failed(ErrorKind::unsupported, "The movie index is compressed (cmov), which is not supported.");
  }
  MovieBoxes movie;
  if (const auto read = readMovieHeader(moov, movie); !read) {
    return tl::make_unexpected(read.error());
  }
  readFragmentHeader(moov, movie);
  lookForGapless(moov, {fourCC("udta"), fourCC("meta")}, movie);
  lookForGapless(moov, {fourCC("meta")}, movie);
  if (const auto read = readTracks(moov, movie); !read) {
    return tl::make_unexpected(read.error());
  }
  return movie;
}

}  // namespace

Expected<MovieBoxes> readMovieBoxes(int fd) {
  try {
    const auto index = readMovieIndex(fd);
    if (!index) {
      return tl::make_unexpected(index.error());
    }
    auto movie = readMovie(index->content);
    if (movie && index->hasFragments) {
      movie->fragmented = true;
    }
    return movie;
  } catch (const std::bad_alloc&) {
    return failed(ErrorKind::outOfMemory, "There is not enough memory for the movie index.");
  }
}

}  // namespace clipworks::engine
