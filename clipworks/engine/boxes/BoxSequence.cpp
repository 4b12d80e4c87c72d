#include <clipworks/engine/boxes/BoxSequence.h>

#include <algorithm>

#include <clipworks/engine/boxes/BoxCursor.h>

namespace clipworks::engine {

std::optional<BoxHeader> readBoxHeader(std::span<const std::byte> bytes, std::uint64_t bytesToEnd) {
  constexpr std::uint32_t sizeToEnd = 0;
  constexpr std::uint32_t sizeIn64Bits = 1;
  BoxCursor cursor(bytes);
  const auto shortSize = cursor.read<std::uint32_t>();
  BoxHeader header;
  header.type = cursor.read<std::uint32_t>();
  header.headerSize = 8;
  header.size = shortSize;
  if (shortSize == sizeToEnd) {
    header.size = bytesToEnd;
  } else if (shortSize == sizeIn64Bits) {
    header.headerSize = 16;
    header.size = cursor.read<std::uint64_t>();
  }
  if (cursor.isOverrun()) {
    return std::nullopt;
  }
  return header;
}

std::optional<Box> BoxSequence::next() {
  const auto header = readBoxHeader(rest_, rest_.size());
  if (!header || !header->isSound()) {
    rest_ = {};
    return std::nullopt;
  }
  const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(header->size, rest_.size()));
  const auto headerSize = static_cast<std::size_t>(header->headerSize);
  const Box box{header->type, rest_.subspan(headerSize, size - headerSize)};
  rest_ = rest_.subspan(size);
  return box;
}

std::optional<std::span<const std::byte>> findBox(std::span<const std::byte> content,
                                                  std::initializer_list<std::uint32_t> path) {
  for (const std::uint32_t type : path) {
    BoxSequence boxes(content);
    std::optional<Box> box = boxes.next();
    while (box && box->type != type) {
      box = boxes.next();
    }
    if (!box) {
      return std::nullopt;
    }
    content = box->content;
  }
  return content;
}

}  // namespace clipworks::engine
