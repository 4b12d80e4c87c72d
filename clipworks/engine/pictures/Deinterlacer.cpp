#include <clipworks/engine/pictures/Deinterlacer.h>

#include <string>

#include <clipworks/engine/LibraryErrors.h>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

namespace clipworks::engine {

void Deinterlacer::FreeGraph::operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }

Expected<Deinterlacer> Deinterlacer::open(const AVFrame& first) {
  Deinterlacer opened;
  opened.graph_.reset(avfilter_graph_alloc());
  if (opened.graph_ == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for deinterlacing");
  AVFilterGraph* graph = opened.graph_.get();
  const std::string pictures = "video_size=" + std::to_string(first.width) + "x" + std::to_string(first.height) +
                               ":pix_fmt=" + std::to_string(first.format) + ":time_base=1/1";
  AVFilterContext* deinterlace = nullptr;
  int code = avfilter_graph_create_filter(&opened.source_, avfilter_get_by_name("buffer"), "in", pictures.c_str(),
                                          nullptr, graph);
  if (code >= 0) {
    code = avfilter_graph_create_filter(&deinterlace, avfilter_get_by_name("bwdif"), "whole",
                                        "mode=send_frame:parity=auto:deint=interlaced", nullptr, graph);
  }
  if (code >= 0) {
    code =
        avfilter_graph_create_filter(&opened.sink_, avfilter_get_by_name("buffersink"), "out", nullptr, nullptr, graph);
  }
  if (code >= 0) code = avfilter_link(opened.source_, 0, deinterlace, 0);
  if (code >= 0) code = avfilter_link(deinterlace, 0, opened.sink_, 0);
  if (code >= 0) code = avfilter_graph_config(graph, nullptr);
  if (code < 0) {
    return tl::make_unexpected(libraryError(code, "interlaced pictures cannot be made whole", ErrorKind::unsupported));
  }
  return opened;
}

Expected<void> Deinterlacer::push(const Frame& picture) {
  Frame frame = shareFrame(picture);
  frame->pts = pushed_++;
  if (const int code = av_buffersrc_add_frame(source_, frame.get()); code < 0) {
    return tl::make_unexpected(libraryError(code, "an interlaced picture cannot be made whole", ErrorKind::internal));
  }
  return {};
}

Expected<void> Deinterlacer::finish() {
  if (const int code = av_buffersrc_add_frame(source_, nullptr); code < 0) {
    return tl::make_unexpected(
        libraryError(code, "the last interlaced pictures cannot be made whole", ErrorKind::internal));
  }
  return {};
}

Expected<std::optional<Frame>> Deinterlacer::pull() {
  Frame frame = makeFrame();
  const int code = av_buffersink_get_frame(sink_, frame.get());
  if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return std::nullopt;
  if (code < 0) {
    return tl::make_unexpected(libraryError(code, "an interlaced picture cannot be made whole", ErrorKind::internal));
  }
  return frame;
}

}  // namespace clipworks::engine
