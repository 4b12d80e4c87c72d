#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <clipworks/engine/Limits.h>
#include <clipworks/engine/boxes/FourCC.h>
#include <clipworks/engine/boxes/MovieBoxes.h>

namespace clipworks::engine {

void PrintTo(ErrorKind kind, std::ostream* out) { *out << "ErrorKind " << static_cast<int>(kind); }

namespace {

using testing::ElementsAre;

/// A big-endian number of `bytes` bytes; negative ones in two's complement.
std::string number(std::uint64_t value, int bytes) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) text += static_cast<char>(value >> shift & 0xff);
  return text;
}
std::string u32(std::uint64_t value) { return number(value, 4); }
std::string u64(std::uint64_t value) { return number(value, 8); }

std::string box(const std::string& type, const std::string& content) {
  return u32(8 + content.size()) + type + content;
}
std::string boxOf64BitSize(const std::string& type, const std::string& content) {
  return u32(1) + type + u64(16 + content.size()) + content;
}
std::string boxToTheEnd(const std::string& type, const std::string& content) { return u32(0) + type + content; }
std::string boxClaiming(std::uint32_t size, const std::string& type, const std::string& content) {
  return u32(size) + type + content;
}

/// A box of `version`; `time` writes what is wider in version 1.
std::string fullBox(const std::string& type, const std::string& content, std::uint32_t version = 0) {
  return box(type, u32(version << 24) + content);
}
std::string time(std::uint64_t value, std::uint32_t version) { return number(value, version == 1 ? 8 : 4); }

std::string movieHeader(std::uint32_t version = 0, std::uint64_t duration = 3623) {
  const std::string created = time(7, version) + time(8, version);
  return fullBox("mvhd", created + u32(600) + time(duration, version) + std::string(80, '\1'), version);
}

const std::string quarterTurn =
    u32(0) + u32(0x10000) + u32(0) + u32(-0x10000) + u32(0) + u32(0) + u32(0x4380000) + u32(0) + u32(0x40000000);

std::string trackHeader(std::uint32_t version = 0) {
  const std::string identity = time(7, version) + time(8, version) + u32(42) + u32(0) + time(99, version);
  return fullBox("tkhd", identity + std::string(16, '\0') + quarterTurn + u32(1920 << 16) + u32(1080 << 16), version);
}

std::string editList(std::uint32_t version = 0) {
  const std::string empty = time(226, version) + time(std::uint64_t(-1), version) + u32(0x10000);
  const std::string held = time(5002, version) + time(4000, version) + u32(0);
  return box("edts", fullBox("elst", u32(2) + empty + held, version));
}

const std::string handler = fullBox("hdlr", u32(0) + "vide" + std::string(12, '\0'));

std::string mediaHeader(std::uint32_t version = 0) {
  const std::string created = time(7, version) + time(8, version);
  return fullBox("mdhd", created + u32(17594) + time(88000, version) + u32(0), version);
}

std::string sampleDescriptions() {
  const std::string aperture = u32(1919) + u32(1) + u32(1079) + u32(1) + u32(-1) + u32(2) + u32(1) + u32(2);
  const std::string picture = std::string(78, '\2') + box("avcC", "x") + box("clap", aperture) +
                              box("pasp", u32(4) + u32(3)) + u32(0);  // QuickTime's closing zero
  return fullBox("stsd", u32(2) + box("avc1", picture) + box("avc1", std::string(78, '\2')));
}

std::string sampleTables() {
  return fullBox("stts", u32(3) + u32(40) + u32(25) + u32(0) + u32(9) + u32(2) + u32(0x80000000)) +
         fullBox("ctts", u32(2) + u32(1) + u32(75) + u32(41) + u32(-50)) + fullBox("stss", u32(2) + u32(1) + u32(31)) +
         fullBox("stsz", u32(0) + u32(2) + u32(100) + u32(200));
}

std::string track(const std::string& tables, const std::string& more = "") {
  return box("trak", trackHeader() + more + box("mdia", mediaHeader() + handler + box("minf", box("stbl", tables))));
}

std::string gaplessItem(const std::string& text) {
  return box("----", fullBox("mean", "org.example") + fullBox("name", "iTunSMPB") + fullBox("data", u32(0) + text));
}
const std::string gaplessText = " 00000000 00000840 000001CA 00000000003F31F6 00000000 00000000";
const std::string gaplessList = box("ilst", box("\251too", "x") + gaplessItem(gaplessText));

/// Everything that is read, in boxes of one version.
std::string movieContent(std::uint32_t version) {
  const std::string media =
      mediaHeader(version) + handler + box("minf", box("stbl", sampleDescriptions() + sampleTables()));
  return movieHeader(version) + box("trak", trackHeader(version) + editList(version) + box("mdia", media)) +
         box("mvex", fullBox("mehd", time(9000, version), version)) +
         box("udta", box("meta", u32(0) + gaplessList) + u32(0));
}

const std::string fileType = box("ftyp", "isom");

/// An unnamed file with the given bytes at `offset`.
class TestFile {
 public:
  explicit TestFile(const std::string& content, off_t offset = 0) : fd_(::memfd_create("movie", MFD_CLOEXEC)) {
    EXPECT_EQ(::pwrite(fd_, content.data(), content.size(), offset), static_cast<ssize_t>(content.size()));
  }
  ~TestFile() { ::close(fd_); }
  TestFile(const TestFile&) = delete;
  TestFile& operator=(const TestFile&) = delete;
  [[nodiscard]] int fd() const { return fd_; }

 private:
  int fd_;
};

Expected<MovieBoxes> readBytes(const std::string& file) { return readMovieBoxes(TestFile(file).fd()); }

std::vector<std::pair<std::uint32_t, std::int64_t>> pairs(const std::vector<MovieBoxes::Run>& runs) {
  std::vector<std::pair<std::uint32_t, std::int64_t>> result;
  result.reserve(runs.size());
  for (const auto& run : runs) result.emplace_back(run.count, run.value);
  return result;
}

class MovieBoxesOfVersion : public testing::TestWithParam<std::uint32_t> {};

TEST_P(MovieBoxesOfVersion, AreReadInFull) {
  const auto movie = readBytes(fileType + box("moov", movieContent(GetParam())));
  ASSERT_TRUE(movie) << movie.error().sentence;
  EXPECT_EQ(movie->timescale, 600U);
  EXPECT_EQ(movie->duration, 3623U);
  EXPECT_TRUE(movie->fragmented);
  EXPECT_EQ(movie->fragmentsDuration, 9000U);
  ASSERT_TRUE(movie->gapless);
  EXPECT_EQ(movie->gapless->delay, 2112U);
  EXPECT_EQ(movie->gapless->padding, 458U);
  EXPECT_EQ(movie->gapless->samples, 4141558U);

  ASSERT_EQ(movie->tracks.size(), 1U);
  const auto& track = movie->tracks[0];
  EXPECT_EQ(track.id, 42U);
  EXPECT_EQ(track.handler, fourCC("vide"));
  EXPECT_THAT(track.matrix, ElementsAre(0, 0x10000, 0, -0x10000, 0, 0, 0x4380000, 0, 0x40000000));
  EXPECT_EQ(track.width, 1920U << 16);
  EXPECT_EQ(track.height, 1080U << 16);
  EXPECT_EQ(track.mediaTimescale, 17594U);
  EXPECT_EQ(track.mediaDuration, 88000U);
  std::vector<std::array<std::int64_t, 3>> edits;
  for (const auto& edit : track.edits) {
    edits.push_back({static_cast<std::int64_t>(edit.duration), edit.mediaTime, edit.rate});
  }
  EXPECT_THAT(edits, ElementsAre(std::array{226L, -1L, 65536L}, std::array{5002L, 4000L, 0L}));
  EXPECT_EQ(track.sampleDescriptions, 2U);
  EXPECT_THAT(pairs(track.sampleLengths), ElementsAre(std::pair(40, 25), std::pair(2, 0x80000000)));
  EXPECT_THAT(pairs(track.pictureOffsets), ElementsAre(std::pair(1, 75), std::pair(41, -50)));
  EXPECT_TRUE(track.hasSyncTable);
  EXPECT_THAT(track.syncSamples, ElementsAre(1U, 31U));
  EXPECT_EQ(track.sampleCount, 2U);
  ASSERT_TRUE(track.cleanAperture);
  EXPECT_THAT(*track.cleanAperture, ElementsAre(1919, 1, 1079, 1, -1, 2, 1, 2));
  ASSERT_TRUE(track.pixelAspect);
  EXPECT_THAT(*track.pixelAspect, ElementsAre(4U, 3U));
}

INSTANTIATE_TEST_SUITE_P(Versions, MovieBoxesOfVersion, testing::Values(0U, 1U));

struct FileCase {
  std::string name;
  std::string file;
  std::optional<ErrorKind> error = {};
  bool fragmented = false;
};
void PrintTo(const FileCase& c, std::ostream* out) { *out << c.name; }

std::string repeated(const std::string& piece, std::size_t times) {
  std::string result;
  for (std::size_t i = 0; i < times; ++i) result += piece;
  return result;
}

const std::string plainMovie = movieHeader() + track(sampleTables());
const std::string mediaData = box("mdat", "pictures");
std::string movieWithTables(const std::string& tables) { return box("moov", movieHeader() + track(tables)); }

class MovieBoxesInFile : public testing::TestWithParam<FileCase> {};

TEST_P(MovieBoxesInFile, AreFoundOrRefused) {
  const auto movie = readBytes(GetParam().file);
  ASSERT_EQ(movie ? std::nullopt : std::optional(movie.error().kind), GetParam().error);
  if (movie) {
    EXPECT_EQ(movie->duration, 3623U);
    EXPECT_EQ(movie->fragmented, GetParam().fragmented);
  } else {
    EXPECT_FALSE(movie.error().sentence.empty());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Places, MovieBoxesInFile,
    testing::Values(
        FileCase{"index last", fileType + box("wide", "") + mediaData + box("moov", plainMovie) + "1234567"},
        FileCase{"64 bit sizes", boxOf64BitSize("mdat", "x") + boxOf64BitSize("moov", plainMovie)},
        FileCase{"index to the end of the file", fileType + boxToTheEnd("moov", plainMovie)},
        FileCase{"index before cut off media", box("moov", plainMovie) + boxClaiming(9000, "mdat", "x")},
        FileCase{"the first of two indexes", box("moov", plainMovie) + box("moov", movieHeader(0, 1))},
        FileCase{"fragment behind", box("moov", plainMovie) + mediaData + box("moof", ""), {}, true},
        FileCase{"no index", fileType + mediaData, ErrorKind::notMedia},
        FileCase{"media to the end", boxToTheEnd("mdat", box("moov", plainMovie)), ErrorKind::notMedia},
        FileCase{"a size that leads back", fileType + u32(1) + "free" + u64(-12) + box("moov", plainMovie),
                 ErrorKind::notMedia},
        FileCase{"endless boxes", repeated(box("free", ""), 5000) + box("moov", plainMovie), ErrorKind::tooLarge},
        FileCase{"index smaller than its head", boxClaiming(7, "moov", plainMovie), ErrorKind::damaged},
        FileCase{"index longer than the file", boxClaiming(0x7fffffff, "moov", plainMovie), ErrorKind::damaged},
        FileCase{"no movie header", box("moov", track("")), ErrorKind::damaged},
        FileCase{"movie header of version 2", box("moov", movieHeader(2)), ErrorKind::damaged},
        FileCase{"compressed index", box("moov", box("cmov", "x")), ErrorKind::unsupported},
        FileCase{"65 tracks", box("moov", movieHeader() + repeated(track(""), 65)), ErrorKind::tooLarge},
        FileCase{"too many edits",
                 box("moov",
                     movieHeader() + track("", box("edts", fullBox("elst", u32(100'001) + std::string(1'200'012, 0))))),
                 ErrorKind::tooLarge},
        FileCase{"too many lengths",
                 movieWithTables(fullBox("stts", u32(2) + u32(20'000'000) + u32(1) + u32(1) + u32(1))),
                 ErrorKind::tooLarge},
        FileCase{"too many offsets", movieWithTables(fullBox("ctts", u32(1) + u32(-1) + u32(0))), ErrorKind::tooLarge},
        FileCase{"too many sizes", movieWithTables(fullBox("stsz", u32(8) + u32(20'000'001))), ErrorKind::tooLarge}));

struct TrackCase {
  std::string name;
  std::string trak;
  std::uint64_t samples = 0;
  std::size_t lengths = 0;
  std::size_t offsets = 0;
  std::size_t syncs = 0;
  std::size_t edits = 0;
  std::uint32_t descriptions = 0;
};
void PrintTo(const TrackCase& c, std::ostream* out) { *out << c.name; }

class OddTrack : public testing::TestWithParam<TrackCase> {};

TEST_P(OddTrack, IsListedWithWhatIsThere) {
  const auto movie = readBytes(box("moov", movieHeader() + GetParam().trak));
  ASSERT_TRUE(movie) << movie.error().sentence;
  ASSERT_EQ(movie->tracks.size(), 1U);
  const auto& track = movie->tracks[0];
  EXPECT_EQ(track.sampleCount, GetParam().samples);
  EXPECT_EQ(track.sampleLengths.size(), GetParam().lengths);
  EXPECT_EQ(track.pictureOffsets.size(), GetParam().offsets);
  EXPECT_EQ(track.syncSamples.size(), GetParam().syncs);
  EXPECT_EQ(track.edits.size(), GetParam().edits);
  EXPECT_EQ(track.sampleDescriptions, GetParam().descriptions);
  // No memory for what a count merely claims.
  EXPECT_LE(track.sampleLengths.capacity(), 8U);
  EXPECT_LE(track.pictureOffsets.capacity(), 8U);
  EXPECT_LE(track.syncSamples.capacity(), 8U);
  EXPECT_LE(track.edits.capacity(), 8U);
}

const std::string run = u32(1) + u32(5);
const std::string hugeCounts = fullBox("stts", u32(-1) + run) + fullBox("ctts", u32(-1) + run + run + "abc") +
                               fullBox("stss", u32(-1) + u32(1)) + fullBox("stsz", u32(0) + u32(-1) + u32(9)) +
                               fullBox("stsd", u32(-1) + box("avc1", "") + box("avc1", "") + "tail");
const std::string oneEdit = u32(1) + u32(2) + u32(0x10000);

INSTANTIATE_TEST_SUITE_P(
    Tracks, OddTrack,
    testing::Values(
        TrackCase{"huge counts in tiny boxes",
                  track(hugeCounts, box("edts", fullBox("elst", u32(-1) + oneEdit + u64(0)))), 1, 1, 2, 1, 1, 2},
        TrackCase{"tables without a count", track(fullBox("stts", "") + fullBox("stss", "ab") + box("stsz", "") +
                                                  box("stsd", "abc") + box("ctts", "abcdef"))},
        TrackCase{"longer than the index", boxClaiming(-1U, "trak", track(sampleTables()).substr(8)), 2, 2, 2, 2},
        TrackCase{"sizes to the end of the parent",
                  boxToTheEnd("trak", boxToTheEnd("mdia", boxToTheEnd("minf", boxToTheEnd("stbl", sampleTables())))), 2,
                  2, 2, 2},
        TrackCase{"64 bit size smaller than its head", track(u32(1) + "free" + u64(15) + sampleTables())},
        TrackCase{"the first of boxes that occur twice",
                  track(fullBox("stts", u32(1) + run) + sampleTables(), box("edts", "") + editList()), 2, 1, 2, 2, 0},
        TrackCase{"edits of an unknown version", track("", box("edts", fullBox("elst", u32(1) + oneEdit, 2)))},
        TrackCase{"sizes of 4 bits", track(fullBox("stz2", u32(4) + u32(5) + "abc")), 5},
        TrackCase{"sizes of 16 bits that are cut off", track(fullBox("stz2", u32(16) + u32(5) + "abcde")), 2},
        TrackCase{"sizes of no bits", track(fullBox("stz2", u32(0) + u32(5) + "abc"))}));

TEST(MovieBoxesReader, TakesAnUnknownDurationForNone) {
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
  for (const char* text : {"", "0 840 1ca ", "0 84g 1ca 3F31F6", "0 -840 1ca 3F31F6", "0 100000840 1ca 3F31F6"}) {
    EXPECT_FALSE(isFound(tag(text))) << text;
  }
  EXPECT_FALSE(isFound(box("meta", "")));
}

// The sanitizers judge the next two; without them they still show that reading ends.
TEST(HostileMovieBoxes, EndWhereverTheyAreCutOff) {
  for (const std::uint32_t version : {0U, 1U}) {
    const std::string content = movieContent(version);
    const std::string file = box("moov", content);
    for (std::size_t size = 0; size < content.size(); ++size) {
      const auto cutFile = readBytes(file.substr(0, size));
      ASSERT_FALSE(cutFile) << size;
      ASSERT_EQ(cutFile.error().kind, size < 8 ? ErrorKind::notMedia : ErrorKind::damaged) << size;
      const auto cutIndex = readBytes(box("moov", content.substr(0, size)));
      ASSERT_TRUE(cutIndex || cutIndex.error().kind == ErrorKind::damaged) << size;
    }
  }
}

TEST(HostileMovieBoxes, EndWhicheverByteIsWrong) {
  std::string file = box("moov", movieContent(0));
  for (char& byte : file) {
    const char right = byte;
    for (const int wrong : {0x00, 0x01, 0x07, 0x7f, 0x80, 0xff}) {
      byte = static_cast<char>(wrong);
      const auto movie = readBytes(file);
      ASSERT_TRUE(!movie || movie->tracks.size() <= 1);
    }
    byte = right;
  }
}

TEST(MovieBoxesReader, ReadsAnIndexBehindFourGibibytesAndLeavesTheOffsetAlone) {
  const off_t mediaBytes = off_t{5} << 30;
  const TestFile file(box("moov", plainMovie), mediaBytes);  // sparse
  const std::string head = u32(1) + "mdat" + u64(static_cast<std::uint64_t>(mediaBytes));
  ASSERT_EQ(::pwrite(file.fd(), head.data(), head.size(), 0), static_cast<ssize_t>(head.size()));
  ASSERT_EQ(::lseek(file.fd(), 5, SEEK_SET), 5);
  const auto movie = readMovieBoxes(file.fd());
  ASSERT_TRUE(movie) << movie.error().sentence;
  EXPECT_EQ(movie->tracks.size(), 1U);
  EXPECT_EQ(::lseek(file.fd(), 0, SEEK_CUR), 5);
}

TEST(MovieBoxesReader, RefusesAnIndexBeyondTheLimit) {
  const std::uint64_t size = limits::maxMovieIndexBytes + 1;
  const TestFile file(u32(size) + "moov" + movieHeader());
  ASSERT_EQ(::ftruncate(file.fd(), static_cast<off_t>(size)), 0);
  const auto movie = readMovieBoxes(file.fd());
  ASSERT_FALSE(movie);
  EXPECT_EQ(movie.error().kind, ErrorKind::tooLarge);
}

TEST(MovieBoxesReader, ReportsWhatTheSystemSays) {
  const int directory = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  const TestFile file(box("moov", plainMovie));
  const int writeOnly = ::open(("/proc/self/fd/" + std::to_string(file.fd())).c_str(), O_WRONLY | O_CLOEXEC);
  const std::pair<int, int> cases[] = {{-1, EBADF}, {directory, EISDIR}, {pipe[0], ESPIPE}, {writeOnly, EBADF}};
  for (const auto& [fd, code] : cases) {
    const auto movie = readMovieBoxes(fd);
    ASSERT_FALSE(movie);
    EXPECT_EQ(movie.error().kind, ErrorKind::unreadable);
    EXPECT_EQ(movie.error().posixCode, code);
  }
  for (const int fd : {directory, pipe[0], pipe[1], writeOnly}) ::close(fd);
}

}  // namespace
}  // namespace clipworks::engine
