#pragma once

#include <memory>
#include <string_view>

#include <clipworks/media/asset/AVAsset.h>
#include <clipworks/media/export/AVAssetExportSession.h>
#include <clipworks/media/export/ExportPreset.h>

namespace clipworks {

/// A session for what `preset` asks, which goes by `name`. Null when an encoder that it needs does not exist or is
/// withheld.
[[nodiscard]] std::shared_ptr<AVAssetExportSession> makeExportSession(const std::shared_ptr<AVAsset>& asset,
                                                                      std::string_view name,
                                                                      const ExportPreset& preset);

}  // namespace clipworks
