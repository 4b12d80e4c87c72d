#include <clipworks/engine/output/PcmMovieWriter.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <limits>
#include <string>

#include <clipworks/engine/Handles.h>
#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>

// Samples go to the file as they lie in memory.
static_assert(std::endian::native == std::endian::little);

namespace clipworks::engine {
namespace {

constexpr int ioBufferBytes = 256 * 1024;
constexpr mode_t newFileMode = 0666;  // less the process's mask
// The muxer's index takes about 700 bytes and four (beyond 4 GiB: eight) for each MiB of sound, so this is enough for
// 13 hours of stereo at 44.1 kHz. What is longer keeps the provisional index, which counts up to 2^32 frames.
constexpr int indexRoom = 64 * 1024;

AVFormatContext* makeMuxer(AVIOContext* io, const PcmFormat& format) {
  AVFormatContext* context = nullptr;
  if (avformat_alloc_output_context2(&context, nullptr, "mov", nullptr) < 0) return nullptr;
  context->pb = io;
  context->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT;  // exact: no muxer's name in the file
  AVStream* stream = avformat_new_stream(context, nullptr);
  if (stream == nullptr) {
    avformat_free_context(context);
    return nullptr;
  }
  AVCodecParameters& sound = *stream->codecpar;
  sound.codec_type = AVMEDIA_TYPE_AUDIO;
  sound.codec_id = AV_CODEC_ID_PCM_S16LE;
  sound.format = AV_SAMPLE_FMT_S16;
  sound.sample_rate = format.sampleRate;
  sound.bits_per_coded_sample = 16;
  sound.block_align = 2 * format.channels;
  sound.bit_rate = std::int64_t{8} * sound.block_align * format.sampleRate;
  av_channel_layout_default(&sound.ch_layout, format.channels);
  stream->time_base = AVRational{1, format.sampleRate};
  return context;
}

int writeHeader(AVFormatContext* context) {
  const AVCodecParameters& sound = *context->streams[0]->codecpar;
  AVDictionary* options = nullptr;
  av_dict_set_int(&options, "moov_size", indexRoom, 0);
  // Movie, track and sound all count samples, and without an edit each length is the count itself.
  av_dict_set_int(&options, "movie_timescale", sound.sample_rate, 0);
  av_dict_set(&options, "use_editlist", "0", 0);
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm utc{};
  char text[32] = {};
  if (::gmtime_r(&now, &utc) != nullptr && std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc) > 0) {
    av_dict_set(&context->metadata, "creation_time", text, 0);
  }
  const int code = avformat_write_header(context, &options);
  av_dict_free(&options);
  return code;
}

int writePacket(AVFormatContext* context, const std::int16_t* samples, std::int64_t firstFrame, std::int64_t frames) {
  Packet packet = makePacket();
  // Not owned: the muxer has written the bytes when it returns.
  packet->data = reinterpret_cast<std::uint8_t*>(const_cast<std::int16_t*>(samples));
  packet->size = static_cast<int>(frames) * context->streams[0]->codecpar->block_align;
  packet->pts = packet->dts = firstFrame;
  packet->duration = frames;
  packet->flags = AV_PKT_FLAG_KEY;
  return av_write_frame(context, packet.get());
}

/// The bytes of a whole file with one frame of silence.
std::vector<std::uint8_t> muxOneFrame(const PcmFormat& format) {
  AVIOContext* io = nullptr;
  if (avio_open_dyn_buf(&io) < 0) return {};
  AVFormatContext* context = makeMuxer(io, format);
  const std::vector<std::int16_t> frame(static_cast<std::size_t>(format.channels), 0);
  const bool done = context != nullptr && writeHeader(context) >= 0 && writePacket(context, frame.data(), 0, 1) >= 0 &&
                    av_write_trailer(context) >= 0;
  avformat_free_context(context);
  std::uint8_t* bytes = nullptr;
  const int length = avio_close_dyn_buf(io, &bytes);
  std::vector<std::uint8_t> file;
  if (done && length > 0) file.assign(bytes, bytes + length);
  av_free(bytes);
  return file;
}

/// Where a count of frames stands: the box's path from the index on, and the field's place in the box's content.
struct CountField {
  std::initializer_list<std::uint32_t> path;
  std::size_t place;
};

void putBigEndian(std::uint8_t* at, std::uint32_t value) {
  for (int i = 3; i >= 0; --i, value >>= 8) at[i] = static_cast<std::uint8_t>(value);
}

std::uint32_t bigEndianAt(const std::uint8_t* at) {
  return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 | at[3];
}

}  // namespace

Expected<PcmMovieWriter::ProvisionalIndex> PcmMovieWriter::makeProvisionalIndex(const PcmFormat& format) {
  const auto unknown = [] {
    return failed(ErrorKind::internal, "the muxer's index is not the one that is known here");
  };
  const auto file = muxOneFrame(format);
  const auto bytes = std::as_bytes(std::span(file));
  ProvisionalIndex index;
  BoxSequence boxes(bytes);
  for (auto box = boxes.next(); box; box = boxes.next()) {
    if (box->type != fourCC("moov")) continue;
    constexpr std::size_t headBytes = 8;
    index.offset = box->content.data() - bytes.data() - static_cast<std::ptrdiff_t>(headBytes);
    const auto* begin = file.data() + index.offset;
    index.bytes.assign(begin, begin + headBytes + box->content.size());
    constexpr auto trak = fourCC("trak"), mdia = fourCC("mdia"), minf = fourCC("minf"), stbl = fourCC("stbl");
    // ISO/IEC 14496-12, the boxes' version 0: 8.2.2, 8.3.2, 8.4.2; 8.6.1.2 (count of the one run of equal
    // lengths), 8.7.4 (samples in the one chunk), 8.7.3.2 (count of samples of equal size).
    for (const CountField& field :
         {CountField{{fourCC("mvhd")}, 16}, CountField{{trak, fourCC("tkhd")}, 20},
          CountField{{trak, mdia, fourCC("mdhd")}, 16}, CountField{{trak, mdia, minf, stbl, fourCC("stts")}, 8},
          CountField{{trak, mdia, minf, stbl, fourCC("stsc")}, 12},
          CountField{{trak, mdia, minf, stbl, fourCC("stsz")}, 8}}) {
      const auto content = findBox(box->content, field.path);
      if (!content || content->size() < field.place + 4 || (*content)[0] != std::byte{0}) return unknown();
      const auto place = static_cast<std::size_t>(content->data() - box->content.data()) + headBytes + field.place;
      if (bigEndianAt(index.bytes.data() + place) != 1) return unknown();
      index.counts.push_back(place);
    }
  }
  if (index.counts.empty() || index.bytes.size() + 8 > indexRoom) return unknown();
  // The rest of the room is a free box, whose content may be anything.
  const auto rest = static_cast<std::uint32_t>(indexRoom - index.bytes.size());
  index.bytes.resize(indexRoom);
  std::uint8_t* head = index.bytes.data() + (indexRoom - rest);
  putBigEndian(head, rest);
  putBigEndian(head + 4, fourCC("free"));
  return index;
}

Expected<std::unique_ptr<PcmMovieWriter>> PcmMovieWriter::create(const std::filesystem::path& path,
                                                                 const PcmFormat& format) {
  prepareLibraries();
  auto index = makeProvisionalIndex(format);
  if (!index) return tl::make_unexpected(index.error());
  std::unique_ptr<PcmMovieWriter> writer(new PcmMovieWriter(path, format.channels));
  writer->index_ = std::move(*index);
  // A new file rather than the old one emptied: whoever reads the old one keeps it.
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) return writer->writeFailure(AVERROR(errno));
  const int descriptor = ::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, newFileMode);
  if (descriptor < 0) return writer->writeFailure(AVERROR(errno));
  writer->file_.emplace(descriptor);
  if (auto begun = writer->begin(format); !begun) {
    ::unlink(path.c_str());
    return tl::make_unexpected(begun.error());
  }
  return writer;
}

Expected<void> PcmMovieWriter::begin(const PcmFormat& format) {
  packetSamples_ = static_cast<std::size_t>(format.channels) * static_cast<std::size_t>((format.sampleRate + 1) / 2);
  pending_.reserve(packetSamples_);
  auto* buffer = static_cast<std::uint8_t*>(av_malloc(ioBufferBytes));
  if (buffer == nullptr) return writeFailure(AVERROR(ENOMEM));
  io_ = avio_alloc_context(buffer, ioBufferBytes, 1, this, nullptr, writeBytes, seekBytes);
  if (io_ == nullptr) {
    av_free(buffer);
    return writeFailure(AVERROR(ENOMEM));
  }
  context_ = makeMuxer(io_, format);
  if (context_ == nullptr) return writeFailure(AVERROR(ENOMEM));
  if (const int code = writeHeader(context_); code < 0) return writeFailure(code);
  avio_flush(io_);
  // All of the room, so that the disk has it when the final index comes.
  if (auto written = writeAt(index_.offset, index_.bytes); !written) return written;
  if (failure_) return tl::make_unexpected(*failure_);
  return renewIndex();
}

PcmMovieWriter::~PcmMovieWriter() {
  avformat_free_context(context_);
  if (io_ != nullptr) av_freep(&io_->buffer);
  avio_context_free(&io_);
}

Expected<void> PcmMovieWriter::write(std::span<const std::int16_t> samples) {
  if (failure_) return tl::make_unexpected(*failure_);
  while (!samples.empty()) {
    const auto part = samples.first(std::min(samples.size(), packetSamples_ - pending_.size()));
    pending_.insert(pending_.end(), part.begin(), part.end());
    samples = samples.subspan(part.size());
    if (pending_.size() < packetSamples_) break;
    if (auto stored = store(); !stored) return stored;
  }
  return {};
}

Expected<void> PcmMovieWriter::writeSilence(std::int64_t frames) {
  const std::vector<std::int16_t> silence(packetSamples_, 0);
  for (std::int64_t left = frames * channels_; left > 0;) {
    const std::int64_t part = std::min(left, static_cast<std::int64_t>(silence.size()));
    if (auto written = write(std::span(silence).first(static_cast<std::size_t>(part))); !written) return written;
    left -= part;
  }
  return {};
}

// The sound first, then the index that tells of it.
Expected<void> PcmMovieWriter::store() {
  const std::int64_t count = static_cast<std::int64_t>(pending_.size()) / channels_;
  const int code = writePacket(context_, pending_.data(), stored_, count);
  avio_flush(io_);
  if (failure_ || code < 0) return writeFailure(code);
  stored_ += count;
  pending_.clear();
  return renewIndex();
}

Expected<void> PcmMovieWriter::renewIndex() {
  if (stored_ > std::numeric_limits<std::uint32_t>::max()) return {};  // what lies beyond needs the final index
  for (const std::size_t place : index_.counts) {
    putBigEndian(index_.bytes.data() + place, static_cast<std::uint32_t>(stored_));
  }
  const std::size_t length = bigEndianAt(index_.bytes.data());
  return writeAt(index_.offset, std::span(index_.bytes).first(length));
}

Expected<void> PcmMovieWriter::finish() {
  if (failure_) return tl::make_unexpected(*failure_);
  if (!pending_.empty()) {
    if (auto stored = store(); !stored) return stored;
  }
  const int code = av_write_trailer(context_);
  avio_flush(io_);
  if (failure_ || code < 0) return writeFailure(code);
  return {};
}

tl::unexpected<Error> PcmMovieWriter::writeFailure(int code) {
  if (!failure_) {
    failure_ = libraryError(code, path_.filename().string() + " cannot be written", ErrorKind::unwritable);
    if (code != AVERROR(ENOMEM)) {
      failure_->kind = ErrorKind::unwritable;
      failure_->posixCode = AVUNERROR(code);
    }
  }
  return tl::make_unexpected(*failure_);
}

Expected<void> PcmMovieWriter::writeAt(std::int64_t offset, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::pwrite(file_->descriptor(), bytes.data(), bytes.size(), offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return writeFailure(AVERROR(errno));
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    offset += count;
  }
  return {};
}

int PcmMovieWriter::writeBytes(void* opaque, std::uint8_t* bytes, int length) {
  auto* writer = static_cast<PcmMovieWriter*>(opaque);
  if (writer->failure_) return AVERROR_EXIT;
  if (!writer->writeAt(writer->offset_, {bytes, static_cast<std::size_t>(length)})) return AVERROR_EXIT;
  writer->offset_ += length;
  return length;
}

std::int64_t PcmMovieWriter::seekBytes(void* opaque, std::int64_t offset, int whence) {
  auto* writer = static_cast<PcmMovieWriter*>(opaque);
  if ((whence & ~AVSEEK_FORCE) == AVSEEK_SIZE) return writer->file_->size();
  if ((whence & ~AVSEEK_FORCE) != SEEK_SET || offset < 0) return AVERROR(EINVAL);
  writer->offset_ = offset;
  return offset;
}

}  // namespace clipworks::engine
