#pragma once

#include <cstdint>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/engine/pipeline/ParallelSoundEncoding.h>

namespace clipworks::engine {

/// Parts of a job's sound that can be mixed beside each other, and come out as if all had been mixed in one go: what
/// follows a stretched piece need not wait for it, since stretching takes longer than all else. One part, of all
/// sections, where nothing is stretched or what follows needs what came before.
[[nodiscard]] Expected<std::vector<ParallelSoundEncoding::Sections>> soundParts(const SoundJob& job);

/// Whether something is stretched within [from, to), in samples.
[[nodiscard]] bool stretches(const SoundJob& job, std::int64_t from, std::int64_t to);

}  // namespace clipworks::engine
