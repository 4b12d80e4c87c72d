#pragma once

#include <memory>
#include <optional>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/FilterLibrary.h>

namespace clipworks::engine {

/// Makes whole pictures of interlaced ones, one for one, with libavfilter's bwdif, which looks one picture ahead. For
/// one uninterrupted run of pictures of one size; one thread at a time.
class Deinterlacer {
 public:
  /// For pictures like `first`.
  [[nodiscard]] static Expected<Deinterlacer> open(const AVFrame& first);

  [[nodiscard]] Expected<void> push(const Frame& picture);
  /// No more pictures will come.
  [[nodiscard]] Expected<void> finish();
  /// The next whole picture; nothing when another one has to be pushed first, or at the end.
  [[nodiscard]] Expected<std::optional<Frame>> pull();

 private:
  struct FreeGraph {
    const FilterLibrary* library;
    void operator()(AVFilterGraph* graph) const;
  };
  explicit Deinterlacer(const FilterLibrary& filters)
      : filters_(&filters), graph_(filters.allocateGraph(), FreeGraph{&filters}) {}

  const FilterLibrary* filters_;
  std::unique_ptr<AVFilterGraph, FreeGraph> graph_;
  AVFilterContext* source_ = nullptr;  // within graph_
  AVFilterContext* sink_ = nullptr;    // within graph_
  std::int64_t pushed_ = 0;
};

}  // namespace clipworks::engine
