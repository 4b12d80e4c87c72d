#include <clipworks/engine/output/MovieWriter.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

constexpr std::int32_t trackTimescale = 1000;
constexpr std::int32_t movieTimescale = 2'000'000;

/// A movie that is written with tracks of small pictures.
struct Writing {
  explicit Writing(const std::filesystem::path& path)
      : file(must(OutputFile::create(path, 0))), movie(must(MovieWriter::create(*file, movieTimescale, {}))) {}

  int addTrack() const {
    const auto format = owned<CodecParameters>(avcodec_parameters_alloc());
    format->codec_type = AVMEDIA_TYPE_VIDEO;
    format->codec_id = AV_CODEC_ID_MJPEG;
    format->width = format->height = 16;
    return must(movie->addTrack(*format, trackTimescale, std::nullopt));
  }
  void writeSample(int track, std::int64_t presentation, std::int64_t decode, std::int64_t duration,
                   const std::optional<TrackEdit>& last = {}) const {
    const Packet packet = packetOf(std::string(64, '\0'));
    packet->pts = presentation;
    packet->dts = decode;
    packet->duration = duration;
    packet->flags = AV_PKT_FLAG_KEY;
    must(last ? movie->writeLast(track, *packet, *last) : movie->write(track, *packet));
  }
  void finish() const {
    must(movie->finish());
    must(file->commit());
  }

  decltype(OutputFile::create({}, 0))::value_type file;
  decltype(MovieWriter::create(*file, 0, {}))::value_type movie;
};

std::int64_t milliseconds(std::uint64_t ticks) { return static_cast<std::int64_t>(ticks * 1000 / movieTimescale); }

using Milliseconds = std::vector<std::int64_t>;

/// Ends a track that is shown until `end`, beside another one that ends at `otherEnd`. `shown`: when the samples are
/// shown, in decoding order; each is decoded a millisecond after the one before, the first 40 before it is shown.
/// `wanted`: the lengths of the edits; the first samples are hidden for `hiddenBefore`.
void expectEnd(const Milliseconds& shown, std::int64_t end, std::int64_t otherEnd, const Milliseconds& wanted,
               std::int64_t hiddenBefore = 0, std::int64_t timescale = trackTimescale) {
  const test::TemporaryDirectory directory;
  const auto path = directory.file("ended.mp4");
  const Writing writing(path);
  const int track = writing.addTrack();
  const int other = writing.addTrack();
  must(writing.movie->begin());
  std::int64_t decode = shown.front() - 40;
  for (std::size_t i = 0; i + 1 < shown.size(); ++i) writing.writeSample(track, shown[i], decode++, 40);
  const TrackEdit edit{wanted.size() > 1 ? wanted.front() : 0, end, shown.front() + hiddenBefore};
  writing.writeSample(track, shown.back(), decode, 40, edit);
  writing.writeSample(other, 0, 0, otherEnd);
  writing.finish();

  const auto boxes = must(readMovieBoxes(must(FileHandle::openForReading(path))->descriptor()));
  EXPECT_EQ(milliseconds(boxes.duration), std::max(end, otherEnd));
  const auto& read = boxes.tracks.at(0);
  Milliseconds edits;
  for (const auto& one : read.edits) edits.push_back(milliseconds(one.duration));
  EXPECT_EQ(edits, wanted);
  EXPECT_EQ(read.sampleCount, shown.size());
  EXPECT_EQ(read.mediaTimescale, timescale);
  EXPECT_EQ(read.edits.back().mediaTime * trackTimescale / timescale, 40 + hiddenBefore);
  std::int64_t lengths = 0;
  for (const auto& run : read.sampleLengths) lengths += run.count * run.value;
  EXPECT_EQ(static_cast<std::int64_t>(read.mediaDuration), lengths);
  EXPECT_EQ(lengths * trackTimescale / timescale, wanted.back() + hiddenBefore);
}

TEST(MovieWriter, EndsATrackBesideALongerOrShorterOne) {
  expectEnd({0, 120, 40}, 80, 60, {80});
  expectEnd({0, 120, 40}, 80, 5000, {80});
}

TEST(MovieWriter, EndsATrackBehindAnEmptyEditAndHiddenSamples) {
  expectEnd({200, 320, 240}, 280, 60, {200, 80}, 0, movieTimescale);
  expectEnd({-60, 0, 60, 40}, 80, 60, {80}, 60);
  expectEnd({200, 260, 340}, 280, 60, {200, 80}, 60, movieTimescale);
}

TEST(MovieWriter, EndsATrackAfterHours) {
  constexpr std::int64_t hours = 3'600'000;  // beyond 32 bits in ticks of the movie
  expectEnd({0, 2 * hours + 80, 2 * hours}, 2 * hours + 40, 60, {2 * hours + 40});
  expectEnd({0, 120, 40}, 80, 2 * hours, {80});
  expectEnd({hours, 3 * hours + 80, 3 * hours}, 3 * hours + 40, hours, {hours, 2 * hours + 40});
}

TEST(MovieWriter, KeepsWhatATrackSaysOfItsLight) {
  // Version 1.0, profile 8, level 4; with metadata of each picture, without another layer, compatible with 4.
  const AVDOVIDecoderConfigurationRecord dynamic{1, 0, 8, 4, 1, 0, 1, 4};
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&dynamic);
  const HDRMetadata facts{{AV_PKT_DATA_DOVI_CONF, {bytes, bytes + sizeof dynamic}}};
  const test::TemporaryDirectory directory;
  const auto path = directory.file("light.mp4");
  const Writing writing(path);
  const int track = writing.addTrack();
  must(writing.movie->setHDRMetadata(track, facts));
  must(writing.movie->begin());
  writing.writeSample(track, 0, 0, 40);
  writing.finish();

  const auto judged =
      test::runProgram({"ffprobe", "-v", "error", "-show_entries", "stream_side_data", "-of", "csv", path});
  EXPECT_THAT(judged.standardOutput, testing::HasSubstr("DOVI configuration record,1,0,8,4,1,0,1,4"));
  const auto opened = must(MediaFile::open(path));
  EXPECT_EQ(opened->hdrMetadata(opened->streams().front().index), facts);
}

}  // namespace
}  // namespace clipworks::engine
