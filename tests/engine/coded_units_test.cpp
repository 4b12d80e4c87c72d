#include <clipworks/engine/input/CodedUnits.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

using namespace std::string_literals;

std::string unit(const std::string& bytes) { return std::string(3, '\0') + static_cast<char>(bytes.size()) + bytes; }
std::string avc(int type, int referenceIdc) { return unit({static_cast<char>(referenceIdc << 5 | type), 'x', 'x'}); }
std::string hevc(int type, int temporalLayer = 0) {
  return unit({static_cast<char>(type << 1), static_cast<char>(temporalLayer + 1), 'x', 'x'});
}
std::string hevcParameters(int highestLayer) { return {66, 1, static_cast<char>(highestLayer << 1), 'x'}; }

const std::string avcRecord = "\1\x64\0\x1f\xff\xe0\0"s;
const std::string hevcStart = "\1"s + std::string(20, '\0');
std::string hevcRecord(int highestLayer) {
  return hevcStart + "\xff\1"s + "\x21\0\1\0"s + "\4" + hevcParameters(highestLayer);
}

TEST(DisposablePictures, TellWhatNothingRefersTo) {
  constexpr AVCodecID h264 = AV_CODEC_ID_H264;
  constexpr AVCodecID h265 = AV_CODEC_ID_HEVC;
  // What the last of the samples is.
  const std::tuple<const char*, AVCodecID, std::string, std::vector<std::string>, bool> cases[] = {
      {"a slice that is no reference, behind a delimiter", h264, avcRecord, {avc(9, 0) + avc(1, 0)}, true},
      {"a slice that is a reference", h264, avcRecord, {avc(1, 2)}, false},
      {"a field pair of which one is a reference", h264, avcRecord, {avc(1, 0) + avc(1, 1)}, false},
      {"parameter sets that later pictures need", h264, avcRecord, {avc(8, 3) + avc(1, 0)}, false},
      {"units that do not fill the sample", h264, avcRecord, {avc(1, 0) + "\0\0\0\x7f\1"s}, false},
      {"start codes instead of lengths", h264, "\0\0\0\1\x67"s, {"\0\0\0\1\1xx"s}, false},
      {"a trailing picture of the only layer", h265, hevcRecord(0), {hevc(0)}, true},
      {"a trailing reference", h265, hevcRecord(0), {hevc(1)}, false},
      {"a picture that a higher layer may refer to", h265, hevcRecord(2), {hevc(0, 1)}, false},
      {"a picture of the highest layer", h265, hevcRecord(2), {hevc(0, 2)}, true},
      {"a layer added on the way", h265, hevcRecord(0), {unit(hevcParameters(1)) + hevc(19), hevc(0)}, false},
      {"a record without parameters", h265, hevcStart + "\3\0"s, {hevc(0)}, false},
      {"a record that is cut", h265, hevcRecord(0).substr(0, 27), {hevc(0)}, false},
      {"another codec", AV_CODEC_ID_VP9, "", {"xxxx"}, false}};
  for (const auto& [name, codec, record, samples, isDisposable] : cases) {
    const auto parameters = owned<CodecParameters>(avcodec_parameters_alloc());
    parameters->codec_id = codec;
    parameters->extradata = static_cast<std::uint8_t*>(av_mallocz(record.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    parameters->extradata_size = static_cast<int>(record.size());
    std::ranges::copy(record, parameters->extradata);
    DisposablePictures pictures(*parameters);
    bool last = false;
    for (const std::string& sample : samples) last = pictures.isDisposable(*packetOf(sample));
    EXPECT_EQ(last, isDisposable) << name;
  }
}

TEST(CodedUnits, TellTheBuildOfTheirEncoder) {
  const std::pair<std::string, std::optional<int>> cases[] = {
      {"UUIDx264 - core 78 r1", 78}, {"x264 - core 164", 164}, {"x264 - core 0000", 67}, {"x264 - core 0 ", {}},
      {"x264 - core ", {}},          {"x264 - core x", {}},    {"x265 - core 12", {}},   {"", {}}};
  for (const auto& [says, build] : cases) EXPECT_EQ(x264BuildIn(*packetOf(says)), build) << says;
}

}  // namespace
}  // namespace clipworks::engine
