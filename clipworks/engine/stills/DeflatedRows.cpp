#include <clipworks/engine/stills/DeflatedRows.h>

#include <libyuv.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include <clipworks/engine/Processors.h>
#include <clipworks/engine/Thread.h>

namespace clipworks::engine {
namespace {

constexpr int compressionLevel = 3;
constexpr int memoryLevel = 8;
constexpr int windowBits = 15;
constexpr std::size_t windowBytes = std::size_t{1} << windowBits;
constexpr std::array<std::uint8_t, 2> streamHeader{0x78, 0x5E};  // a window of 32 KiB, "fast" (RFC 1950, 2.2)
constexpr std::uint8_t averageFilter = 3;                        // PNG (third edition), 9.2
constexpr std::size_t pixelBytes = 3;
constexpr std::size_t partBytes = std::size_t{1} << 20;  // of rows: enough for what each costs not to matter

/// Filtered rows of a picture, from any of them on.
class FilteredRows {
 public:
  FilteredRows(const AVFrame& planes, int first)
      : planes_(planes),
        y_(first),
        row_(pixelBytes + pixelBytes * static_cast<std::size_t>(planes.width)),
        above_(row_.size()) {
    if (first > 0) pack(first - 1, above_);
  }

  [[nodiscard]] static std::size_t bytesPerRow(const AVFrame& planes) {
    return 1 + pixelBytes * static_cast<std::size_t>(planes.width);
  }

  void writeNext(std::uint8_t* to) {
    pack(y_++, row_);
    *to++ = averageFilter;
    const std::uint8_t* const row = row_.data() + pixelBytes;
    const std::uint8_t* const left = row_.data();
    const std::uint8_t* const above = above_.data() + pixelBytes;
    const std::size_t count = row_.size() - pixelBytes;
    for (std::size_t i = 0; i < count; ++i) to[i] = static_cast<std::uint8_t>(row[i] - (left[i] + above[i]) / 2);
    std::swap(row_, above_);
  }

 private:
  // Behind the room for the pixel left of the first, which is zero.
  void pack(int y, std::vector<std::uint8_t>& row) const {
    const auto plane = [&](int i) { return planes_.data[i] + static_cast<std::ptrdiff_t>(y) * planes_.linesize[i]; };
    libyuv::MergeRGBPlane(plane(2), 0, plane(0), 0, plane(1), 0, row.data() + pixelBytes, 0, planes_.width, 1);
  }

  const AVFrame& planes_;
  int y_;
  std::vector<std::uint8_t> row_;
  std::vector<std::uint8_t> above_;
};

/// Some rows, compressed as if those before them had been, up to a whole byte.
struct Part {
  std::vector<std::uint8_t> bytes;
  uLong checksum = 0;      // Adler-32 of the rows
  std::size_t length = 0;  // bytes of the rows
};

Part deflatePart(const AVFrame& planes, int from, int to) {
  const std::size_t rowBytes = FilteredRows::bytesPerRow(planes);
  // Of the rows before it, what the window reaches.
  const int seen = std::min(from, static_cast<int>((windowBytes + rowBytes - 1) / rowBytes));
  std::vector<std::uint8_t> rows(rowBytes * static_cast<std::size_t>(to - from + seen));
  FilteredRows filtered(planes, from - seen);
  for (std::size_t at = 0; at < rows.size(); at += rowBytes) filtered.writeNext(rows.data() + at);
  const std::size_t seenBytes = rowBytes * static_cast<std::size_t>(seen);
  const std::size_t window = std::min(seenBytes, windowBytes);
  Part part;
  part.length = rows.size() - seenBytes;
  part.checksum = adler32_z(adler32_z(0, nullptr, 0), rows.data() + seenBytes, part.length);

  z_stream stream{};
  if (deflateInit2(&stream, compressionLevel, Z_DEFLATED, -windowBits, memoryLevel, Z_FILTERED) != Z_OK) {
    throw std::bad_alloc();
  }
  const std::unique_ptr<z_stream, decltype(&deflateEnd)> owner(&stream, &deflateEnd);
  constexpr std::size_t flushBytes = 16;
  part.bytes.resize(deflateBound(&stream, part.length) + flushBytes);
  if (window > 0) {
    deflateSetDictionary(&stream, rows.data() + seenBytes - window, static_cast<uInt>(window));
  }
  stream.next_in = rows.data() + seenBytes;
  stream.avail_in = static_cast<uInt>(part.length);
  stream.next_out = part.bytes.data();
  stream.avail_out = static_cast<uInt>(part.bytes.size());
  deflate(&stream, to == planes.height ? Z_FINISH : Z_SYNC_FLUSH);
  part.bytes.erase(part.bytes.end() - static_cast<std::ptrdiff_t>(stream.avail_out), part.bytes.end());
  return part;
}

/// The parts of a picture, handed out to whoever has time.
class PartsWork {
 public:
  explicit PartsWork(const AVFrame& planes)
      : planes_(planes),
        rowsOfPart_(static_cast<int>(std::max<std::size_t>(partBytes / FilteredRows::bytesPerRow(planes), 1))),
        parts_(static_cast<std::size_t>((planes.height + rowsOfPart_ - 1) / rowsOfPart_)) {}

  /// Nothing when out of memory.
  std::optional<std::vector<Part>> finish(int threads) {
    const auto most = static_cast<std::size_t>(threads > 0 ? threads : usableProcessors());
    std::vector<Thread> helpers;
    while (helpers.size() + 1 < std::min(most, parts_.size())) {
      auto helper = Thread::start([this] { work(); }, {.name = "deflate", .isPatient = false});
      if (!helper) break;
      helpers.push_back(std::move(*helper));
    }
    work();
    helpers.clear();
    if (isOutOfMemory_) return std::nullopt;
    return std::move(parts_);
  }

 private:
  void work() noexcept {
    try {
      for (std::size_t i = next_++; i < parts_.size() && !isOutOfMemory_; i = next_++) {
        const int from = static_cast<int>(i) * rowsOfPart_;
        parts_[i] = deflatePart(planes_, from, std::min(from + rowsOfPart_, planes_.height));
      }
    } catch (const std::bad_alloc&) {
      isOutOfMemory_ = true;
    }
  }

  const AVFrame& planes_;
  int rowsOfPart_;
  std::vector<Part> parts_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<bool> isOutOfMemory_ = false;
};

}  // namespace

Expected<std::vector<std::vector<std::uint8_t>>> deflatedRows(const AVFrame& planes, int threads) {
  auto parts = PartsWork(planes).finish(threads);
  if (!parts) return failed(ErrorKind::outOfMemory, "out of memory for a picture");
  uLong checksum = adler32_z(0, nullptr, 0);
  std::vector<std::vector<std::uint8_t>> stream;
  for (Part& part : *parts) {
    checksum = adler32_combine(checksum, part.checksum, static_cast<z_off_t>(part.length));
    stream.push_back(std::move(part.bytes));
  }
  stream.front().insert(stream.front().begin(), streamHeader.begin(), streamHeader.end());
  for (const int shift : {24, 16, 8, 0}) stream.back().push_back(static_cast<std::uint8_t>(checksum >> shift));
  return stream;
}

}  // namespace clipworks::engine
