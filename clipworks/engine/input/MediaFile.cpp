#include <clipworks/engine/input/MediaFile.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <tuple>
#include <utility>

#include <clipworks/engine/LibraryErrors.h>
#include <clipworks/engine/Limits.h>
#include <clipworks/engine/boxes/DataTracks.h>
#include <clipworks/engine/input/ColorTags.h>
#include <clipworks/engine/input/KnownFormats.h>
#include <clipworks/engine/input/PictureSizes.h>
#include <clipworks/engine/input/PictureTableBuilder.h>
#include <clipworks/engine/pictures/PlanarPictures.h>

namespace clipworks::engine {
namespace {

// Samples of delay that QuickTime movies leave in an AAC track without saying so.
constexpr std::int64_t implicitQuickTimeDelay = 2112;

constexpr std::int64_t probeBytes = 8LL << 20;

bool beginsLikeMovie(const FileHandle& file) {
  std::array<std::uint8_t, 8> head{};
  if (file.readAt(0, head.data(), head.size()) != static_cast<std::int64_t>(head.size())) return false;
  static constexpr std::array<const char*, 9> kinds = {"ftyp", "moov", "mdat", "free", "skip",
                                                       "wide", "moof", "pnot", "styp"};
  return std::any_of(kinds.begin(), kinds.end(), [&](const char* k) { return std::memcmp(&head[4], k, 4) == 0; });
}

bool isPictureOrSound(const AVStream& stream) {
  const AVMediaType type = stream.codecpar->codec_type;
  if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) return false;
  return (stream.disposition & (AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_TIMED_THUMBNAILS)) == 0;
}

/// How much of H.264 is decoded to look at a file. The library wants up to 20 pictures, for their pixels and the order
/// in which they come out: one intra picture, unfinished, and the headers of the others tell as much.
enum class Look { quick, thorough };

int findStreamInfo(AVFormatContext& context, Look look, const InputLimits& limits) {
  std::vector<AVDictionary*> options(context.nb_streams, nullptr);
  for (std::size_t i = 0; i < options.size(); ++i) {
    const AVCodecParameters& told = *context.streams[i]->codecpar;
    // Where no header tells how large pictures are, the decoder must be able to say it.
    const std::int64_t most = told.width > 0 ? mostDecodedPixels(limits) : limits::maxPixels;
    av_dict_set_int(&options[i], "max_pixels", most, 0);
    if (look == Look::thorough || told.codec_id != AV_CODEC_ID_H264) continue;
    av_dict_set(&options[i], "skip_frame", "nointra", 0);
    for (const char* step : {"skip_loop_filter", "skip_idct"}) av_dict_set(&options[i], step, "all", 0);
  }
  const int code = avformat_find_stream_info(&context, options.empty() ? nullptr : options.data());
  for (auto& option : options) av_dict_free(&option);
  return code;
}

bool tellsPixels(const AVFormatContext& context) {
  return std::all_of(context.streams, context.streams + context.nb_streams, [](const AVStream* stream) {
    return stream->codecpar->codec_id != AV_CODEC_ID_H264 || stream->codecpar->format != AV_PIX_FMT_NONE;
  });
}

Expected<void> checkToldSizes(const AVFormatContext& context, const InputLimits& limits, const std::string& name) {
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    const AVCodecParameters& p = *context.streams[i]->codecpar;
    if (p.codec_type != AVMEDIA_TYPE_VIDEO || !isPictureOrSound(*context.streams[i])) continue;
    if (auto fit = checkPixels(p.width, p.height, limits, name); !fit) return fit;
  }
  return {};
}

/// The file's streams with all that can be known of them before they are read.
Expected<InputContext> lookInto(const std::shared_ptr<const FileHandle>& handle, const std::string& name,
                                const InputLimits& limits) {
  for (Look look = Look::quick;; look = Look::thorough) {
    auto input = InputContext::open(handle, name, limits);
    if (!input) return input;
    if (auto fit = checkToldSizes(*input->get(), limits, name); !fit) return tl::make_unexpected(fit.error());
    input->get()->probesize = probeBytes;
    if (const int code = findStreamInfo(*input->get(), look, limits); code < 0) {
      return tl::make_unexpected(libraryError(code, name + " holds streams that cannot be read"));
    }
    // Pictures may be refreshed piece by piece, so that none is an intra picture.
    if (look == Look::thorough || tellsPixels(*input->get())) return input;
  }
}

/// A file as it was at a moment, and what of it is let in: another one, or another content, is never the same.
using FileState = std::tuple<std::filesystem::path, dev_t, ino_t, off_t, std::int64_t, InputLimits>;

/// Nothing for a file that changed within the last two seconds: clocks of file systems are too coarse to tell whether
/// it does so again.
std::optional<FileState> settledState(const std::filesystem::path& path, const FileHandle& handle,
                                      const InputLimits& limits) {
  constexpr std::int64_t second = 1'000'000'000;
  const auto nanoseconds = [](const timespec& time) { return time.tv_sec * second + time.tv_nsec; };
  struct stat facts {};
  timespec now{};
  if (::fstat(handle.descriptor(), &facts) != 0 || ::clock_gettime(CLOCK_REALTIME, &now) != 0) return std::nullopt;
  // The time of the inode's last change, which no program can set.
  const std::int64_t changed = nanoseconds(facts.st_ctim);
  if (changed > nanoseconds(now) - 2 * second) return std::nullopt;
  return FileState(path, facts.st_dev, facts.st_ino, facts.st_size, changed, limits);
}

/// The files that are open at the moment, so that each is looked at once. Thread-safe.
class OpenFiles {
 public:
  static OpenFiles& shared() {
    static auto* instance = new OpenFiles();  // never destroyed: readers may outlive the end of main()
    return *instance;
  }
  std::shared_ptr<const MediaFile> find(const FileState& state) {
    const std::lock_guard lock(mutex_);
    const auto known = files_.find(state);
    return known == files_.end() ? nullptr : known->second.lock();
  }
  void add(const FileState& state, const std::shared_ptr<const MediaFile>& file) {
    const std::lock_guard lock(mutex_);
    std::erase_if(files_, [](const auto& entry) { return entry.second.expired(); });
    files_[state] = file;
  }

 private:
  std::mutex mutex_;
  std::map<FileState, std::weak_ptr<const MediaFile>> files_;
};

const MovieBoxes::Track* findTrack(const std::optional<MovieBoxes>& boxes, int id) {
  if (!boxes) return nullptr;
  for (const auto& track : boxes->tracks) {
    if (static_cast<int>(track.id) == id) return &track;
  }
  return nullptr;
}

std::array<double, 6> transformFromMatrix(const std::array<std::int32_t, 9>& m) {
  // Rows a b u / c d v / x y w in 16.16, u v w in 2.30: ISO/IEC 14496-12, 8.3.2.
  const auto fixed = [](std::int32_t v) { return static_cast<double>(v) / 65536.0; };
  return {fixed(m[0]), fixed(m[1]), fixed(m[3]), fixed(m[4]), fixed(m[6]), fixed(m[7])};
}

// Width, height, and how far its centre lies from the picture's: ISO/IEC 14496-12, 12.1.4.1. All of the picture where
// that makes no sense.
Region cleanAperture(const std::array<std::int32_t, 8>& clap, double width, double height) {
  Region region{0, 0, width, height};
  if (clap[0] <= 0 || clap[1] <= 0 || clap[2] <= 0 || clap[3] <= 0) return region;
  const auto part = [&](int i) { return static_cast<double>(clap[i]) / clap[i + 1]; };
  region.width = std::min(width, part(0));
  region.height = std::min(height, part(2));
  const auto start = [](double whole, double length, double offset) {
    return std::clamp((whole - length) / 2 + offset, 0.0, whole - length);
  };
  region.left = start(width, region.width, clap[5] > 0 ? part(4) : 0);
  region.top = start(height, region.height, clap[7] > 0 ? part(6) : 0);
  return region;
}

/// Some recorders write a turn without the shift that it needs, which would show the picture beside the screen: a
/// matrix without any shift gets the one that brings the picture's corner to the origin.
void bringIntoView(StreamFacts& facts) {
  auto& [a, b, c, d, tx, ty] = facts.transform;
  if (tx != 0 || ty != 0) return;
  tx = std::max(0.0, -a * facts.naturalWidth) + std::max(0.0, -c * facts.naturalHeight);
  ty = std::max(0.0, -b * facts.naturalWidth) + std::max(0.0, -d * facts.naturalHeight);
}

/// A track's transform, then the movie's: QuickTime file format, movie header atom.
std::array<double, 6> concatenated(const std::array<double, 6>& t, const std::array<double, 6>& m) {
  return {t[0] * m[0] + t[1] * m[2], t[0] * m[1] + t[1] * m[3],        t[2] * m[0] + t[3] * m[2],
          t[2] * m[1] + t[3] * m[3], t[4] * m[0] + t[5] * m[2] + m[4], t[4] * m[1] + t[5] * m[3] + m[5]};
}

void describePictures(StreamFacts& facts, const AVStream& stream, const std::optional<MovieBoxes>& boxes) {
  const MovieBoxes::Track* const track = findTrack(boxes, stream.id);
  const AVCodecParameters& p = *stream.codecpar;
  facts.codedWidth = p.width;
  facts.codedHeight = p.height;
  AVRational aspect = stream.sample_aspect_ratio.num > 0 ? stream.sample_aspect_ratio : p.sample_aspect_ratio;
  facts.shown = {0, 0, static_cast<double>(p.width), static_cast<double>(p.height)};
  if (track != nullptr && track->pixelAspect && (*track->pixelAspect)[0] > 0 && (*track->pixelAspect)[1] > 0) {
    const auto& spacing = *track->pixelAspect;
    av_reduce(&aspect.num, &aspect.den, spacing[0], spacing[1], INT32_MAX);
  }
  if (track != nullptr && track->cleanAperture) facts.shown = cleanAperture(*track->cleanAperture, p.width, p.height);
  double width = facts.shown.width;
  if (aspect.num > 0 && aspect.den > 0) {
    facts.pixelAspect = {aspect.num, aspect.den};
    width = width * aspect.num / aspect.den;
  }
  facts.naturalWidth = width;
  facts.naturalHeight = facts.shown.height;
  if (const auto* pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(p.format))) {
    facts.bitDepth = pixels->comp[0].depth;
    if (const auto* read = av_pix_fmt_desc_get(planarKind(static_cast<AVPixelFormat>(p.format)))) {
      facts.bitDepth = read->comp[0].depth;
    }
    facts.is420 = pixels->nb_components >= 3 && pixels->log2_chroma_w == 1 && pixels->log2_chroma_h == 1;
  }
  const auto orUnknown = [](const char* name) { return std::string(name == nullptr ? "unknown" : name); };
  facts.color = {orUnknown(av_color_primaries_name(p.color_primaries)), orUnknown(av_color_transfer_name(p.color_trc)),
                 orUnknown(av_color_space_name(p.color_space)), p.color_range == AVCOL_RANGE_JPEG};
  facts.isHLG = p.color_trc == AVCOL_TRC_ARIB_STD_B67;
  if (const auto* vision = av_stream_get_side_data(&stream, AV_PKT_DATA_DOVI_CONF, nullptr)) {
    facts.dolbyVisionProfile = reinterpret_cast<const AVDOVIDecoderConfigurationRecord*>(vision)->dv_profile;
  }
  facts.progressive = p.field_order == AV_FIELD_PROGRESSIVE || p.field_order == AV_FIELD_UNKNOWN;
  facts.highDynamicRange = p.color_trc == AVCOL_TRC_SMPTE2084 || p.color_trc == AVCOL_TRC_ARIB_STD_B67;
  const bool hasMatrix = track != nullptr && track->matrix != std::array<std::int32_t, 9>{};
  if (hasMatrix) {
    facts.transform = transformFromMatrix(track->matrix);
    // One that would leave nothing of the picture is not meant: writers fill it with zeros.
    const auto movie = transformFromMatrix(boxes->matrix);
    if (movie[0] * movie[3] != movie[1] * movie[2]) facts.transform = concatenated(facts.transform, movie);
  } else if (const auto* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr)) {
    std::array<std::int32_t, 9> m{};
    std::memcpy(m.data(), matrix, sizeof m);
    facts.transform = transformFromMatrix(m);
  }
  bringIntoView(facts);
}

// The edit says where the sound proper begins; where none does, iTunSMPB or the implicit delay does.
std::int64_t encoderDelay(const StreamFacts& facts, const AVFormatContext& context, const AVStream& stream,
                          const std::optional<MovieBoxes>& boxes) {
  if (!boxes || stream.codecpar->codec_id != AV_CODEC_ID_AAC) return 0;
  if (facts.edits.empty()) return boxes->gapless ? boxes->gapless->delay : 0;
  const auto media =
      std::find_if(facts.edits.begin(), facts.edits.end(), [](const auto& e) { return e.mediaTime >= 0; });
  if (media == facts.edits.end() || media->mediaTime != 0 || boxes->timescale == 0) return 0;
  const auto* brand = av_dict_get(context.metadata, "major_brand", nullptr, 0);
  const bool quickTime = brand == nullptr || std::strncmp(brand->value, "qt", 2) == 0;
  const std::int64_t needed = av_rescale(static_cast<std::int64_t>(media->duration), facts.timescale, boxes->timescale);
  return quickTime && facts.duration - needed >= implicitQuickTimeDelay ? implicitQuickTimeDelay : 0;
}

OtherStream describeOther(const AVStream& stream, const MovieBoxes::Track* track) {
  const AVCodecParameters& p = *stream.codecpar;
  OtherStream other;
  const char* type = av_get_media_type_string(p.codec_type);
  other.kind = p.codec_type == AVMEDIA_TYPE_VIDEO      ? "picture"
               : p.codec_type == AVMEDIA_TYPE_SUBTITLE ? "subtitles"
               : type == nullptr                       ? "data"
                                                       : type;
  if (p.codec_id != AV_CODEC_ID_NONE) {
    other.codec = avcodec_get_name(p.codec_id);
  } else if (p.codec_tag != 0) {
    std::array<char, AV_FOURCC_MAX_STRING_SIZE> text{};
    other.codec = av_fourcc_make_string(text.data(), p.codec_tag);
  }
  for (const char* key : {"title", "handler_name"}) {
    const auto* said = av_dict_get(stream.metadata, key, nullptr, 0);
    if (said != nullptr && other.name.empty()) other.name = said->value;
  }
  other.isData = track != nullptr && isDataHandler(track->handler);
  return other;
}

}  // namespace

Expected<std::shared_ptr<const MediaFile>> MediaFile::open(const std::filesystem::path& path,
                                                           const InputLimits& limits) {
  auto handle = FileHandle::openForReading(path);
  if (!handle) return tl::make_unexpected(handle.error());
  const auto state = settledState(path, **handle, limits);
  if (state) {
    if (auto known = OpenFiles::shared().find(*state)) return known;
  }
  auto file = open(std::move(*handle), path.filename().string(), limits);
  if (file && state) OpenFiles::shared().add(*state, *file);
  return file;
}

Expected<std::shared_ptr<const MediaFile>> MediaFile::open(std::shared_ptr<const FileHandle> handle,
                                                           const std::string& name, const InputLimits& limits) {
  std::shared_ptr<MediaFile> file(new MediaFile());
  file->name_ = name;
  file->handle_ = std::move(handle);
  file->limits_ = limits;
  if (auto loaded = file->load(); !loaded) return tl::make_unexpected(loaded.error());
  return file;
}

Expected<void> MediaFile::load() {
  if (beginsLikeMovie(*handle_)) {
    auto boxes = readMovieBoxes(handle_->descriptor());
    if (!boxes) {
      Error error = boxes.error();
      error.sentence = name_ + ": " + error.sentence;
      return tl::make_unexpected(error);
    }
    boxes_ = std::move(*boxes);
  }
  auto input = lookInto(handle_, name_, limits_);
  if (!input) return tl::make_unexpected(input.error());
  AVFormatContext& context = *input->get();
  const FirstInstant first = firstInstant(context);
  for (unsigned i = 0; i < context.nb_streams && streams_.size() < limits::maxTracks; ++i) {
    describeStream(context, static_cast<int>(i), first);
  }
  if (auto fit = checkSizes(); !fit) return fit;
  for (const AVDictionaryEntry* entry = nullptr;
       (entry = av_dict_get(context.metadata, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr;) {
    metadata_[entry->key] = entry->value;
  }
  if (auto placed = placeVorbis(*input); !placed) return placed;
  describeDuration(context);
  if (duration_ <= 0) return measureByPackets();
  return {};
}

// Movies say where everything lies on their timeline. Elsewhere times may begin anywhere, and the first picture or
// sound is the beginning; a stream that starts before zero although its counter cannot wrap has an encoder's delay
// there.
MediaFile::FirstInstant MediaFile::firstInstant(const AVFormatContext& context) const {
  std::optional<FirstInstant> first;
  for (unsigned i = 0; i < context.nb_streams && !boxes_; ++i) {
    const AVStream& stream = *context.streams[i];
    if (!isPictureOrSound(stream) || stream.start_time == AV_NOPTS_VALUE) continue;
    const bool wraps = stream.pts_wrap_bits < 63;
    const FirstInstant start{wraps ? stream.start_time : std::max<std::int64_t>(stream.start_time, 0),
                             stream.time_base};
    if (!first || av_compare_ts(start.time, start.unit, first->time, first->unit) < 0) first = start;
  }
  return first.value_or(FirstInstant{});
}

void MediaFile::describeStream(const AVFormatContext& context, int index, const FirstInstant& first) {
  const AVStream& stream = *context.streams[index];
  if (!isPictureOrSound(stream)) return others_.push_back(describeOther(stream, findTrack(boxes_, stream.id)));
  dropUnknownColors(*stream.codecpar);
  const AVCodecParameters& p = *stream.codecpar;
  const bool video = p.codec_type == AVMEDIA_TYPE_VIDEO;
  if (video && (p.width <= 0 || p.height <= 0 || p.width > limits::maxPictureSide || p.height > limits::maxPictureSide))
    return;
  if (!video && (p.sample_rate <= 0 || p.sample_rate > limits::maxSampleRate || p.ch_layout.nb_channels <= 0 ||
                 p.ch_layout.nb_channels > limits::maxChannels))
    return;

  StreamFacts facts;
  facts.index = index;
  facts.trackID = boxes_ && stream.id > 0 ? stream.id : index + 1;
  facts.kind = video ? StreamKind::video : StreamKind::audio;
  facts.codec = avcodec_get_name(p.codec_id);
  // Sound is counted in samples where the container's unit is coarse, or no fraction of a second (AVI).
  facts.timescale = video || boxes_ ? stream.time_base.den : p.sample_rate;
  const StreamClock clock{stream.time_base, facts.timescale, stream.pts_wrap_bits,
                          av_rescale_q(first.time, first.unit, stream.time_base)};
  facts.bitRate = std::max<std::int64_t>(p.bit_rate, 0);
  facts.duration = stream.duration == AV_NOPTS_VALUE ? 0 : clock.ticksOf(stream.duration);
  const auto* track = boxes_ ? findTrack(boxes_, stream.id) : nullptr;
  if (track != nullptr) {
    facts.edits = track->edits;
    facts.sampleDescriptions = track->sampleDescriptions;
    facts.codedSizes = track->codedSizes;
    if (!boxes_->fragmented && track->sampleCount == 0) return;
  }
  if (video) {
    describePictures(facts, stream, boxes_);
    describeHDRMetadata(stream, index);
  } else {
    facts.channels = p.ch_layout.nb_channels;
    facts.sampleRate = p.sample_rate;
    facts.hasConfiguration = p.extradata_size > 0;
    facts.encoderDelay = encoderDelay(facts, context, stream, boxes_);
  }
  CodecParameters copy = owned<CodecParameters>(avcodec_parameters_alloc());
  if (avcodec_parameters_copy(copy.get(), &p) < 0) return;
  parameters_[index] = std::move(copy);
  clocks_[index] = clock;
  streams_.push_back(std::move(facts));
}

// As decoded, and as the descriptions of samples that come later tell.
Expected<void> MediaFile::checkSizes() const {
  for (const auto& facts : streams_) {
    if (auto fit = checkPixels(facts.codedWidth, facts.codedHeight, limits_, name_); !fit) return fit;
    for (const auto& [width, height] : facts.codedSizes) {
      if (auto fit = checkPixels(width, height, limits_, name_); !fit) return fit;
    }
  }
  return {};
}

// The first packet of Vorbis decodes to nothing (Vorbis I, 1.3.2). In an Ogg file of a single page, whose granule
// position tells the end alone, the library gives it a length all the same, and all that follows comes that much late.
Expected<void> MediaFile::placeVorbis(InputContext& input) {
  if (std::strcmp(input->iformat->name, "ogg") != 0) return {};
  std::size_t expected = 0;
  for (const auto& facts : streams_) expected += facts.codec == "vorbis" ? 1 : 0;
  Packet packet = makePacket();
  std::vector<int> seen;
  while (seen.size() < expected) {
    const auto got = input.read(*packet);
    if (!got) return tl::make_unexpected(got.error());
    if (!*got) break;
    const int index = packet->stream_index;
    const bool isVorbis = input->streams[index]->codecpar->codec_id == AV_CODEC_ID_VORBIS && clocks_.count(index) != 0;
    if (isVorbis && std::find(seen.begin(), seen.end(), index) == seen.end()) {
      seen.push_back(index);
      if (packet->pts == 0) clocks_[index].zero += packet->duration;
    }
    av_packet_unref(packet.get());
  }
  return {};
}

void MediaFile::describeHDRMetadata(const AVStream& stream, int index) {
  HDRMetadata& facts = hdrMetadata_[index];
  for (const auto kind :
       {AV_PKT_DATA_MASTERING_DISPLAY_METADATA, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, AV_PKT_DATA_DOVI_CONF}) {
    std::size_t bytes = 0;
    const std::uint8_t* data = av_stream_get_side_data(&stream, kind, &bytes);
    if (data != nullptr) facts[kind].assign(data, data + bytes);
  }
}

void MediaFile::describeDuration(const AVFormatContext& context) {
  if (boxes_ && boxes_->timescale > 0 && boxes_->timescale <= INT32_MAX) {
    const std::uint64_t length = boxes_->duration > 0 ? boxes_->duration : boxes_->fragmentsDuration;
    if (length > 0 && length <= static_cast<std::uint64_t>(INT64_MAX)) {
      duration_ = static_cast<std::int64_t>(length);
      timescale_ = static_cast<std::int32_t>(boxes_->timescale);
      return;
    }
  }
  const bool guessed = context.duration_estimation_method == AVFMT_DURATION_FROM_BITRATE;
  if (context.duration <= 0 || guessed || (boxes_ && boxes_->fragmented)) return;
  duration_ = context.duration;  // AV_TIME_BASE
  // Matroska's counts from zero of its clock, whenever its first picture or sound comes.
  const bool countsFromZero = std::strncmp(context.iformat->name, "matroska", 8) == 0;
  if (countsFromZero && context.start_time > 0) duration_ -= std::min(context.start_time, duration_);
}

// A recorder's file without a length, or fragments: its packets tell where it ends.
Expected<void> MediaFile::measureByPackets() {
  auto input = InputContext::open(handle_, name_, limits_);
  if (!input) return tl::make_unexpected(input.error());
  findStreamInfo(*input->get(), Look::thorough, limits_);
  Packet packet = makePacket();
  std::int64_t end = 0;
  auto got = input->read(*packet);
  for (; got && *got; got = input->read(*packet)) {
    const auto clock = clocks_.find(packet->stream_index);
    if (packet->pts != AV_NOPTS_VALUE && clock != clocks_.end()) {
      const std::int64_t length = std::max<std::int64_t>(packet->duration, 0);
      end = std::max(end, av_rescale(clock->second.ticks(packet->pts) + clock->second.ticksOf(length), timescale_,
                                     clock->second.timescale));
    }
    av_packet_unref(packet.get());
  }
  if (!got) return tl::make_unexpected(got.error());
  duration_ = end;
  return {};
}

const StreamFacts& MediaFile::stream(int index) const {
  return *std::find_if(streams_.begin(), streams_.end(), [index](const StreamFacts& s) { return s.index == index; });
}

const AVCodecParameters& MediaFile::parameters(int index) const { return *parameters_.at(index); }

Expected<void> MediaFile::requireDecoder(int index) const {
  if (auto decoder = decoderFor(parameters(index), limits_, name_); !decoder)
    return tl::make_unexpected(decoder.error());
  return {};
}

const HDRMetadata& MediaFile::hdrMetadata(int index) const { return hdrMetadata_.at(index); }

Expected<void> MediaFile::completeMastering(int index, AVFrame& picture) const {
  const HDRMetadata& facts = hdrMetadata(index);
  for (const auto& [said, wanted] : masteringKinds) {
    const auto known = facts.find(said);
    if (known == facts.end() || av_frame_get_side_data(&picture, wanted) != nullptr) continue;
    AVFrameSideData* added = av_frame_new_side_data(&picture, wanted, known->second.size());
    if (added == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for a picture of " + name_);
    std::copy(known->second.begin(), known->second.end(), added->data);
  }
  return {};
}

Expected<StreamPackets> MediaFile::openStream(int index) const {
  auto input = InputContext::open(handle_, name_, limits_);
  if (!input) return tl::make_unexpected(input.error());
  // Containers without a header list their streams only as packets come. Plain files of MPEG sound have no times, and
  // those that the library makes up are right once it has looked.
  const unsigned streams = input->get()->nb_streams;
  const bool isPlain = !boxes_ && streams == 1 && input->get()->streams[0]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
  if (isPlain || static_cast<unsigned>(index) >= streams) findStreamInfo(*input->get(), Look::thorough, limits_);
  if (static_cast<unsigned>(index) >= input->get()->nb_streams) {
    return failed(ErrorKind::damaged, name_ + " changed while it was read");
  }
  return StreamPackets(std::move(*input), index, clocks_.at(index));
}

Expected<std::shared_ptr<const PictureTable>> MediaFile::pictureTable(int index) const {
  const std::lock_guard lock(tablesMutex_);
  if (const auto known = tables_.find(index); known != tables_.end()) return known->second;
  const bool isFragmented = boxes_ && boxes_->fragmented;
  const MovieBoxes::Track* listed = nullptr;
  if (boxes_ && !isFragmented) listed = findTrack(boxes_, stream(index).trackID);
  auto built = buildPictureTable(*this, index, {listed, isFragmented});
  if (!built) return tl::make_unexpected(built.error());
  auto table = std::make_shared<const PictureTable>(std::move(*built));
  tables_[index] = table;
  return table;
}

}  // namespace clipworks::engine
