#pragma once

#include <clipworks/engine/Error.h>
#include <clipworks/engine/FFmpeg.h>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

namespace clipworks::engine {

/// The functions of libavfilter that the engine calls. Only interlaced pictures need it, and it brings 30 libraries
/// along, which would be a third of the time that a program takes to start: it is loaded when the first of those comes.
struct FilterLibrary {
  decltype(&avfilter_get_by_name) filterByName = nullptr;
  decltype(&avfilter_graph_alloc) allocateGraph = nullptr;
  decltype(&avfilter_graph_free) freeGraph = nullptr;
  decltype(&avfilter_graph_create_filter) createFilter = nullptr;
  decltype(&avfilter_link) link = nullptr;
  decltype(&avfilter_graph_config) configureGraph = nullptr;
  decltype(&av_buffersrc_add_frame) addFrame = nullptr;
  decltype(&av_buffersink_get_frame) getFrame = nullptr;

  /// Fails with `unsupported` where the library is missing. Stays loaded until the process ends. Any thread.
  [[nodiscard]] static Expected<const FilterLibrary*> load();
};

}  // namespace clipworks::engine
