#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/boxes/FourCC.h>
#include <clipworks/engine/boxes/MovieBoxes.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {

void PrintTo(ErrorKind kind, std::ostream* out) { *out << "ErrorKind " << static_cast<int>(kind); }

namespace {

using testing::ElementsAre;
using testing::FieldsAre;
using testing::Optional;

std::string u32(std::uint64_t value) { return bigEndian(value); }
std::string u64(std::uint64_t value) { return bigEndian(value, 8); }

std::string boxClaiming(std::uint64_t size, const std::string& type, const std::string& content) {
  return u32(size) + type + content;
}
std::string box(const std::string& type, const std::string& content) {
  return boxClaiming(8 + content.size(), type, content);
}
std::string boxOf64BitSize(const std::string& type, const std::string& content) {
  return boxClaiming(1, type, u64(16 + content.size()) + content);
}
std::string boxToTheEnd(const std::string& type, const std::string& content) { return boxClaiming(0, type, content); }

/// A box of `version`; `time` writes what is wider in version 1.
std::string fullBox(const std::string& type, const std::string& content, std::uint32_t version = 0) {
  return box(type, u32(version << 24) + content);
}
std::string time(std::uint64_t value, std::uint32_t version) { return bigEndian(value, version == 1 ? 8 : 4); }
std::string created(std::uint32_t version) { return time(7, version) + time(8, version); }

std::string movieHeader(std::uint32_t version = 0, std::uint64_t duration = 3623) {
  return fullBox("mvhd", created(version) + u32(600) + time(duration, version) + std::string(80, '\1'), version);
}

const std::string quarterTurn =
    u32(0) + u32(0x10000) + u32(0) + u32(-0x10000) + u32(0) + u32(0) + u32(0x4380000) + u32(0) + u32(0x40000000);

std::string trackHeader(std::uint32_t version = 0) {
  const std::string identity = created(version) + u32(42) + u32(0) + time(99, version);
  return fullBox("tkhd", identity + std::string(16, '\0') + quarterTurn + u32(1920 << 16) + u32(1080 << 16), version);
}

std::string editList(std::uint32_t version = 0) {
  const std::string empty = time(226, version) + time(std::uint64_t(-1), version) + u32(0x10000);
  const std::string held = time(5002, version) + time(4000, version) + u32(0);
  return box("edts", fullBox("elst", u32(2) + empty + held, version));
}

std::string media(const std::string& tables, std::uint32_t version = 0) {
  return box("mdia", fullBox("mdhd", created(version) + u32(17594) + time(88000, version) + u32(0), version) +
                         fullBox("hdlr", u32(0) + "vide" + std::string(12, '\0')) + box("minf", box("stbl", tables)));
}

std::string sampleDescriptions() {
  const std::string aperture = u32(1919) + u32(1) + u32(1079) + u32(1) + u32(-1) + u32(2) + u32(1) + u32(2);
  const std::string picture = std::string(78, '\2') + box("avcC", "x") + box("clap", aperture) +
                              box("pasp", u32(4) + u32(3)) + u32(0);  // QuickTime's closing zero
  return fullBox("stsd", u32(2) + box("avc1", picture) + box("avc1", std::string(78, '\2')));
}

const std::string sampleTables =
    fullBox("stts", u32(3) + u32(40) + u32(25) + u32(0) + u32(9) + u32(2) + u32(0x80000000)) +
    fullBox("ctts", u32(2) + u32(1) + u32(75) + u32(41) + u32(-50)) + fullBox("stss", u32(2) + u32(1) + u32(31)) +
    fullBox("stsz", u32(0) + u32(2) + u32(100) + u32(200));

std::string track(const std::string& tables, const std::string& more = "") {
  return box("trak", trackHeader() + more + media(tables));
}

std::string gaplessItem(const std::string& text) {
  return box("----", fullBox("mean", "org.example") + fullBox("name", "iTunSMPB") + fullBox("data", u32(0) + text));
}
const std::string gaplessText = " 00000000 00000840 000001CA 00000000003F31F6 00000000 00000000";
const std::string gaplessList = box("ilst", box("\251too", "x") + gaplessItem(gaplessText));

/// Everything that is read, in boxes of one version.
std::string movieContent(std::uint32_t version) {
  const std::string content =
      trackHeader(version) + editList(version) + media(sampleDescriptions() + sampleTables, version);
  return movieHeader(version) + box("trak", content) + box("mvex", fullBox("mehd", time(9000, version), version)) +
         box("udta", box("meta", u32(0) + gaplessList) + u32(0));
}

const std::string fileType = box("ftyp", "isom");
const std::string plainMovie = movieHeader() + track(sampleTables);
const std::string mediaData = box("mdat", "pictures");

/// The one file of these tests, with nothing but the given bytes at `offset`.
int fileOf(const std::string& content, off_t offset = 0) {
  static const int fd = ::memfd_create("movie", MFD_CLOEXEC);
  EXPECT_EQ(::ftruncate(fd, 0), 0);
  EXPECT_EQ(::pwrite(fd, content.data(), content.size(), offset), std::ssize(content));
  return fd;
}

Expected<MovieBoxes> readBytes(const std::string& file) { return readMovieBoxes(fileOf(file)); }

std::optional<ErrorKind> failureOf(const Expected<MovieBoxes>& movie) {
  EXPECT_TRUE(movie || !movie.error().sentence.empty());
  return movie ? std::nullopt : std::optional(movie.error().kind);
}

TEST(MovieBoxes, AreReadInFull) {
  for (const std::uint32_t version : {0U, 1U}) {
    SCOPED_TRACE(version);
    const auto movie = must(readBytes(fileType + box("moov", movieContent(version))));
    EXPECT_THAT(std::tuple(movie.timescale, movie.duration, movie.fragmented, movie.fragmentsDuration),
                FieldsAre(600, 3623, true, 9000));
    EXPECT_THAT(movie.gapless, Optional(FieldsAre(2112, 458, 4141558)));
    ASSERT_EQ(movie.tracks.size(), 1U);
    const auto& track = movie.tracks[0];
    EXPECT_THAT(std::tuple(track.id, track.handler, track.width, track.height),
                FieldsAre(42, fourCC("vide"), 1920 << 16, 1080 << 16));
    EXPECT_THAT(track.matrix, ElementsAre(0, 0x10000, 0, -0x10000, 0, 0, 0x4380000, 0, 0x40000000));
    EXPECT_THAT(std::tuple(track.mediaTimescale, track.mediaDuration), FieldsAre(17594, 88000));
    EXPECT_THAT(track.edits, ElementsAre(FieldsAre(226, -1, 65536), FieldsAre(5002, 4000, 0)));
    EXPECT_THAT(track.sampleLengths, ElementsAre(FieldsAre(40, 25), FieldsAre(2, 0x80000000)));
    EXPECT_THAT(track.pictureOffsets, ElementsAre(FieldsAre(1, 75), FieldsAre(41, -50)));
    EXPECT_THAT(track.syncSamples, ElementsAre(1, 31));
    EXPECT_THAT(std::tuple(track.hasSyncTable, track.sampleCount, track.sampleDescriptions), FieldsAre(true, 2, 2));
    EXPECT_THAT(track.cleanAperture, Optional(ElementsAre(1919, 1, 1079, 1, -1, 2, 1, 2)));
    EXPECT_THAT(track.pixelAspect, Optional(ElementsAre(4, 3)));
  }
}

std::string repeated(const std::string& piece, int times) {
  std::string result;
  while (times-- > 0) result += piece;
  return result;
}

TEST(MovieBoxes, AreFoundWhereverTheyLieInTheFile) {
  const auto found = [](const std::string& file) {
    return std::pair(readBytes(file)->duration, readBytes(file)->fragmented);
  };
  const std::string index = box("moov", plainMovie);
  EXPECT_THAT(found(fileType + box("wide", "") + mediaData + index + "1234567"), FieldsAre(3623, false));
  EXPECT_THAT(found(boxOf64BitSize("mdat", "x") + boxOf64BitSize("moov", plainMovie)), FieldsAre(3623, false));
  EXPECT_THAT(found(fileType + boxToTheEnd("moov", plainMovie)), FieldsAre(3623, false));
  EXPECT_THAT(found(index + boxClaiming(9000, "mdat", "x")), FieldsAre(3623, false)) << "before cut off media";
  EXPECT_THAT(found(index + box("moov", movieHeader(0, 1))), FieldsAre(3623, false)) << "the first of two";
  EXPECT_THAT(found(index + mediaData + box("moof", "")), FieldsAre(3623, true));
}

TEST(MovieBoxes, AreRefused) {
  const std::string index = box("moov", plainMovie);
  const auto withTracks = [](const std::string& tracks) { return box("moov", movieHeader() + tracks); };
  const std::string edits = fullBox("elst", u32(100'001) + std::string(1'200'012, 0));
  const std::string lengths = u32(2) + u32(20'000'000) + u32(1) + u32(1) + u32(1);
  const std::tuple<const char*, std::string, ErrorKind> cases[] = {
      {"no index", fileType + mediaData, ErrorKind::notMedia},
      {"media to the end", boxToTheEnd("mdat", index), ErrorKind::notMedia},
      {"a size that leads back", fileType + boxClaiming(1, "free", u64(-12)) + index, ErrorKind::notMedia},
      {"endless boxes", repeated(box("free", ""), 5000) + index, ErrorKind::tooLarge},
      {"smaller than its head", boxClaiming(7, "moov", plainMovie), ErrorKind::damaged},
      {"longer than the file", boxClaiming(0x7fffffff, "moov", plainMovie), ErrorKind::damaged},
      {"cut by a byte", index.substr(0, index.size() - 1), ErrorKind::damaged},
      {"no movie header", box("moov", track("")), ErrorKind::damaged},
      {"movie header of version 2", box("moov", movieHeader(2)), ErrorKind::damaged},
      {"compressed index", box("moov", box("cmov", "x")), ErrorKind::unsupported},
      {"tracks", withTracks(repeated(track(""), 65)), ErrorKind::tooLarge},
      {"edits", withTracks(track("", box("edts", edits))), ErrorKind::tooLarge},
      {"lengths", withTracks(track(fullBox("stts", lengths))), ErrorKind::tooLarge},
      {"offsets", withTracks(track(fullBox("ctts", u32(1) + u32(-1) + u32(0)))), ErrorKind::tooLarge},
      {"samples", withTracks(track(fullBox("stsz", u32(8) + u32(20'000'001)))), ErrorKind::tooLarge}};
  for (const auto& [name, file, kind] : cases) EXPECT_EQ(failureOf(readBytes(file)), kind) << name;
}

/// Of samples; of runs of lengths and offsets, of access points and edits; of descriptions.
using Counts = std::array<std::uint64_t, 6>;

Counts countsIn(const std::string& trak) {
  const auto movie = must(readBytes(box("moov", movieHeader() + trak)));
  EXPECT_EQ(movie.tracks.size(), 1U);
  const auto& [lengths, offsets, syncs, edits] =
      std::tie(movie.tracks.at(0).sampleLengths, movie.tracks[0].pictureOffsets, movie.tracks[0].syncSamples,
               movie.tracks[0].edits);
  EXPECT_LE(std::max({lengths.capacity(), offsets.capacity(), syncs.capacity(), edits.capacity()}), 8U)
      << "no memory for what a count merely claims";
  return {movie.tracks[0].sampleCount,       lengths.size(), offsets.size(), syncs.size(), edits.size(),
          movie.tracks[0].sampleDescriptions};
}

TEST(MovieBoxes, ListAnOddTrackWithWhatIsThere) {
  const std::string run = u32(1) + u32(5);
  const std::string edit = u32(1) + u32(2) + u32(0x10000);
  const std::string huge = fullBox("stts", u32(-1) + run) + fullBox("ctts", u32(-1) + run + run + "abc") +
                           fullBox("stss", u32(-1) + u32(1)) + fullBox("stsz", u32(0) + u32(-1) + u32(9)) +
                           fullBox("stsd", u32(-1) + box("avc1", "") + box("avc1", "") + "tail");
  EXPECT_THAT(countsIn(track(huge, box("edts", fullBox("elst", u32(-1) + edit + u64(0))))),
              ElementsAre(1, 1, 2, 1, 1, 2));
  const Counts none{};
  EXPECT_EQ(countsIn(track(fullBox("stts", "") + fullBox("stss", "ab") + box("stsz", "") + box("stsd", "abc") +
                           box("ctts", "abcdef"))),
            none);
  const Counts tables{2, 2, 2, 2};
  EXPECT_EQ(countsIn(boxClaiming(0xffffffff, "trak", track(sampleTables).substr(8))), tables)
      << "longer than the index";
  const std::string openMedia = boxToTheEnd("mdia", boxToTheEnd("minf", boxToTheEnd("stbl", sampleTables)));
  EXPECT_EQ(countsIn(boxToTheEnd("trak", openMedia)), tables);
  EXPECT_EQ(countsIn(track(boxClaiming(1, "free", u64(15)) + sampleTables)), none)
      << "64 bit size smaller than its head";
  EXPECT_EQ(countsIn(track(fullBox("stts", u32(1) + run) + sampleTables, box("edts", "") + editList())),
            (Counts{2, 1, 2, 2}))
      << "the first of boxes that occur twice";
  EXPECT_EQ(countsIn(track("", box("edts", fullBox("elst", u32(1) + edit, 2)))), none) << "edits of an unknown version";
  EXPECT_EQ(countsIn(track(fullBox("stz2", u32(4) + u32(5) + "abc"))), Counts{5});
  EXPECT_EQ(countsIn(track(fullBox("stz2", u32(16) + u32(5) + "abcde"))), Counts{2}) << "cut off";
  EXPECT_EQ(countsIn(track(fullBox("stz2", u32(0) + u32(5) + "abc"))), none);
}

TEST(MovieBoxes, TakeAnUnknownDurationForNone) {
  EXPECT_EQ(readBytes(box("moov", movieHeader(0, 0xffffffff)))->duration, 0U);
  EXPECT_EQ(readBytes(box("moov", movieHeader(1, 0xffffffff)))->duration, 0xffffffffU);
  EXPECT_EQ(readBytes(box("moov", movieHeader(1, std::uint64_t(-1))))->duration, 0U);
}

TEST(GaplessTag, IsFoundWhereItMayLieAndOnlyWhole) {
  const auto isFound = [](const std::string& boxes) {
    return readBytes(box("moov", movieHeader() + boxes))->gapless.has_value();
  };
  const auto tag = [](const std::string& text) { return box("meta", u32(0) + box("ilst", gaplessItem(text))); };
  EXPECT_TRUE(isFound(box("trak", box("udta", box("meta", u32(0) + gaplessList)))));
  EXPECT_TRUE(isFound(box("udta", box("meta", box("hdlr", "x") + gaplessList)))) << "the QuickTime way";
  EXPECT_TRUE(isFound(box("meta", u32(0) + box("ilst", gaplessItem("none") + gaplessItem(gaplessText)))));
  EXPECT_TRUE(isFound(tag("0 840 1ca 3F31F6"))) << "ending with the samples";
  for (const char* text : {"", "0 840 1ca ", "0 84g 1ca 3F31F6", "0 -840 1ca 3F31F6", "0 100000840 1ca 3F31F6"})
    EXPECT_FALSE(isFound(tag(text))) << text;
  EXPECT_FALSE(isFound(box("meta", "")));
}

TEST(MovieBoxes, AreReadBehindFourGibibytesAndLeaveTheOffsetAlone) {
  const off_t mediaBytes = off_t{5} << 30;
  const int fd = fileOf(box("moov", plainMovie), mediaBytes);  // sparse
  const std::string head = boxClaiming(1, "mdat", u64(static_cast<std::uint64_t>(mediaBytes)));
  ASSERT_EQ(::pwrite(fd, head.data(), head.size(), 0), std::ssize(head));
  ASSERT_EQ(::lseek(fd, 5, SEEK_SET), 5);
  EXPECT_EQ(must(readMovieBoxes(fd)).tracks.size(), 1U);
  EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), 5);
}

TEST(MovieBoxes, AreRefusedBeyondTheLimit) {
  const std::uint64_t size = limits::maxMovieIndexBytes + 1;
  const int fd = fileOf(boxClaiming(size, "moov", movieHeader()));
  ASSERT_EQ(::ftruncate(fd, static_cast<off_t>(size)), 0);
  EXPECT_EQ(failureOf(readMovieBoxes(fd)), ErrorKind::tooLarge);
}

TEST(MovieBoxes, ReportWhatTheSystemSays) {
  const int directory = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const Error error = readMovieBoxes(directory).error();
  EXPECT_EQ(std::pair(error.kind, error.posixCode), std::pair(ErrorKind::unreadable, EISDIR));
  ::close(directory);
}

}  // namespace
}  // namespace clipworks::engine
