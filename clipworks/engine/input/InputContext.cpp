#include <clipworks/engine/input/InputContext.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/Limits.h>
#include <clipworks/engine/Memory.h>
#include <clipworks/engine/input/KnownFormats.h>

namespace clipworks::engine {
namespace {

constexpr int ioBufferBytes = 256 * 1024;

int refuseNestedFile(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) { return AVERROR(EACCES); }

/// A file that claims to need more memory than any of its size does is damaged, however much there is.
Error openingError(int code, const std::string& name, std::int64_t fileBytes) {
  const std::string what = name + " is not readable media";
  constexpr std::size_t least = 64 << 20;
  constexpr std::size_t perByte = 16;
  const auto enough = std::min(least + perByte * static_cast<std::size_t>(fileBytes), limits::maxAllocation);
  if (code == AVERROR(ENOMEM) && hasMemory(enough))
    return Error{ErrorKind::damaged, what + ": it claims more memory than a file of its size can need", 0};
  return libraryError(code, what);
}

}  // namespace

void InputContext::CloseBytes::operator()(AVIOContext* bytes) const {
  av_freep(&bytes->buffer);
  avio_context_free(&bytes);
}

int InputContext::readBytes(void* opaque, std::uint8_t* buffer, int length) {
  auto* bytes = static_cast<Bytes*>(opaque);
  const std::int64_t count = bytes->file->readAt(bytes->offset, buffer, length);
  if (count < 0) {
    bytes->failure = errno;
    return AVERROR(bytes->failure);
  }
  if (count == 0) return AVERROR_EOF;
  bytes->offset += count;
  return static_cast<int>(count);
}

std::int64_t InputContext::seekBytes(void* opaque, std::int64_t offset, int whence) {
  auto* bytes = static_cast<Bytes*>(opaque);
  switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
      return bytes->file->size();
    case SEEK_SET:
      break;
    case SEEK_CUR:
      offset += bytes->offset;
      break;
    case SEEK_END:
      offset += bytes->file->size();
      break;
    default:
      return AVERROR(EINVAL);
  }
  if (offset < 0) return AVERROR(EINVAL);
  bytes->offset = offset;
  return offset;
}

Expected<InputContext> InputContext::open(std::shared_ptr<const FileHandle> file, const std::string& name,
                                          const InputLimits& limits) {
  prepareLibraries();
  InputContext input;
  input.bytes_ = std::make_unique<Bytes>(Bytes{std::move(file), 0, 0});
  input.name_ = name;
  auto* buffer = static_cast<std::uint8_t*>(av_malloc(ioBufferBytes));
  if (buffer == nullptr) return failed(ErrorKind::outOfMemory, "out of memory while opening " + name);
  input.io_.reset(avio_alloc_context(buffer, ioBufferBytes, 0, input.bytes_.get(), readBytes, nullptr, seekBytes));
  AVFormatContext* context = avformat_alloc_context();
  if (input.io_ == nullptr || context == nullptr) {
    avformat_free_context(context);
    return failed(ErrorKind::outOfMemory, "out of memory while opening " + name);
  }
  context->pb = input.io_.get();
  context->io_open = refuseNestedFile;
  context->max_streams = 256;

  AVDictionary* options = nullptr;
  av_dict_set(&options, "ignore_editlist", "1", 0);
  av_dict_set(&options, "advanced_editlist", "0", 0);
  av_dict_set(&options, "format_whitelist", knownContainers(), 0);
  // For the decoders by which the library looks into streams that tell too little of themselves.
  if (!limits.takesAnyCodec) av_dict_set(&options, "codec_whitelist", knownDecoders().c_str(), 0);
  av_dict_set(&options, "protocol_whitelist", "none", 0);
  const int opened = avformat_open_input(&context, nullptr, nullptr, &options);  // frees the context when it fails
  av_dict_free(&options);
  if (opened < 0) return tl::make_unexpected(openingError(opened, name, input.bytes_->file->size()));
  input.context_.reset(context);
  return input;
}

Expected<bool> InputContext::read(AVPacket& packet) {
  if (av_read_frame(context_.get(), &packet) >= 0) return true;
  // Demuxers take a failure for the end, some of them.
  if (bytes_->failure == 0) return false;
  return failed(ErrorKind::unreadable, name_ + " cannot be read: " + std::strerror(bytes_->failure), bytes_->failure);
}

void InputContext::keepOnly(int streamIndex) {
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    context_->streams[i]->discard = static_cast<int>(i) == streamIndex ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
}

}  // namespace clipworks::engine
