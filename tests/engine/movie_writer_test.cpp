#include <clipworks/engine/output/MovieWriter.h>

extern "C" {
#include <libavutil/dovi_meta.h>
}

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/engine/FileHandle.h>
#include <clipworks/engine/boxes/BoxSequence.h>
#include <clipworks/engine/boxes/FourCC.h>
#include <clipworks/engine/boxes/FullBoxCursor.h>
#include <clipworks/engine/boxes/MovieBoxes.h>
#include <clipworks/engine/input/MediaFile.h>

#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

using engine::MovieWriter;

constexpr std::int32_t trackTimescale = 1000;
constexpr std::int32_t movieTimescale = 2'000'000;

engine::CodecParameters pictureFormat() {
  auto format = engine::owned<engine::CodecParameters>(avcodec_parameters_alloc());
  format->codec_type = AVMEDIA_TYPE_VIDEO;
  format->codec_id = AV_CODEC_ID_MJPEG;
  format->width = format->height = 16;
  return format;
}

void writeSample(MovieWriter& movie, int track, std::int64_t presentation, std::int64_t decode, std::int64_t duration,
                 const std::optional<engine::TrackEdit>& last = {}) {
  auto packet = engine::makePacket();
  ASSERT_EQ(av_new_packet(packet.get(), 64), 0);
  std::fill_n(packet->data, packet->size, std::uint8_t{0});
  packet->pts = presentation;
  packet->dts = decode;
  packet->duration = duration;
  packet->flags = AV_PKT_FLAG_KEY;
  ASSERT_TRUE(last ? movie.writeLast(track, *packet, *last) : movie.write(track, *packet));
}

struct EndCase {
  std::string name;
  /// When the samples of the track that is ended are shown, in decoding order, in milliseconds; each is decoded a
  /// millisecond after the one before, the first 40 before it is shown.
  std::vector<std::int64_t> shown;
  std::int64_t end;
  /// When the one sample of the other track ends.
  std::int64_t otherEnd;
  std::vector<std::int64_t> wantedEdits;  ///< their lengths
  std::int64_t hiddenBefore = 0;          ///< milliseconds of samples before what is shown
  std::int32_t wantedTimescale = trackTimescale;

  friend std::ostream& operator<<(std::ostream& out, const EndCase& c) { return out << c.name; }
};

class EndedTrack : public testing::TestWithParam<EndCase> {
 protected:
  void writeFile() const {
    auto file = engine::OutputFile::create(path_, 0);
    ASSERT_TRUE(file);
    auto movie = MovieWriter::create(**file, movieTimescale, {});
    ASSERT_TRUE(movie);
    const auto format = pictureFormat();
    const auto track = (*movie)->addTrack(*format, trackTimescale, std::nullopt);
    const auto other = (*movie)->addTrack(*format, trackTimescale, std::nullopt);
    ASSERT_TRUE(track && other && (*movie)->begin());
    std::int64_t decode = GetParam().shown.front() - 40;
    const auto& shown = GetParam().shown;
    const std::int64_t start = shown.front() + GetParam().hiddenBefore;
    const std::int64_t late = GetParam().wantedEdits.size() > 1 ? GetParam().wantedEdits.front() : 0;
    for (std::size_t i = 0; i + 1 < shown.size(); ++i) writeSample(**movie, *track, shown[i], decode++, 40);
    writeSample(**movie, *track, shown.back(), decode, 40, engine::TrackEdit{late, GetParam().end, start});
    writeSample(**movie, *other, 0, 0, GetParam().otherEnd);
    ASSERT_TRUE((*movie)->finish());
    ASSERT_TRUE((*file)->commit());
  }

  /// Of each track's header, in milliseconds.
  [[nodiscard]] std::vector<std::int64_t> trackLengths() const {
    std::ifstream stream(path_, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    const auto movie = engine::findBox(std::as_bytes(std::span(bytes)), {engine::fourCC("moov")});
    std::vector<std::int64_t> lengths;
    engine::BoxSequence boxes(movie.value());
    while (const auto box = boxes.next()) {
      if (box->type != engine::fourCC("trak")) continue;
      auto header =
          engine::FullBoxCursor::open(engine::findBox(box->content, {engine::fourCC("tkhd")}).value()).value();
      header.skip(2 * header.timeBytes() + 8);
      lengths.push_back(milliseconds(header.readTime()));
    }
    return lengths;
  }

  static std::int64_t milliseconds(std::uint64_t ticks) {
    return static_cast<std::int64_t>(ticks * 1000 / movieTimescale);
  }

  TemporaryDirectory directory_;
  std::filesystem::path path_ = directory_.file("ended.mp4");
};

TEST_P(EndedTrack, IsAsLongAsItsEditsSay) {
  ASSERT_NO_FATAL_FAILURE(writeFile());
  const auto boxes = engine::readMovieBoxes(engine::FileHandle::openForReading(path_).value()->descriptor());
  ASSERT_TRUE(boxes);
  std::vector<std::int64_t> edits;
  for (const auto& edit : boxes->tracks.at(0).edits) edits.push_back(milliseconds(edit.duration));
  EXPECT_EQ(edits, GetParam().wantedEdits);
  EXPECT_THAT(trackLengths(), testing::ElementsAre(GetParam().end, GetParam().otherEnd));
  EXPECT_EQ(milliseconds(boxes->duration), std::max(GetParam().end, GetParam().otherEnd));
  const auto [length, scale] = MediaJudge(path_).movieHeaderDuration();
  EXPECT_EQ(length * 1000 / scale, static_cast<std::uint64_t>(std::max(GetParam().end, GetParam().otherEnd)));
  const auto& track = boxes->tracks.at(0);
  EXPECT_EQ(track.sampleCount, GetParam().shown.size());
  EXPECT_EQ(track.mediaTimescale, static_cast<std::uint32_t>(GetParam().wantedTimescale));
  EXPECT_EQ(track.edits.back().mediaTime * trackTimescale / GetParam().wantedTimescale, 40 + GetParam().hiddenBefore);
  std::uint64_t lengths = 0;
  for (const auto& run : track.sampleLengths)
    lengths += std::uint64_t{run.count} * static_cast<std::uint64_t>(run.value);
  EXPECT_EQ(track.mediaDuration, lengths);
  EXPECT_EQ(lengths * trackTimescale / static_cast<std::uint64_t>(GetParam().wantedTimescale),
            static_cast<std::uint64_t>(GetParam().wantedEdits.back() + GetParam().hiddenBefore));
}

constexpr std::int64_t hours = 3'600'000;  // beyond 32 bits in ticks of the movie

INSTANTIATE_TEST_SUITE_P(
    Movies, EndedTrack,
    testing::Values(
        EndCase{"ends the longest track", {0, 120, 40}, 80, 60, {80}},
        EndCase{"beside a longer track", {0, 120, 40}, 80, 5000, {80}},
        EndCase{"behind an empty edit", {200, 320, 240}, 280, 60, {200, 80}, 0, movieTimescale},
        EndCase{"behind hidden samples", {-60, 0, 60, 40}, 80, 60, {80}, 60},
        EndCase{"behind an empty edit and hidden samples", {200, 260, 340}, 280, 60, {200, 80}, 60, movieTimescale},
        EndCase{"hours long", {0, 2 * hours + 80, 2 * hours}, 2 * hours + 40, 60, {2 * hours + 40}},
        EndCase{"a short one beside hours", {0, 120, 40}, 80, 2 * hours, {80}},
        EndCase{"hours long behind an empty edit",
                {hours, 3 * hours + 80, 3 * hours},
                3 * hours + 40,
                hours,
                {hours, 2 * hours + 40}}));

TEST(MovieWriter, KeepsWhatATrackSaysOfItsLight) {
  const auto bytesOf = [](const auto& facts) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&facts);
    return std::vector<std::uint8_t>(bytes, bytes + sizeof facts);
  };
  AVMasteringDisplayMetadata mastering{};
  mastering.has_primaries = mastering.has_luminance = 1;
  for (auto& primary : mastering.display_primaries) primary[0] = primary[1] = av_make_q(10'000, 50'000);
  mastering.white_point[0] = mastering.white_point[1] = av_make_q(15'635, 50'000);
  mastering.min_luminance = av_make_q(50, 10'000);
  mastering.max_luminance = av_make_q(10'000'000, 10'000);
  AVContentLightMetadata light{};
  light.MaxCLL = 1000;
  light.MaxFALL = 400;
  AVDOVIDecoderConfigurationRecord dynamic{};
  dynamic.dv_version_major = 1;
  dynamic.dv_profile = 8;
  dynamic.dv_level = 4;
  dynamic.rpu_present_flag = dynamic.bl_present_flag = 1;
  dynamic.dv_bl_signal_compatibility_id = 4;
  const engine::HDRMetadata facts{{AV_PKT_DATA_MASTERING_DISPLAY_METADATA, bytesOf(mastering)},
                                  {AV_PKT_DATA_CONTENT_LIGHT_LEVEL, bytesOf(light)},
                                  {AV_PKT_DATA_DOVI_CONF, bytesOf(dynamic)}};

  const TemporaryDirectory directory;
  const auto path = directory.file("light.mp4");
  auto file = engine::OutputFile::create(path, 0);
  ASSERT_TRUE(file);
  auto movie = MovieWriter::create(**file, movieTimescale, {});
  ASSERT_TRUE(movie);
  const auto track = (*movie)->addTrack(*pictureFormat(), trackTimescale, std::nullopt);
  ASSERT_TRUE(track && (*movie)->setHDRMetadata(*track, facts) && (*movie)->begin());
  writeSample(**movie, *track, 0, 0, 40);
  ASSERT_TRUE((*movie)->finish() && (*file)->commit());

  const auto judged = runProgram({"ffprobe", "-v", "error", "-show_entries", "stream_side_data", "-of", "csv", path});
  for (const char* told : {"Mastering display metadata", "10000000/10000", "Content light level metadata,1000,400",
                           "DOVI configuration record,1,0,8,4,1,0,1,4"}) {
    EXPECT_THAT(judged.standardOutput, testing::HasSubstr(told));
  }
  const auto opened = engine::MediaFile::open(path);
  ASSERT_TRUE(opened);
  const auto& read = (*opened)->hdrMetadata((*opened)->streams().front().index);
  EXPECT_EQ(read.size(), facts.size());
  EXPECT_EQ(read.at(AV_PKT_DATA_DOVI_CONF), facts.at(AV_PKT_DATA_DOVI_CONF));
}

}  // namespace
}  // namespace clipworks::test
