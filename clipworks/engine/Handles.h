#pragma once

#include <memory>
#include <new>

#include <clipworks/engine/FFmpeg.h>

namespace clipworks::engine {

/// Owners of the codec libraries' objects, one for each C type; move-only.
template <auto Free>
struct FreeByAddress {
  template <class T>
  void operator()(T* object) const {
    Free(&object);
  }
};

using Packet = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using Frame = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using CodecContext = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using BitStreamFilter = std::unique_ptr<AVBSFContext, FreeByAddress<av_bsf_free>>;
using CodecParameters = std::unique_ptr<AVCodecParameters, FreeByAddress<avcodec_parameters_free>>;
using Resampler = std::unique_ptr<SwrContext, FreeByAddress<swr_free>>;

/// The libraries' allocators return null when memory is out; nothing here goes on without its object.
template <class Handle, class T>
[[nodiscard]] Handle owned(T* object) {
  if (object == nullptr) throw std::bad_alloc();
  return Handle(object);
}

[[nodiscard]] inline Packet makePacket() { return owned<Packet>(av_packet_alloc()); }
[[nodiscard]] inline Frame makeFrame() { return owned<Frame>(av_frame_alloc()); }

/// Another reference to the same samples or pixels.
[[nodiscard]] inline Frame shareFrame(const Frame& frame) { return owned<Frame>(av_frame_clone(frame.get())); }

}  // namespace clipworks::engine
