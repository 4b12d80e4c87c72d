#include <clipworks/edit/TimeCode.h>

#include <clipworks/engine/boxes/BoxCursor.h>
#include <clipworks/engine/boxes/FourCC.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

constexpr std::uint32_t dropsFrames = 1;
constexpr std::uint32_t startsAgainAfterADay = 2;
constexpr std::uint32_t isCounter = 8;

/// Of a day: SMPTE ST 12-1 drops a fifteenth of a second's numbers in each minute but every tenth.
std::int64_t framesOfADay(std::int64_t framesPerSecond, std::uint32_t flags) {
  constexpr std::int64_t minutes = 24 * 60;
  const std::int64_t dropped = (flags & dropsFrames) != 0 ? framesPerSecond / 15 * (minutes - minutes / 10) : 0;
  return framesPerSecond * 60 * minutes - dropped;
}

}  // namespace

std::optional<std::uint32_t> laterFrameNumber(std::span<const std::byte> description, std::uint32_t number,
                                              const CMTime& elapsed) {
  engine::BoxCursor cursor(description);
  cursor.skip(sizeof(std::uint32_t));
  const auto format = cursor.read<std::uint32_t>();
  cursor.skip(6 + 2 + 4);  // reserved, data reference, reserved
  const auto flags = cursor.read<std::uint32_t>();
  const auto timescale = cursor.read<std::uint32_t>();
  const auto frameDuration = cursor.read<std::uint32_t>();
  const auto framesPerSecond = cursor.read<std::uint8_t>();
  if (cursor.isOverrun() || format != engine::fourCC("tmcd") || (flags & isCounter) != 0) return std::nullopt;
  if (timescale == 0 || frameDuration == 0 || framesPerSecond == 0) return std::nullopt;
  constexpr std::int64_t slack = 20;
  const Int128 frame = static_cast<Int128>(frameDuration) * elapsed.timescale;
  const auto frames = saturated((slack * elapsed.value * static_cast<Int128>(timescale) + frame) / (slack * frame));
  std::int64_t later = static_cast<std::int32_t>(number) + frames;
  if ((flags & startsAgainAfterADay) != 0) later %= framesOfADay(framesPerSecond, flags);
  if (later > INT32_MAX) return std::nullopt;
  return static_cast<std::uint32_t>(later);
}

}  // namespace clipworks
