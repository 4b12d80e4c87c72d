#include <clipworks/engine/output/TrackEnds.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>
#include <clipworks/engine/boxes/FullBoxCursor.h>

namespace clipworks::engine {
namespace {

/// The index of a file in memory, and where it lies.
struct MovieBox {
  std::int64_t position = 0;  // of its content
  std::vector<std::byte> content;
};

std::uint8_t* bytesOf(std::byte* bytes) { return reinterpret_cast<std::uint8_t*>(bytes); }

std::optional<MovieBox> readMovieBox(const FileHandle& file) {
  const std::int64_t size = file.size();
  for (std::int64_t at = 0; at < size;) {
    std::array<std::byte, 16> head{};
    const std::int64_t count = file.readAt(at, bytesOf(head.data()), head.size());
    if (count < 0) return std::nullopt;
    const auto header = readBoxHeader(std::span(head).first(static_cast<std::size_t>(count)), static_cast<std::uint64_t>(size - at));
    if (!header || !header->isSound() || header->size > static_cast<std::uint64_t>(size - at)) return std::nullopt;
    if (header->type == fourCC("moov")) {
      MovieBox movie{at + static_cast<std::int64_t>(header->headerSize), {}};
      movie.content.resize(header->size - header->headerSize);
      const auto length = static_cast<std::int64_t>(movie.content.size());
      if (file.readAt(movie.position, bytesOf(movie.content.data()), length) != length) return std::nullopt;
      return movie;
    }
    at += static_cast<std::int64_t>(header->size);
  }
  return std::nullopt;
}

/// A time that is read and can be written anew where it stands.
class TimeField {
 public:
  /// The next one of `cursor`, which goes on behind it.
  explicit TimeField(FullBoxCursor& cursor) : bytes_(cursor.rest().first(std::min(cursor.timeBytes(), cursor.rest().size()))) {
    value_ = cursor.readTime();
  }
  [[nodiscard]] std::uint64_t value() const { return value_; }
  /// `movie` holds the bytes that were read.
  void set(std::uint64_t value, MovieBox& movie) const {
    std::byte* to = movie.content.data() + (bytes_.data() - movie.content.data());
    for (std::size_t i = 0; i < bytes_.size(); ++i) to[i] = static_cast<std::byte>(value >> (8 * (bytes_.size() - 1 - i)) & 0xFF);
  }

 private:
  std::span<const std::byte> bytes_;
  std::uint64_t value_ = 0;
};

/// The duration in a movie's or a track's header, behind two dates and `bytesBefore` more.
std::optional<TimeField> headerDuration(std::span<const std::byte> parent, std::uint32_t type, std::size_t bytesBefore) {
  const auto content = findBox(parent, {type});
  if (!content) return std::nullopt;
  auto cursor = FullBoxCursor::open(*content);
  if (!cursor) return std::nullopt;
  cursor->skip(2 * cursor->timeBytes() + bytesBefore);
  const TimeField field(*cursor);
  return cursor->isOverrun() ? std::nullopt : std::optional(field);
}

std::optional<TimeField> trackDuration(std::span<const std::byte> track) {
  return headerDuration(track, fourCC("tkhd"), 2 * sizeof(std::uint32_t));
}

bool endTrack(std::span<const std::byte> track, std::uint64_t end, MovieBox& movie) {
  const auto length = trackDuration(track);
  const auto content = findBox(track, {fourCC("edts"), fourCC("elst")});
  if (!length || !content) return false;
  auto cursor = FullBoxCursor::open(*content);
  if (!cursor) return false;
  const auto entries = cursor->read<std::uint32_t>();
  std::uint64_t before = 0;
  for (std::uint32_t i = 0; i < entries && !cursor->isOverrun(); ++i) {
    const TimeField edit(*cursor);
    cursor->skip(cursor->timeBytes() + sizeof(std::uint32_t));
    if (i + 1 == entries && !cursor->isOverrun() && before < end) {
      edit.set(end - before, movie);
      length->set(end, movie);
      return true;
    }
    before += edit.value();
  }
  return false;
}

bool endTracks(MovieBox& movie, const std::map<int, std::int64_t>& ends) {
  std::uint64_t longest = 0;
  BoxSequence boxes(movie.content);
  int place = 0;
  std::size_t ended = 0;
  while (const auto box = boxes.next()) {
    if (box->type != fourCC("trak")) continue;
    const auto end = ends.find(place++);
    if (end != ends.end() && endTrack(box->content, static_cast<std::uint64_t>(end->second), movie)) ++ended;
    if (const auto length = trackDuration(box->content)) longest = std::max(longest, length->value());
  }
  const auto whole = headerDuration(movie.content, fourCC("mvhd"), sizeof(std::uint32_t));
  if (whole) whole->set(longest, movie);
  return whole && ended == ends.size();
}

}  // namespace

Expected<void> endTracks(OutputFile& file, const std::map<int, std::int64_t>& ends) {
  auto movie = readMovieBox(file.handle());
  if (!movie || !endTracks(*movie, ends)) return failed(ErrorKind::internal, file.name() + " does not hold what was written to it");
  return file.writeAt(movie->position, bytesOf(movie->content.data()), static_cast<std::int64_t>(movie->content.size()));
}

}  // namespace clipworks::engine
