#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/FFmpeg.h>
#include <clipworks/engine/FileHandle.h>
#include <clipworks/engine/input/InputLimits.h>

namespace clipworks::engine {

/// An open demuxer over a descriptor of ours: the library never opens a file or an address by itself, whatever the
/// content asks for. The demuxer's own treatment of edit lists is off: times are the media's own. One thread at a time.
class InputContext {
 public:
  [[nodiscard]] static Expected<InputContext> open(std::shared_ptr<const FileHandle> file, const std::string& name,
                                                   const InputLimits& limits);

  [[nodiscard]] AVFormatContext* get() const { return context_.get(); }
  AVFormatContext* operator->() const { return context_.get(); }

  /// The next packet; false at the end, and where the content is too damaged to go on. Fails when the file itself
  /// cannot be read.
  [[nodiscard]] Expected<bool> read(AVPacket& packet);

  /// Leaves only the packets of `streamIndex`.
  void keepOnly(int streamIndex);

 private:
  struct Bytes {
    std::shared_ptr<const FileHandle> file;
    std::int64_t offset = 0;
    int failure = 0;  // errno of a read that failed
  };
  struct CloseBytes {
    void operator()(AVIOContext* bytes) const;
  };
  struct CloseContext {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
  };
  InputContext() = default;
  static int readBytes(void* opaque, std::uint8_t* buffer, int length);
  static std::int64_t seekBytes(void* opaque, std::int64_t offset, int whence);

  std::string name_;
  std::unique_ptr<Bytes> bytes_;
  std::unique_ptr<AVIOContext, CloseBytes> io_;
  std::unique_ptr<AVFormatContext, CloseContext> context_;
};

}  // namespace clipworks::engine
