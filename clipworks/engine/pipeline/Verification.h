#pragma once

#include <functional>
#include <memory>
#include <string>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/input/MediaFile.h>
#include <clipworks/engine/pipeline/ExportJob.h>

namespace clipworks::engine {

/// Compares a written movie with the job that it was written for, by reading and decoding it once: how many pictures it
/// shows and when, by its edit; that all of them decode; that the first and the last picture of every stretch are those
/// of their file, where they are not drawn; how long its sound is. Fails with `internal` and what differs, with
/// `cancelled` once `isCancelled` says so, which is asked at each picture. Any thread; what it decodes with has threads
/// of its own.
[[nodiscard]] Expected<void> verify(const std::shared_ptr<const MediaFile>& written, const ExportJob& job,
                                    const std::function<bool()>& isCancelled);

}  // namespace clipworks::engine
