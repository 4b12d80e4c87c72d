#include <clipworks/engine/output/MovieWriter.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <clipworks/engine/LibraryErrors.h>

namespace clipworks::engine {
namespace {

constexpr int ioBufferBytes = 1 << 20;

AVIOContext* makeIo(int direction, void* opaque, int (*read)(void*, std::uint8_t*, int),
                    int (*write)(void*, std::uint8_t*, int), std::int64_t (*seek)(void*, std::int64_t, int)) {
  auto* buffer = static_cast<std::uint8_t*>(av_malloc(ioBufferBytes));
  if (buffer == nullptr) return nullptr;
  AVIOContext* io = avio_alloc_context(buffer, ioBufferBytes, direction, opaque, read, write, seek);
  if (io == nullptr) av_free(buffer);
  return io;
}

void freeIo(AVIOContext* io) {
  if (io == nullptr) return;
  av_freep(&io->buffer);
  avio_context_free(&io);
}

// The muxer turns start codes into lengths as it writes; to go through it again, a sample read back must have start
// codes: both are four bytes (ISO/IEC 14496-15, 5.3; ITU-T H.264, annex B).
bool lengthsToStartCodes(std::uint8_t* bytes, std::int32_t count) {
  std::int64_t at = 0;
  while (at + 4 <= count) {
    const std::int64_t length =
        (std::int64_t{bytes[at]} << 24) | (bytes[at + 1] << 16) | (bytes[at + 2] << 8) | bytes[at + 3];
    if (length > count - at - 4) return false;
    bytes[at] = bytes[at + 1] = bytes[at + 2] = 0;
    bytes[at + 3] = 1;
    at += 4 + length;
  }
  return at == count;
}

// Parameter sets with start codes in front, as encoders give them, rather than in the file's own form.
bool hasStartCodes(const AVCodecParameters& format) {
  const bool splits = format.codec_id == AV_CODEC_ID_H264 || format.codec_id == AV_CODEC_ID_HEVC;
  return splits && format.extradata_size >= 4 && format.extradata[0] == 0 && format.extradata[1] == 0;
}

const char* muxerName(MovieContainer container) {
  switch (container) {
    case MovieContainer::quickTime:
      return "mov";
    case MovieContainer::m4a:
      return "ipod";
    case MovieContainer::mpeg4:
      break;
  }
  return "mp4";
}

// Recordings that describe themselves by reverse-domain keys keep them as such (the `mdta` handler of the QuickTime
// file format). The others keep the standard boxes, whose place (`loci`) goes only without those keys.
bool needsKeyedMetadata(const AVDictionary* metadata) {
  bool dotted = false;
  for (const AVDictionaryEntry* entry = nullptr;
       (entry = av_dict_get(metadata, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr;) {
    dotted = dotted || std::strchr(entry->key, '.') != nullptr;
  }
  return dotted && av_dict_get(metadata, "location", nullptr, 0) == nullptr;
}

}  // namespace

Expected<std::unique_ptr<MovieWriter>> MovieWriter::create(OutputFile& file, std::int32_t movieTimescale,
                                                           const std::map<std::string, std::string>& metadata,
                                                           MovieContainer container) {
  prepareLibraries();
  std::unique_ptr<MovieWriter> writer(new MovieWriter(file));
  writer->movieTimescale_ = movieTimescale;
  writer->container_ = container;
  if (avformat_alloc_output_context2(&writer->context_, nullptr, muxerName(container), nullptr) < 0) {
    return failed(ErrorKind::outOfMemory, "out of memory while creating " + file.name());
  }
  writer->io_ = makeIo(1, writer.get(), nullptr, writeBytes, seekBytes);
  if (writer->io_ == nullptr) return failed(ErrorKind::outOfMemory, "out of memory while creating " + file.name());
  // The muxer marks the end of every sample as a place to write at; a call for each would cost more than the bytes.
  writer->io_->min_packet_size = ioBufferBytes;
  AVFormatContext& context = *writer->context_;
  context.pb = writer->io_;
  context.opaque = writer.get();
  context.io_open = openForShift;
  context.io_close2 = closeAfterShift;
  context.avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
  context.flags |= AVFMT_FLAG_CUSTOM_IO;
  for (const auto& [key, value] : metadata) av_dict_set(&context.metadata, key.c_str(), value.c_str(), 0);
  return writer;
}

MovieWriter::~MovieWriter() {
  avformat_free_context(context_);
  freeIo(io_);
}

Expected<int> MovieWriter::addTrack(const AVCodecParameters& format, std::int32_t timescale,
                                    const std::optional<std::array<std::int32_t, 9>>& matrix) {
  AVStream* stream = avformat_new_stream(context_, nullptr);
  if (stream == nullptr || avcodec_parameters_copy(stream->codecpar, &format) < 0) {
    return failed(ErrorKind::outOfMemory, "out of memory while creating " + file_.name());
  }
  if (avformat_query_codec(context_->oformat, format.codec_id, FF_COMPLIANCE_NORMAL) != 1) {
    return failed(ErrorKind::unsupported, file_.name() + " cannot hold " + avcodec_get_name(format.codec_id));
  }
  stream->codecpar->codec_tag = format.codec_id == AV_CODEC_ID_HEVC ? MKTAG('h', 'v', 'c', '1') : 0;
  stream->sample_aspect_ratio = format.sample_aspect_ratio;
  stream->time_base = AVRational{1, timescale};
  if (matrix) {
    if (auto added = addSideData(*stream, AV_PKT_DATA_DISPLAYMATRIX, matrix->data(), sizeof *matrix); !added) {
      return tl::make_unexpected(added.error());
    }
  }
  return stream->index;
}

Expected<void> MovieWriter::addSideData(AVStream& stream, AVPacketSideDataType kind, const void* data,
                                        std::size_t size) {
  auto* bytes = av_stream_new_side_data(&stream, kind, size);
  if (bytes == nullptr) return failed(ErrorKind::outOfMemory, "out of memory while creating " + file_.name());
  std::memcpy(bytes, data, size);
  return {};
}

Expected<void> MovieWriter::setHDRMetadata(int track, const HDRMetadata& facts) {
  for (const auto& [kind, data] : facts) {
    if (auto added = addSideData(*context_->streams[track], kind, data.data(), data.size()); !added) return added;
    // Boxes that ISO/IEC 14496 does not have, which the muxer leaves out unless it is told so.
    if (kind == AV_PKT_DATA_DOVI_CONF) context_->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
  }
  return {};
}

void MovieWriter::addDataTracks(const std::vector<DataJob>& jobs, std::optional<int> picturesTrack) {
  dataTracks_.emplace(jobs, movieTimescale_, container_ == MovieContainer::quickTime);
  picturesTrack_ = picturesTrack;
}

Expected<void> MovieWriter::begin() {
  if (dataTracks_) avio_seek(io_, dataTracks_->room(), SEEK_SET);
  AVDictionary* options = nullptr;
  const bool keyed = needsKeyedMetadata(context_->metadata);
  av_dict_set(&options, "movflags", keyed ? "faststart+use_metadata_tags" : "faststart", 0);
  av_dict_set(&options, "use_editlist", "1", 0);
  av_dict_set_int(&options, "movie_timescale", movieTimescale_, 0);
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    const AVStream& stream = *context_->streams[i];
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
      av_dict_set_int(&options, "video_track_timescale", stream.time_base.den, 0);
    }
  }
  const int code = avformat_write_header(context_, &options);
  av_dict_free(&options);
  if (code < 0) return writeFailure(code, file_.name() + " cannot be begun");
  return {};
}

Expected<StoredSample> MovieWriter::write(int track, AVPacket& packet) {
  packet.stream_index = track;
  packet.pos = -1;
  firstSamples_.try_emplace(track, FirstSample{packet.dts, packet.pts});
  const std::int64_t before = avio_tell(io_);
  if (const int code = av_write_frame(context_, &packet); code < 0) {
    return writeFailure(code, file_.name() + " cannot be written");
  }
  if (failure_) return tl::make_unexpected(*failure_);
  return StoredSample{before, static_cast<std::int32_t>(avio_tell(io_) - before)};
}

Expected<StoredSample> MovieWriter::writeLast(int track, AVPacket& packet, const TrackEdit& edit) {
  const FirstSample first = firstSamples_.try_emplace(track, FirstSample{packet.dts, packet.pts}).first->second;
  // A sample's length is the distance of its decode time from the next one's: the last one closes the sum.
  const std::int64_t shown = edit.mediaStart + edit.end - edit.start - first.presentation;
  packet.duration = std::max<std::int64_t>(first.decode + shown - packet.dts, 1);
  const std::int32_t timescale = context_->streams[track]->time_base.den;
  // The library rounds the empty edit down.
  edits_[track] = {av_rescale_rnd(edit.start, movieTimescale_, timescale, AV_ROUND_DOWN),
                   av_rescale(edit.end, movieTimescale_, timescale), edit.mediaStart - first.decode,
                   packet.dts + packet.duration - first.decode, timescale};
  return write(track, packet);
}

Expected<Packet> MovieWriter::readBack(int track, const StoredSample& sample) {
  if (sample.position + sample.bytes > offset_) avio_flush(io_);
  Packet packet = makePacket();
  if (av_new_packet(packet.get(), sample.bytes) < 0) {
    return failed(ErrorKind::outOfMemory, "out of memory while repeating pictures");
  }
  if (file_.handle().readAt(sample.position, packet->data, sample.bytes) != sample.bytes) {
    if (failure_) return tl::make_unexpected(*failure_);
    return failed(ErrorKind::unwritable, file_.name() + " cannot be read back", errno);
  }
  if (hasStartCodes(*context_->streams[track]->codecpar) && !lengthsToStartCodes(packet->data, packet->size)) {
    return failed(ErrorKind::internal, file_.name() + " does not hold what was written to it");
  }
  return packet;
}

Expected<void> MovieWriter::finish() {
  if (const int code = av_write_trailer(context_); code < 0)
    return writeFailure(code, file_.name() + " cannot be ended");
  avio_flush(io_);
  if (failure_) return tl::make_unexpected(*failure_);
  if (!edits_.empty()) {
    const std::int64_t start = dataTracks_ ? dataTracks_->room() : 0;
    if (auto written = writeEdits(file_, start, movieTimescale_, edits_); !written) return written;
  }
  return dataTracks_ ? dataTracks_->finish(file_, picturesTrack_) : Expected<void>{};
}

tl::unexpected<Error> MovieWriter::writeFailure(int code, const std::string& what) const {
  return tl::make_unexpected(failure_ ? *failure_ : libraryError(code, what, ErrorKind::unwritable));
}

int MovieWriter::writeBytes(void* opaque, std::uint8_t* bytes, int length) {
  auto* writer = static_cast<MovieWriter*>(opaque);
  if (writer->failure_) return AVERROR_EXIT;
  if (auto written = writer->file_.writeAt(writer->offset_, bytes, length); !written) {
    writer->failure_ = written.error();
    return AVERROR_EXIT;
  }
  writer->offset_ += length;
  return length;
}

std::int64_t MovieWriter::seekBytes(void* opaque, std::int64_t offset, int whence) {
  auto* writer = static_cast<MovieWriter*>(opaque);
  if ((whence & ~AVSEEK_FORCE) == AVSEEK_SIZE) return writer->file_.handle().size();
  if ((whence & ~AVSEEK_FORCE) != SEEK_SET || offset < 0) return AVERROR(EINVAL);
  writer->offset_ = offset;
  return offset;
}

int MovieWriter::openForShift(AVFormatContext* context, AVIOContext** io, const char*, int flags, AVDictionary**) {
  if ((flags & AVIO_FLAG_WRITE) != 0) return AVERROR(EACCES);
  auto* writer = static_cast<MovieWriter*>(context->opaque);
  writer->readingOffset_ = 0;
  *io = makeIo(0, writer, readBytes, nullptr, seekForReading);
  return *io == nullptr ? AVERROR(ENOMEM) : 0;
}

int MovieWriter::closeAfterShift(AVFormatContext*, AVIOContext* io) {
  freeIo(io);
  return 0;
}

int MovieWriter::readBytes(void* opaque, std::uint8_t* bytes, int length) {
  auto* writer = static_cast<MovieWriter*>(opaque);
  const std::int64_t count = writer->file_.handle().readAt(writer->readingOffset_, bytes, length);
  if (count < 0) return AVERROR(errno);
  if (count == 0) return AVERROR_EOF;
  writer->readingOffset_ += count;
  return static_cast<int>(count);
}

std::int64_t MovieWriter::seekForReading(void* opaque, std::int64_t offset, int whence) {
  auto* writer = static_cast<MovieWriter*>(opaque);
  if ((whence & ~AVSEEK_FORCE) == AVSEEK_SIZE) return writer->file_.handle().size();
  if ((whence & ~AVSEEK_FORCE) == SEEK_CUR) offset += writer->readingOffset_;
  if (offset < 0) return AVERROR(EINVAL);
  writer->readingOffset_ = offset;
  return offset;
}

}  // namespace clipworks::engine
