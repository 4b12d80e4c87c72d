#include <clipworks/engine/pictures/Deinterlacer.h>

#include <string>

#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/Processors.h>

namespace clipworks::engine {

void Deinterlacer::FreeGraph::operator()(AVFilterGraph* graph) const { library->freeGraph(&graph); }

Expected<Deinterlacer> Deinterlacer::open(const AVFrame& first) {
  const auto library = FilterLibrary::load();
  if (!library) return tl::make_unexpected(library.error());
  const FilterLibrary& filters = **library;
  Deinterlacer opened(filters);
  if (opened.graph_ == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for deinterlacing");
  AVFilterGraph* graph = opened.graph_.get();
  graph->nb_threads = coderThreads(0);
  const std::string pictures = "video_size=" + std::to_string(first.width) + "x" + std::to_string(first.height) +
                               ":pix_fmt=" + std::to_string(first.format) + ":time_base=1/1";
  AVFilterContext* deinterlace = nullptr;
  int code =
      filters.createFilter(&opened.source_, filters.filterByName("buffer"), "in", pictures.c_str(), nullptr, graph);
  if (code >= 0) {
    code = filters.createFilter(&deinterlace, filters.filterByName("bwdif"), "whole",
                                "mode=send_frame:parity=auto:deint=interlaced", nullptr, graph);
  }
  if (code >= 0) {
    code = filters.createFilter(&opened.sink_, filters.filterByName("buffersink"), "out", nullptr, nullptr, graph);
  }
  if (code >= 0) code = filters.link(opened.source_, 0, deinterlace, 0);
  if (code >= 0) code = filters.link(deinterlace, 0, opened.sink_, 0);
  if (code >= 0) code = filters.configureGraph(graph, nullptr);
  if (code < 0) {
    return tl::make_unexpected(libraryError(code, "interlaced pictures cannot be made whole", ErrorKind::unsupported));
  }
  return opened;
}

Expected<void> Deinterlacer::push(const Frame& picture) {
  Frame frame = shareFrame(picture);
  frame->pts = pushed_++;
  if (const int code = filters_->addFrame(source_, frame.get()); code < 0) {
    return tl::make_unexpected(libraryError(code, "an interlaced picture cannot be made whole", ErrorKind::internal));
  }
  return {};
}

Expected<void> Deinterlacer::finish() {
  if (const int code = filters_->addFrame(source_, nullptr); code < 0) {
    return tl::make_unexpected(
        libraryError(code, "the last interlaced pictures cannot be made whole", ErrorKind::internal));
  }
  return {};
}

Expected<std::optional<Frame>> Deinterlacer::pull() {
  Frame frame = makeFrame();
  const int code = filters_->getFrame(sink_, frame.get());
  if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return std::nullopt;
  if (code < 0) {
    return tl::make_unexpected(libraryError(code, "an interlaced picture cannot be made whole", ErrorKind::internal));
  }
  return frame;
}

}  // namespace clipworks::engine
