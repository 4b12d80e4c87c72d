#include <clipworks/engine/output/DataTrackWriter.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <span>
#include <utility>

#include <clipworks/engine/boxes/BoxBuilder.h>
#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>
#include <clipworks/engine/boxes/FullBoxCursor.h>
#include <clipworks/engine/output/DataTrackBoxes.h>
#include <clipworks/engine/output/WrittenIndex.h>

namespace clipworks::engine {
namespace {

using Bytes = std::span<const std::byte>;

/// Collects small pieces on their way to the end of a file.
class Appender {
 public:
  explicit Appender(OutputFile& file) : file_(file), position_(file.handle().size()) {}

  [[nodiscard]] std::int64_t position() const { return position_ + static_cast<std::int64_t>(pending_.size()); }

  /// The next `count` bytes, to be filled before anything else is asked.
  Expected<std::uint8_t*> next(std::size_t count) {
    constexpr std::size_t most = 1 << 20;
    if (pending_.size() + count > most) {
      if (auto written = flush(); !written) return tl::make_unexpected(written.error());
    }
    pending_.resize(pending_.size() + count);
    return pending_.data() + pending_.size() - count;
  }

  Expected<void> append(Bytes bytes) {
    auto to = next(bytes.size());
    if (!to) return tl::make_unexpected(to.error());
    std::transform(bytes.begin(), bytes.end(), *to, [](std::byte byte) { return std::to_integer<std::uint8_t>(byte); });
    return {};
  }

  Expected<void> flush() {
    const auto length = static_cast<std::int64_t>(pending_.size());
    auto written = file_.writeAt(position_, pending_.data(), length);
    position_ += length;
    pending_.clear();
    return written;
  }

 private:
  OutputFile& file_;
  std::int64_t position_;  // of the first pending byte
  std::vector<std::uint8_t> pending_;
};

Expected<void> append(const DataRunSample& sample, const DataRun& run, Appender& to) {
  if (sample.isOwn) return to.append(Bytes(run.own).subspan(sample.position, sample.bytes));
  auto bytes = to.next(sample.bytes);
  if (!bytes) return tl::make_unexpected(bytes.error());
  if (run.file->readAt(static_cast<std::int64_t>(sample.position), *bytes, sample.bytes) == sample.bytes) return {};
  return failed(ErrorKind::unreadable, "the data tracks of a file cannot be read any more", errno);
}

std::uint32_t trackID(Bytes trak) {
  const auto tkhd = findBox(trak, {fourCC("tkhd")});
  auto cursor = tkhd ? FullBoxCursor::open(*tkhd) : std::nullopt;
  if (!cursor) return 0;
  cursor->skip(2 * cursor->timeBytes());
  return cursor->read<std::uint32_t>();
}

/// The IDs of the tracks of an index, in its order.
std::vector<std::uint32_t> trackIDs(Bytes moov) {
  std::vector<std::uint32_t> ids;
  BoxSequence boxes(moov);
  while (const auto box = boxes.next()) {
    if (box->type == fourCC("trak")) ids.push_back(trackID(box->content));
  }
  return ids;
}

}  // namespace

std::int64_t DataTrackWriter::bytesOfIndex() const {
  auto bytes = static_cast<std::int64_t>(picturesReferencesBox(jobs_, 0).size());
  for (std::size_t i = 0; i < jobs_.size(); ++i) {
    const std::vector<std::int64_t> nowhere(jobs_[i].runs.size());
    bytes += static_cast<std::int64_t>(dataTrackBox(jobs_, i, {0, 0, movieTimescale_, isQuickTime_, nowhere}).size());
  }
  return bytes;
}

Expected<DataTrackWriter::Positions> DataTrackWriter::writeMedia(OutputFile& file) const {
  constexpr std::int64_t longHead = 16;
  std::int64_t bytes = longHead;
  for (const auto& job : jobs_) bytes += job.mediaBytes();
  BoxBuilder head;
  head.put(std::uint32_t{1});  // the size stands behind, in 64 bits
  head.put(fourCC("mdat"));
  head.put(bytes);
  Appender to(file);
  if (auto written = to.append(head.take()); !written) return tl::make_unexpected(written.error());
  Positions positions;
  for (const auto& job : jobs_) {
    positions.emplace_back();
    for (const auto& run : job.runs) {
      positions.back().push_back(to.position());
      for (const auto& sample : run.samples) {
        if (auto written = append(sample, run, to); !written) return tl::make_unexpected(written.error());
      }
    }
  }
  if (auto written = to.flush(); !written) return tl::make_unexpected(written.error());
  return positions;
}

Expected<void> DataTrackWriter::finish(OutputFile& file, std::optional<int> picturesTrack) const {
  auto positions = writeMedia(file);
  if (!positions) return tl::make_unexpected(positions.error());
  const auto index = WrittenIndex::read(file.handle(), room_);
  const auto unknown = [&] {
    return failed(ErrorKind::internal, file.name() + " does not hold what was written to it");
  };
  if (!index) return unknown();
  const auto ids = trackIDs(index->content);
  if (ids.empty() || (picturesTrack && static_cast<std::size_t>(*picturesTrack) >= ids.size())) return unknown();
  const std::uint32_t firstID = *std::max_element(ids.begin(), ids.end()) + 1;
  const std::uint32_t picturesID = picturesTrack ? ids[static_cast<std::size_t>(*picturesTrack)] : 0;

  BoxBuilder front;
  std::vector<std::byte> before(static_cast<std::size_t>(index->boxPosition - room_));
  const auto beforeBytes = static_cast<std::int64_t>(before.size());
  if (file.handle().readAt(room_, reinterpret_cast<std::uint8_t*>(before.data()), beforeBytes) != beforeBytes)
    return unknown();
  front.put(before);
  front.box(fourCC("moov"), [&] {
    std::size_t tracks = 0;
    BoxSequence boxes(index->content);
    while (const auto box = boxes.next()) {
      const bool isTrack = box->type == fourCC("trak");
      front.box(box->type, [&] {
        const bool isHeader = box->type == fourCC("mvhd") && box->content.size() > sizeof(std::uint32_t);
        front.put(isHeader ? box->content.first(box->content.size() - sizeof(std::uint32_t)) : box->content);
        if (isHeader) front.put(firstID + static_cast<std::uint32_t>(jobs_.size()));  // the next one's ID
        if (isTrack && picturesTrack && tracks == static_cast<std::size_t>(*picturesTrack))
          front.put(picturesReferencesBox(jobs_, firstID));
      });
      if (!isTrack || ++tracks < ids.size()) continue;
      for (std::size_t i = 0; i < jobs_.size(); ++i)
        front.put(dataTrackBox(jobs_, i, {picturesID, firstID, movieTimescale_, isQuickTime_, (*positions)[i]}));
    }
  });
  const std::int64_t end = index->position + static_cast<std::int64_t>(index->content.size());
  if (static_cast<std::int64_t>(front.size()) != end) return unknown();
  const auto bytes = front.take();
  return file.writeAt(0, reinterpret_cast<const std::uint8_t*>(bytes.data()), end);
}

}  // namespace clipworks::engine
