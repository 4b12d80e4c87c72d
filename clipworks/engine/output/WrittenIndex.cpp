#include <clipworks/engine/output/WrittenIndex.h>

#include <array>
#include <span>

#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>

namespace clipworks::engine {
namespace {

std::uint8_t* bytesOf(std::byte* bytes) { return reinterpret_cast<std::uint8_t*>(bytes); }

}  // namespace

std::optional<WrittenIndex> WrittenIndex::read(const FileHandle& file, std::int64_t start) {
  const std::int64_t size = file.size();
  for (std::int64_t at = start; at < size;) {
    std::array<std::byte, 16> head{};
    const std::int64_t count = file.readAt(at, bytesOf(head.data()), head.size());
    if (count < 0) return std::nullopt;
    const auto header =
        readBoxHeader(std::span(head).first(static_cast<std::size_t>(count)), static_cast<std::uint64_t>(size - at));
    if (!header || !header->isSound() || header->size > static_cast<std::uint64_t>(size - at)) return std::nullopt;
    if (header->type == fourCC("moov")) {
      WrittenIndex movie{at, at + static_cast<std::int64_t>(header->headerSize), {}};
      movie.content.resize(header->size - header->headerSize);
      const auto length = static_cast<std::int64_t>(movie.content.size());
      if (file.readAt(movie.position, bytesOf(movie.content.data()), length) != length) return std::nullopt;
      return movie;
    }
    at += static_cast<std::int64_t>(header->size);
  }
  return std::nullopt;
}

}  // namespace clipworks::engine
