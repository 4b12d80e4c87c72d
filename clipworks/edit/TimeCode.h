#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// The number of the frame that a time code shows `elapsed` after it showed `number`. `description` is its sample
/// description, the whole box (QuickTime file format, "Timecode sample description"): its frames' duration counts, and
/// the number starts again after a day where it says so. Numbers count frames, also where their names drop some. A
/// frame that begins a twentieth of its duration later counts as begun, since pictures' times are often rounded.
/// Nothing for counters and other formats, whose numbers mean something else.
[[nodiscard]] std::optional<std::uint32_t> laterFrameNumber(std::span<const std::byte> description,
                                                            std::uint32_t number, const CMTime& elapsed);

}  // namespace clipworks
