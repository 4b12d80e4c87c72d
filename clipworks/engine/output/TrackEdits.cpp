#include <clipworks/engine/output/TrackEdits.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>
#include <clipworks/engine/boxes/FullBoxCursor.h>
#include <clipworks/engine/output/WrittenIndex.h>

namespace clipworks::engine {
namespace {

/// A number that is read and can be written anew where it stands.
class Field {
 public:
  /// The next one of `cursor`, which goes on behind it.
  Field(BoxCursor& cursor, std::size_t bytes) : bytes_(cursor.rest().first(std::min(bytes, cursor.rest().size()))) {
    for (const std::byte byte : bytes_) value_ = value_ << 8 | std::to_integer<std::uint64_t>(byte);
    cursor.skip(bytes);
  }
  [[nodiscard]] std::uint64_t value() const { return value_; }
  [[nodiscard]] bool holds(std::uint64_t value) const {
    return bytes_.size() == sizeof value || value >> (8 * bytes_.size()) == 0;
  }
  /// `movie` holds the bytes that were read.
  void set(std::uint64_t value, WrittenIndex& movie) const {
    std::byte* to = movie.content.data() + (bytes_.data() - movie.content.data());
    for (std::size_t i = 0; i < bytes_.size(); ++i)
      to[i] = static_cast<std::byte>(value >> (8 * (bytes_.size() - 1 - i)) & 0xFF);
  }

 private:
  std::span<const std::byte> bytes_;
  std::uint64_t value_ = 0;
};

Field timeField(FullBoxCursor& cursor) { return Field(cursor, cursor.timeBytes()); }

/// A number and what it shall be.
struct Change {
  Field field;
  std::uint64_t value;
};
using Changes = std::vector<Change>;

/// The duration in the header of a movie, track or media, behind two dates and `bytesBefore` more.
std::optional<Field> headerDuration(std::span<const std::byte> parent, std::uint32_t type, std::size_t bytesBefore) {
  const auto content = findBox(parent, {type});
  auto cursor = content ? FullBoxCursor::open(*content) : std::nullopt;
  if (!cursor) return std::nullopt;
  cursor->skip(2 * cursor->timeBytes() + bytesBefore);
  const Field field = timeField(*cursor);
  return cursor->isOverrun() ? std::nullopt : std::optional(field);
}

std::optional<Field> trackDuration(std::span<const std::byte> track) {
  return headerDuration(track, fourCC("tkhd"), 2 * sizeof(std::uint32_t));
}

/// The edit, and an empty one before it where the track starts late.
bool changeEdits(std::span<const std::byte> track, const WantedEdit& wanted, std::int64_t mediaTime, Changes& changes) {
  const auto content = findBox(track, {fourCC("edts"), fourCC("elst")});
  auto cursor = content ? FullBoxCursor::open(*content) : std::nullopt;
  if (!cursor) return false;
  const auto entries = cursor->read<std::uint32_t>();
  if (entries != (wanted.start > 0 ? 2 : 1)) return false;
  if (wanted.start > 0) {
    changes.push_back({timeField(*cursor), static_cast<std::uint64_t>(wanted.start)});
    cursor->skip(cursor->timeBytes() + sizeof(std::uint32_t));
  }
  changes.push_back({timeField(*cursor), static_cast<std::uint64_t>(wanted.end - wanted.start)});
  changes.push_back({timeField(*cursor), static_cast<std::uint64_t>(mediaTime)});
  return !cursor->isOverrun() && wanted.end > wanted.start && mediaTime >= 0;
}

/// Multiplies the values of all runs of `stts` or `ctts`.
void scaleRuns(std::span<const std::byte> samples, std::uint32_t type, std::uint64_t factor, Changes& changes) {
  const auto content = findBox(samples, {type});
  auto cursor = content ? FullBoxCursor::open(*content) : std::nullopt;
  if (!cursor) return;
  for (auto entries = cursor->read<std::uint32_t>(); entries > 0 && !cursor->isOverrun(); --entries) {
    cursor->skip(sizeof(std::uint32_t));
    const Field value(*cursor, sizeof(std::uint32_t));
    // Readers take what is larger for a negative number.
    const std::uint64_t scaled = value.value() * factor;
    changes.push_back({value, scaled > INT32_MAX ? UINT64_MAX : scaled});
  }
}

/// What to change for a track that counts `factor` ticks where it was written with one. Nothing when the boxes are not
/// there, or a number does not go into its field.
std::optional<Changes> changesOf(std::span<const std::byte> track, const WantedEdit& wanted, std::int32_t factor) {
  Changes changes;
  const auto media = findBox(track, {fourCC("mdia")});
  const auto length = trackDuration(track);
  const auto mediaLength = media ? headerDuration(*media, fourCC("mdhd"), sizeof(std::uint32_t)) : std::nullopt;
  if (!length || !mediaLength || !changeEdits(track, wanted, wanted.mediaTime * factor, changes)) return std::nullopt;
  changes.push_back({*length, static_cast<std::uint64_t>(wanted.end)});
  changes.push_back({*mediaLength, static_cast<std::uint64_t>(wanted.mediaLength * factor)});
  if (factor > 1) {
    auto cursor = FullBoxCursor::open(*findBox(*media, {fourCC("mdhd")}));
    cursor->skip(2 * cursor->timeBytes());
    changes.push_back({Field(*cursor, sizeof(std::uint32_t)), static_cast<std::uint64_t>(wanted.timescale) * factor});
    const auto samples = findBox(*media, {fourCC("minf"), fourCC("stbl")});
    if (!samples) return std::nullopt;
    scaleRuns(*samples, fourCC("stts"), factor, changes);
    scaleRuns(*samples, fourCC("ctts"), factor, changes);
  }
  const bool allFit = std::all_of(changes.begin(), changes.end(), [](const auto& c) { return c.field.holds(c.value); });
  return allFit ? std::optional(std::move(changes)) : std::nullopt;
}

bool writeEdit(std::span<const std::byte> track, const WantedEdit& wanted, std::int32_t movieTimescale,
               WrittenIndex& movie) {
  std::optional<Changes> changes;
  const bool isLate = wanted.start > 0 && movieTimescale > wanted.timescale && movieTimescale % wanted.timescale == 0;
  if (isLate) changes = changesOf(track, wanted, movieTimescale / wanted.timescale);
  if (!changes) changes = changesOf(track, wanted, 1);
  if (!changes) return false;
  for (const auto& change : *changes) change.field.set(change.value, movie);
  return true;
}

bool writeEdits(WrittenIndex& movie, std::int32_t movieTimescale, const std::map<int, WantedEdit>& edits) {
  std::uint64_t longest = 0;
  BoxSequence boxes(movie.content);
  int place = 0;
  std::size_t written = 0;
  while (const auto box = boxes.next()) {
    if (box->type != fourCC("trak")) continue;
    const auto edit = edits.find(place++);
    if (edit != edits.end() && writeEdit(box->content, edit->second, movieTimescale, movie)) ++written;
    if (const auto length = trackDuration(box->content)) longest = std::max(longest, length->value());
  }
  const auto whole = headerDuration(movie.content, fourCC("mvhd"), sizeof(std::uint32_t));
  if (whole) whole->set(longest, movie);
  return whole && written == edits.size();
}

}  // namespace

Expected<void> writeEdits(OutputFile& file, std::int64_t start, std::int32_t movieTimescale,
                          const std::map<int, WantedEdit>& edits) {
  auto movie = WrittenIndex::read(file.handle(), start);
  if (!movie || !writeEdits(*movie, movieTimescale, edits)) {
    return failed(ErrorKind::internal, file.name() + " does not hold what was written to it");
  }
  return file.writeAt(movie->position, reinterpret_cast<const std::uint8_t*>(movie->content.data()),
                      static_cast<std::int64_t>(movie->content.size()));
}

}  // namespace clipworks::engine
