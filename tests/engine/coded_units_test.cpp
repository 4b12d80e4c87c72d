#include <clipworks/engine/input/CodedUnits.h>

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <clipworks/engine/Handles.h>

namespace clipworks::engine {
namespace {

using namespace std::string_literals;

std::string unit(const std::string& bytes) { return std::string(3, '\0') + static_cast<char>(bytes.size()) + bytes; }
std::string avc(int type, int referenceIdc) {
  return unit(std::string(1, static_cast<char>(referenceIdc << 5 | type)) + "xx");
}
std::string hevc(int type, int temporalLayer = 0) {
  return unit({static_cast<char>(type << 1), static_cast<char>(temporalLayer + 1), 'x', 'x'});
}
std::string hevcParameters(int highestLayer) { return std::string{66, 1, static_cast<char>(highestLayer << 1)} + "x"; }

const std::string avcRecord = "\1\x64\0\x1f\xff\xe0\0"s;

std::string hevcRecord(int highestLayer) {
  const std::string parameters = hevcParameters(highestLayer);
  return "\1"s + std::string(20, '\0') + "\xff\1"s + "\x21\0\1\0"s + static_cast<char>(parameters.size()) + parameters;
}

struct DisposableCase {
  const char* name;
  AVCodecID codec;
  std::string record;
  std::vector<std::string> samples;
  bool isDisposable;  // the last of them
};
std::ostream& operator<<(std::ostream& out, const DisposableCase& c) { return out << c.name; }

class DisposablePicturesTest : public testing::TestWithParam<DisposableCase> {};

TEST_P(DisposablePicturesTest, TellsWhatNothingRefersTo) {
  const auto& c = GetParam();
  CodecParameters parameters = owned<CodecParameters>(avcodec_parameters_alloc());
  parameters->codec_id = c.codec;
  parameters->extradata = static_cast<std::uint8_t*>(av_mallocz(c.record.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  parameters->extradata_size = static_cast<int>(c.record.size());
  std::copy(c.record.begin(), c.record.end(), parameters->extradata);
  DisposablePictures pictures(*parameters);
  bool last = false;
  for (const std::string& sample : c.samples) {
    Packet packet = makePacket();
    ASSERT_EQ(av_new_packet(packet.get(), static_cast<int>(sample.size())), 0);
    std::copy(sample.begin(), sample.end(), packet->data);
    last = pictures.isDisposable(*packet);
  }
  EXPECT_EQ(last, c.isDisposable);
}

constexpr AVCodecID h264 = AV_CODEC_ID_H264;
constexpr AVCodecID h265 = AV_CODEC_ID_HEVC;

INSTANTIATE_TEST_SUITE_P(
    Samples, DisposablePicturesTest,
    testing::Values(
        DisposableCase{
            "a slice that is no reference, behind a delimiter", h264, avcRecord, {avc(9, 0) + avc(1, 0)}, true},
        DisposableCase{"a slice that is a reference", h264, avcRecord, {avc(1, 2)}, false},
        DisposableCase{"a field pair of which one is a reference", h264, avcRecord, {avc(1, 0) + avc(1, 1)}, false},
        DisposableCase{"parameter sets that later pictures need", h264, avcRecord, {avc(8, 3) + avc(1, 0)}, false},
        DisposableCase{"units that do not fill the sample", h264, avcRecord, {avc(1, 0) + "\0\0\0\x7f\1"s}, false},
        DisposableCase{"start codes instead of lengths", h264, "\0\0\0\1\x67"s, {"\0\0\0\1\1xx"s}, false},
        DisposableCase{"a trailing picture of the only layer", h265, hevcRecord(0), {hevc(0)}, true},
        DisposableCase{"a trailing reference", h265, hevcRecord(0), {hevc(1)}, false},
        DisposableCase{"a picture that a higher layer may refer to", h265, hevcRecord(2), {hevc(0, 1)}, false},
        DisposableCase{"a picture of the highest layer", h265, hevcRecord(2), {hevc(0, 2)}, true},
        DisposableCase{"parameters on the way that add a layer",
                       h265,
                       hevcRecord(0),
                       {unit(hevcParameters(1)) + hevc(19), hevc(0)},
                       false},
        DisposableCase{"a record without parameters", h265, "\1"s + std::string(20, '\0') + "\3\0"s, {hevc(0)}, false},
        DisposableCase{"a record that is cut", h265, hevcRecord(0).substr(0, 27), {hevc(0)}, false},
        DisposableCase{"another codec", AV_CODEC_ID_VP9, "", {"xxxx"}, false}));

TEST(CodedUnits, TellTheBuildOfTheirEncoder) {
  const struct {
    std::string says;
    std::optional<int> build;
  } cases[] = {{"UUIDx264 - core 78 r1", 78},    {"x264 - core 164", 164},
               {"x264 - core 0000", 67},         {"x264 - core 0 ", std::nullopt},
               {"x264 - core ", std::nullopt},   {"x264 - core x", std::nullopt},
               {"x265 - core 12", std::nullopt}, {"", std::nullopt}};
  for (const auto& c : cases) {
    Packet packet = makePacket();
    ASSERT_EQ(av_new_packet(packet.get(), static_cast<int>(c.says.size())), 0);
    std::copy(c.says.begin(), c.says.end(), packet->data);
    EXPECT_EQ(x264BuildIn(*packet), c.build) << c.says;
  }
}

}  // namespace
}  // namespace clipworks::engine
