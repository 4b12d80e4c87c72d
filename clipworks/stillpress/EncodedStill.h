#pragma once

#include <cstdint>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/stillpress/Converter.h>

namespace clipworks {

/// An engine encoder's outcome as a converter's.
[[nodiscard]] Result<Data, ConverterError> encodedStill(engine::Expected<std::vector<std::uint8_t>> bytes);

}  // namespace clipworks
