#include <clipworks/engine/input/PictureOrder.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <optional>
#include <tuple>

namespace clipworks::engine {
namespace {

struct CloseParser {
  void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};

/// A place in the order of presentation: in a group of pictures, by number, and for the decoding order.
struct Place {
  std::int64_t group = 0;
  std::int64_t number = 0;
  bool isBidirectional = false;
};

/// Reads the places of pictures in decoding order.
class PlaceReader {
 public:
  explicit PlaceReader(const AVCodecParameters& parameters)
      : counts_(parameters.codec_id == AV_CODEC_ID_H264 || parameters.codec_id == AV_CODEC_ID_HEVC),
        parser_(av_parser_init(parameters.codec_id)),
        context_(owned<CodecContext>(avcodec_alloc_context3(nullptr))) {
    avcodec_parameters_to_context(context_.get(), &parameters);
    if (parser_) parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  }

  [[nodiscard]] bool canRead() const { return parser_ != nullptr; }

  Place read(const AVPacket& packet) {
    std::uint8_t* frame = nullptr;
    int bytes = 0;
    av_parser_parse2(parser_.get(), context_.get(), &frame, &bytes, packet.data, packet.size, AV_NOPTS_VALUE,
                     AV_NOPTS_VALUE, -1);
    const bool isBidirectional = parser_->pict_type == AV_PICTURE_TYPE_B;
    if (counts_) {
      // The count begins anew at such pictures, some of which are shown after others that refer to them.
      if (parser_->key_frame == 1) ++group_;
      return {group_, parser_->output_picture_number, isBidirectional};
    }
    // A picture waits for the bidirectional ones that follow it.
    if (!isBidirectional) group_ += 2;
    return {isBidirectional ? group_ - 1 : group_, number_++, isBidirectional};
  }

 private:
  bool counts_;
  std::unique_ptr<AVCodecParserContext, CloseParser> parser_;
  CodecContext context_;
  std::int64_t group_ = 0;
  std::int64_t number_ = 0;
};

}  // namespace

Expected<void> orderPictures(StreamPackets& packets, std::vector<Sample>& samples, const std::vector<bool>& isTold) {
  PlaceReader reader(*packets.stream().codecpar);
  if (!reader.canRead()) return {};
  std::vector<Place> places;
  Packet packet = makePacket();
  while (places.size() < samples.size()) {
    const auto got = packets.read(*packet);
    if (!got) return tl::make_unexpected(got.error());
    if (!*got) return {};
    places.push_back(reader.read(*packet));
    av_packet_unref(packet.get());
  }
  std::vector<std::size_t> shown(samples.size());
  std::iota(shown.begin(), shown.end(), 0U);
  std::stable_sort(shown.begin(), shown.end(), [&](std::size_t a, std::size_t b) {
    return std::tie(places[a].group, places[a].number) < std::tie(places[b].group, places[b].number);
  });

  std::vector<std::int64_t> decode(samples.size());
  std::transform(samples.begin(), samples.end(), decode.begin(), [](const Sample& s) { return s.decode; });
  std::sort(decode.begin(), decode.end());
  std::optional<std::int64_t> later;
  for (std::size_t i = 0; i < shown.size() && !later; ++i) {
    const Sample& sample = samples[shown[i]];
    if (isTold[shown[i]] && !places[shown[i]].isBidirectional) later = sample.presentation - decode[i];
  }
  for (std::size_t i = 0; i < shown.size(); ++i) samples[shown[i]].presentation = decode[i] + later.value_or(0);
  return {};
}

}  // namespace clipworks::engine
