#include <clipworks/engine/input/CodedPictureReader.h>

#include <cerrno>
#include <cstring>

#include <clipworks/engine/Limits.h>

namespace clipworks::engine {

Expected<CodedPictureReader> CodedPictureReader::open(std::shared_ptr<const MediaFile> file, int stream) {
  auto table = file->pictureTable(stream);
  if (!table) return tl::make_unexpected(table.error());
  CodedPictureReader reader(std::move(file), stream, std::move(*table));
  if (!reader.file_->samplesAreStoredPlainly()) {
    if (auto started = reader.rewind(); !started) return tl::make_unexpected(started.error());
  }
  return reader;
}

Expected<Packet> CodedPictureReader::read(std::uint32_t index) {
  const Sample& sample = table_->samples()[index];
  auto packet = file_->samplesAreStoredPlainly() ? readStored(sample) : readDemuxed(index);
  if (!packet) return packet;
  (*packet)->pts = sample.presentation;
  (*packet)->dts = sample.decode;
  (*packet)->stream_index = 0;
  (*packet)->flags = sample.accessPoint ? AV_PKT_FLAG_KEY : 0;
  return packet;
}

Expected<Packet> CodedPictureReader::readStored(const Sample& sample) const {
  if (sample.bytes < 0 || sample.bytes > limits::maxSampleBytes ||
      sample.position + sample.bytes > file_->handle()->size()) {
    return failed(ErrorKind::damaged, file_->name() + " is cut off: its index names pictures beyond its end");
  }
  Packet packet = makePacket();
  if (av_new_packet(packet.get(), sample.bytes) < 0) {
    return failed(ErrorKind::outOfMemory, "out of memory while reading " + file_->name());
  }
  const std::int64_t count = file_->handle()->readAt(sample.position, packet->data, sample.bytes);
  if (count < 0) {
    const int code = errno;
    return failed(ErrorKind::unreadable, file_->name() + " cannot be read: " + std::strerror(code), code);
  }
  if (count != sample.bytes) return failed(ErrorKind::damaged, file_->name() + " became shorter while it was read");
  return packet;
}

Expected<void> CodedPictureReader::rewind() {
  auto demuxer = file_->openStream(stream_);
  if (!demuxer) return tl::make_unexpected(demuxer.error());
  demuxer_ = std::move(*demuxer);
  next_ = 0;
  return {};
}

Expected<Packet> CodedPictureReader::readDemuxed(std::uint32_t index) {
  if (index < next_) {
    if (auto again = rewind(); !again) return tl::make_unexpected(again.error());
  }
  Packet packet = makePacket();
  for (;;) {
    const auto got = demuxer_->read(*packet);
    if (!got) return tl::make_unexpected(got.error());
    if (!*got) return failed(ErrorKind::damaged, file_->name() + " ends early");
    if (next_++ == index) return packet;
    av_packet_unref(packet.get());
  }
}

}  // namespace clipworks::engine
