#include <clipworks/engine/pictures/FramePool.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace clipworks::engine {
namespace {

constexpr int bufferAlignment = 64;  // bytes: the widest vectors in use
constexpr std::size_t kindsKept = 4;

/// Memory for one plane after another, and how the planes lie in it.
struct Layout {
  std::array<int, 4> strides{};
  std::array<std::size_t, 4> planes{};
  std::size_t bytes = 0;
};

bool layOut(int width, int height, AVPixelFormat format, Layout& layout) {
  if (av_image_fill_linesizes(layout.strides.data(), format, width) < 0) return false;
  std::array<std::ptrdiff_t, 4> strides{};
  for (std::size_t i = 0; i < strides.size(); ++i) {
    layout.strides[i] = (layout.strides[i] + bufferAlignment - 1) / bufferAlignment * bufferAlignment;
    strides[i] = layout.strides[i];
  }
  if (av_image_fill_plane_sizes(layout.planes.data(), format, height, strides.data()) < 0) return false;
  layout.bytes = bufferAlignment;  // the first plane starts on a multiple of it, and reads may run over the last
  for (auto& plane : layout.planes) {
    plane = (plane + bufferAlignment - 1) / bufferAlignment * bufferAlignment;
    layout.bytes += plane;
  }
  layout.bytes += bufferAlignment;
  return true;
}

/// Pools of the kinds of frames that a thread made last, the latest first.
class ThreadPools {
 public:
  ThreadPools() = default;
  ThreadPools(const ThreadPools&) = delete;
  ThreadPools& operator=(const ThreadPools&) = delete;
  ~ThreadPools() {
    for (auto& pool : pools_) av_buffer_pool_uninit(&pool.pool);
  }

  AVBufferRef* take(std::size_t bytes) {
    const auto known =
        std::find_if(pools_.begin(), pools_.end(), [bytes](const Pool& pool) { return pool.bytes == bytes; });
    if (known != pools_.end()) {
      std::rotate(pools_.begin(), known, known + 1);
    } else {
      if (pools_.size() == kindsKept) {
        av_buffer_pool_uninit(&pools_.back().pool);  // frees each buffer when its last frame lets go of it
        pools_.pop_back();
      }
      AVBufferPool* made = av_buffer_pool_init(bytes, nullptr);
      if (made == nullptr) return nullptr;
      pools_.insert(pools_.begin(), {bytes, made});
    }
    return av_buffer_pool_get(pools_.front().pool);
  }

 private:
  struct Pool {
    std::size_t bytes;
    AVBufferPool* pool;
  };
  std::vector<Pool> pools_;
};

}  // namespace

Expected<Frame> allocateFrame(int width, int height, AVPixelFormat format) {
  thread_local ThreadPools pools;
  Layout layout;
  if (av_image_check_size2(static_cast<unsigned>(width), static_cast<unsigned>(height), INT64_MAX, format, 0, nullptr) <
          0 ||
      !layOut(width, height, format, layout)) {
    return failed(ErrorKind::unsupported, "there are no pictures of this size and kind");
  }
  Frame frame = makeFrame();
  frame->width = width;
  frame->height = height;
  frame->format = format;
  frame->buf[0] = pools.take(layout.bytes);
  if (frame->buf[0] == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for a picture");
  std::uint8_t* next = frame->buf[0]->data;
  next += (bufferAlignment - reinterpret_cast<std::uintptr_t>(next) % bufferAlignment) % bufferAlignment;
  for (std::size_t plane = 0; plane < layout.planes.size() && layout.planes[plane] > 0; ++plane) {
    frame->data[plane] = next;
    frame->linesize[plane] = layout.strides[plane];
    next += layout.planes[plane];
  }
  frame->extended_data = frame->data;
  return frame;
}

}  // namespace clipworks::engine
