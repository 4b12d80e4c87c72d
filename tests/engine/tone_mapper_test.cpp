#include <clipworks/engine/pictures/ToneMapper.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/ToneTable.h>
#include <clipworks/engine/pictures/ToneTableRows.h>
#include <tests/support/RunProgram.h>

namespace clipworks::test {
namespace {

using engine::Frame;
using engine::ToneMapper;
using Triple = std::array<double, 3>;

constexpr int strip = 32;  // columns and rows of one colour

struct Kind {
  std::string name;
  AVPixelFormat format;
  AVColorTransferCharacteristic transfer;
  AVColorRange range;
};

std::ostream& operator<<(std::ostream& out, const Kind& kind) { return out << kind.name; }

double toPQ(double light) {
  const double power = std::pow(light / 10000, 0.1593017578125);
  return std::pow((0.8359375 + 18.8515625 * power) / (1 + 18.6875 * power), 78.84375);
}

// BT.2100, table 5: the OETF after the inverse of the OOTF of a display of 1000 cd/m².
Triple toHLG(const Triple& light) {
  const double luminance = (0.2627 * light[0] + 0.6780 * light[1] + 0.0593 * light[2]) / 1000;
  Triple signal{};
  std::transform(light.begin(), light.end(), signal.begin(), [&](double channel) {
    const double scene = luminance <= 0 ? 0 : channel / 1000 / std::pow(luminance, 0.2 / 1.2);
    return scene <= 1.0 / 12 ? std::sqrt(3 * scene) : 0.17883277 * std::log(12 * scene - 0.28466892) + 0.55991073;
  });
  return signal;
}

// From light of BT.2020 (cd/m²) to a signal.
Triple signalOf(const Triple& light, AVColorTransferCharacteristic transfer) {
  if (transfer == AVCOL_TRC_ARIB_STD_B67) return toHLG(light);
  return {toPQ(light[0]), toPQ(light[1]), toPQ(light[2])};
}

std::uint8_t* rowOf(const AVFrame& picture, int plane, int y) {
  return picture.data[plane] + static_cast<std::ptrdiff_t>(y) * picture.linesize[plane];
}

std::vector<Triple> signalsOf(const std::vector<Triple>& lights, AVColorTransferCharacteristic transfer) {
  std::vector<Triple> signals(lights.size());
  std::ranges::transform(lights, signals.begin(), [&](const Triple& light) { return signalOf(light, transfer); });
  return signals;
}

void put(const AVFrame& picture, const AVComponentDescriptor& component, int x, int y, double value) {
  const int sample = std::clamp(static_cast<int>(std::lround(value)), 0, (1 << component.depth) - 1) << component.shift;
  std::uint8_t* to =
      rowOf(picture, component.plane, y) + static_cast<std::ptrdiff_t>(x) * component.step + component.offset;
  to[0] = static_cast<std::uint8_t>(sample & 255);
  if (component.depth > 8) to[1] = static_cast<std::uint8_t>(sample >> 8);
}

// Upright strips of one R'G'B' signal each, BT.2020.
Frame strips(const Kind& kind, const std::vector<Triple>& signals, int cutColumns = 0) {
  Frame picture = std::move(
      *engine::allocateFrame(strip * static_cast<int>(signals.size()) - cutColumns, strip - cutColumns, kind.format));
  picture->color_trc = kind.transfer;
  picture->color_primaries = AVCOL_PRI_BT2020;
  picture->colorspace = AVCOL_SPC_BT2020_NCL;
  picture->color_range = kind.range;
  picture->chroma_location = AVCHROMA_LOC_LEFT;
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(kind.format);
  for (int component = 0; component < 3; ++component) {
    const auto& described = pixels->comp[component];
    const int right = component > 0 ? pixels->log2_chroma_w : 0;
    const int down = component > 0 ? pixels->log2_chroma_h : 0;
    const double largest = (1 << described.depth) - 1;
    const double eighth = 1 << (described.depth - 8);  // of what 8 bits hold
    for (int x = 0; x < AV_CEIL_RSHIFT(picture->width, right); ++x) {
      const Triple& rgb = signals[static_cast<std::size_t>((x << right) / strip)];
      const double luma = 0.2627 * rgb[0] + 0.6780 * rgb[1] + 0.0593 * rgb[2];
      const double difference = component == 1 ? (rgb[2] - luma) / 1.8814 : (rgb[0] - luma) / 1.4746;
      const bool full = kind.range == AVCOL_RANGE_JPEG;
      const double value = component == 0 ? (full ? luma * largest : (16 + 219 * luma) * eighth)
                                          : 128 * eighth + difference * (full ? largest : 224 * eighth);
      for (int y = 0; y < AV_CEIL_RSHIFT(picture->height, down); ++y) put(*picture, described, x, y, value);
    }
  }
  return picture;
}

// The samples of one plane that lie well inside a strip.
std::vector<int> inside(const Frame& picture, int plane, std::size_t index) {
  std::vector<int> samples;
  const int width = plane == 0 ? strip : strip / 2;
  const int from = static_cast<int>(index) * width;
  for (int y = 0; y < width; ++y) {
    for (int x = from + width / 4; x < from + width * 3 / 4; ++x) {
      samples.push_back(rowOf(*picture, plane, y)[x]);
    }
  }
  return samples;
}

double mean(const std::vector<int>& samples) {
  double sum = 0;
  for (const int sample : samples) sum += sample;
  return sum / static_cast<double>(samples.size());
}

// From the means of a strip to light of BT.709; 1 is white.
Triple shownLight(const Frame& picture, std::size_t index) {
  const double luma = (mean(inside(picture, 0, index)) - 16) / 219;
  const double blue = luma + 1.8556 * (mean(inside(picture, 1, index)) - 128) / 224;
  const double red = luma + 1.5748 * (mean(inside(picture, 2, index)) - 128) / 224;
  const double green = (luma - 0.2126 * red - 0.0722 * blue) / 0.7152;
  const auto shown = [](double signal) { return std::pow(std::max(signal, 0.0), 2.4); };
  return {shown(red), shown(green), shown(blue)};
}

Triple times(const std::array<Triple, 3>& matrix, const Triple& v) {
  Triple product{};
  for (std::size_t i = 0; i < 3; ++i) product[i] = matrix[i][0] * v[0] + matrix[i][1] * v[1] + matrix[i][2] * v[2];
  return product;
}

// BT.2087: from light of BT.709 to light of BT.2020.
Triple wide(const Triple& rgb) {
  return times({{{0.6274, 0.3293, 0.0433}, {0.0691, 0.9195, 0.0114}, {0.0164, 0.0880, 0.8956}}}, rgb);
}

// SMPTE EG 432-1: from light of P3 to light of BT.2020, which holds all but a trace of it.
Triple wideFromP3(const Triple& rgb) {
  return times({{{0.7538, 0.1986, 0.0476}, {0.0457, 0.9418, 0.0125}, {0.0000, 0.0176, 0.9836}}}, rgb);
}

Triple narrowXYZ(const Triple& rgb) {
  return times({{{0.4124, 0.3576, 0.1805}, {0.2126, 0.7152, 0.0722}, {0.0193, 0.1192, 0.9505}}}, rgb);
}

Triple wideXYZ(const Triple& rgb) {
  return times({{{0.6370, 0.1446, 0.1689}, {0.2627, 0.6780, 0.0593}, {0.0000, 0.0281, 1.0610}}}, rgb);
}

// Hue in degrees: in Oklab, which takes it as the eye does when colourfulness changes.
double hue(const Triple& xyz) {
  Triple cone = times({{{0.8189330101, 0.3618667424, -0.1288597137},
                        {0.0329845436, 0.9293118715, 0.0361456387},
                        {0.0482003018, 0.2643662691, 0.6338517070}}},
                      xyz);
  for (double& channel : cone) channel = std::cbrt(channel);
  const double a = 1.9779984951 * cone[0] - 2.4285922050 * cone[1] + 0.4505937099 * cone[2];
  const double b = 0.0259040371 * cone[0] + 0.7827717662 * cone[1] - 0.8086757660 * cone[2];
  return std::atan2(b, a) * 180 / std::numbers::pi;
}

double turn(double from, double to) { return std::abs(std::remainder(to - from, 360)); }

Frame mapped(ToneMapper& mapper, const Frame& picture) {
  auto result = mapper.map(picture);
  EXPECT_TRUE(result) << result.error().sentence;
  return result ? std::move(*result) : engine::makeFrame();
}

void say(const Frame& picture, int masteringPeak, unsigned brightestPixel) {
  AVMasteringDisplayMetadata* mastering = av_mastering_display_metadata_create_side_data(picture.get());
  mastering->has_luminance = 1;
  mastering->max_luminance = av_make_q(masteringPeak, 1);
  av_content_light_metadata_create_side_data(picture.get())->MaxCLL = brightestPixel;
}

class EachKind : public testing::TestWithParam<Kind> {};

TEST_P(EachKind, ReferenceWhiteIsNearlyWhiteAndGreysBelowTheKneeKeepTheirLight) {
  ToneMapper mapper;
  const Kind& kind = GetParam();
  const std::vector<Triple> greys{{203, 203, 203}, {26, 26, 26}, {0, 0, 0}};
  const Frame picture = mapped(mapper, strips(kind, signalsOf(greys, kind.transfer)));
  const double white = (mean(inside(picture, 0, 0)) - 16) / 219;
  RecordProperty("white", std::to_string(white));
  EXPECT_GT(white, 0.86);
  EXPECT_LT(white, 0.95);
  EXPECT_NEAR((mean(inside(picture, 0, 1)) - 16) / 219, std::pow(26.0 / 203, 1 / 2.4), 0.005);
  EXPECT_THAT(inside(picture, 0, 2), testing::Each(16));
  for (const int plane : {1, 2}) EXPECT_THAT(inside(picture, plane, 0), testing::Each(128));
}

TEST_P(EachKind, AGreyRampOverTheWholeSignalRises) {
  ToneMapper mapper;
  constexpr int steps = 64;
  std::vector<Triple> signals;
  for (int i = 0; i <= steps; ++i) signals.push_back({i / double{steps}, i / double{steps}, i / double{steps}});
  const Frame picture = mapped(mapper, strips(GetParam(), signals));
  double smallest = 255;
  for (std::size_t i = 1; i < signals.size(); ++i) {
    const auto before = inside(picture, 0, i - 1);
    const auto here = inside(picture, 0, i);
    smallest = std::min(smallest, mean(here) - mean(before));
    EXPECT_GT(mean(here), mean(before) + 0.1) << i;
    const auto fewBefore = inside(picture, 0, i - std::min<std::size_t>(i, 8));
    EXPECT_TRUE(i < 8 || std::ranges::min(here) > std::ranges::max(fewBefore)) << i;
  }
  RecordProperty("smallestStep", std::to_string(smallest));
  EXPECT_LE(std::ranges::max(inside(picture, 0, steps)), 235);
}

TEST_P(EachKind, HuesStay) {
  const Kind& kind = GetParam();
  const auto asItIs = [](const Triple& rgb) { return rgb; };
  double largest = 0;
  for (Triple (*const light)(const Triple&) : {wide, wideFromP3, +asItIs}) {
    // The primaries and secondaries of BT.709, P3 and BT.2020, and skin, from dim to far above white.
    std::vector<Triple> lights;
    for (const double level : {20.0, 60.0, 203.0, 800.0}) {
      for (const Triple& rgb :
           {Triple{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 1, 1}, {1, 0, 1}, {1, 1, 0}, {1, 0.62, 0.48}}) {
        lights.push_back(light({rgb[0] * level, rgb[1] * level, rgb[2] * level}));
      }
    }
    ToneMapper mapper;
    const Frame picture = mapped(mapper, strips(kind, signalsOf(lights, kind.transfer)));
    for (std::size_t i = 0; i < lights.size(); ++i) {
      const double moved = turn(hue(wideXYZ(lights[i])), hue(narrowXYZ(shownLight(picture, i))));
      largest = std::max(largest, moved);
      EXPECT_LT(moved, 4) << "colour " << i << ", " << testing::PrintToString(lights[i]);
    }
  }
  RecordProperty("largestTurn", std::to_string(largest));
}

TEST_P(EachKind, OddSizesAreFilledToTheirEdges) {
  ToneMapper mapper;
  const Triple skin = signalOf(wide({120, 75, 60}), GetParam().transfer);
  const Frame picture = mapped(mapper, strips(GetParam(), {skin, skin}, 3));
  ASSERT_EQ(picture->width, 61);
  ASSERT_EQ(picture->height, 29);
  for (const int plane : {0, 1, 2}) {
    int least = 255;
    int most = 0;
    for (int y = 0; y < (plane == 0 ? 29 : 15); ++y) {
      const auto* row = rowOf(*picture, plane, y);
      least = std::min<int>(least, *std::min_element(row, row + (plane == 0 ? 61 : 31)));
      most = std::max<int>(most, *std::max_element(row, row + (plane == 0 ? 61 : 31)));
    }
    EXPECT_LE(most - least, 1) << "plane " << plane;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, EachKind,
    testing::Values(Kind{"PQ", AV_PIX_FMT_YUV420P10, AVCOL_TRC_SMPTE2084, AVCOL_RANGE_MPEG},
                    Kind{"PQFullRange12", AV_PIX_FMT_YUV420P12, AVCOL_TRC_SMPTE2084, AVCOL_RANGE_JPEG},
                    Kind{"PQInterleaved", AV_PIX_FMT_P010, AVCOL_TRC_SMPTE2084, AVCOL_RANGE_MPEG},
                    Kind{"PQFull444", AV_PIX_FMT_YUV444P12, AVCOL_TRC_SMPTE2084, AVCOL_RANGE_JPEG},
                    Kind{"HLG", AV_PIX_FMT_YUV420P10, AVCOL_TRC_ARIB_STD_B67, AVCOL_RANGE_MPEG},
                    Kind{"HLGFullRange", AV_PIX_FMT_YUV420P10, AVCOL_TRC_ARIB_STD_B67, AVCOL_RANGE_JPEG},
                    Kind{"HLG422", AV_PIX_FMT_YUV422P10, AVCOL_TRC_ARIB_STD_B67, AVCOL_RANGE_MPEG},
                    Kind{"HLG8", AV_PIX_FMT_YUV420P, AVCOL_TRC_ARIB_STD_B67, AVCOL_RANGE_MPEG}),
    [](const auto& kind) { return kind.param.name; });

const Kind pq{"PQ", AV_PIX_FMT_YUV420P10, AVCOL_TRC_SMPTE2084, AVCOL_RANGE_MPEG};

TEST(ToneMapper, TakesTheBrightnessOfTheProgrammeFromItsMetadataAndKeepsIt) {
  const Frame plain = strips(pq, {signalOf({203, 203, 203}, pq.transfer)});
  const auto white = [](const Frame& picture) { return mean(inside(picture, 0, 0)); };
  ToneMapper mapper;
  const double usual = white(mapped(mapper, plain));
  Frame dim = engine::shareFrame(plain);
  say(dim, 4000, 400);
  const Frame result = mapped(mapper, dim);
  EXPECT_GT(white(result), usual + 5);
  EXPECT_LE(white(result), 235);
  EXPECT_EQ(white(mapped(mapper, plain)), white(result)) << "the next picture says nothing of its own";
  EXPECT_EQ(av_frame_get_side_data(result.get(), AV_FRAME_DATA_MASTERING_DISPLAY_METADATA), nullptr);
  EXPECT_EQ(av_frame_get_side_data(result.get(), AV_FRAME_DATA_CONTENT_LIGHT_LEVEL), nullptr);
  EXPECT_EQ(result->color_trc, AVCOL_TRC_BT709);
  EXPECT_EQ(result->color_range, AVCOL_RANGE_MPEG);
}

// Steps of an eightieth of the signal, as a ramp of as many has.
TEST(ToneMapper, KeepsTheStepsOfBrightProgrammesApart) {
  for (const int peak : {1500, 2000, 4000}) {
    std::vector<Triple> signals{signalOf({203, 203, 203}, pq.transfer)};
    for (double signal = signals[0][0]; signal < toPQ(peak); signal += 1.0 / 80)
      signals.push_back({signal, signal, signal});
    const std::size_t last = signals.size();
    for (const double beyond : {peak * 1.5, 10000.0})
      signals.push_back(signalOf({beyond, beyond, beyond}, pq.transfer));
    const Frame picture = strips(pq, signals);
    say(picture, peak, 0);
    ToneMapper mapper;
    const Frame result = mapped(mapper, picture);
    EXPECT_GT(mean(inside(result, 0, 0)), 16 + 219 * 0.86) << peak;
    for (std::size_t i = 2; i < signals.size(); ++i) {
      const double step = mean(inside(result, 0, i)) - mean(inside(result, 0, i - 1));
      EXPECT_GT(step, i < last ? 0.9 : 0.2) << peak << " " << i;
    }
    EXPECT_LE(mean(inside(result, 0, signals.size() - 1)), 235) << peak;
  }
}

TEST(ToneMapper, RefusesWhatItCannotRead) {
  ToneMapper mapper;
  const auto kindOf = [&](const Frame& picture) { return mapper.map(picture).error().kind; };
  const Frame standard = strips({"", AV_PIX_FMT_YUV420P, AVCOL_TRC_BT709, AVCOL_RANGE_MPEG}, {{1, 1, 1}});
  EXPECT_EQ(kindOf(standard), engine::ErrorKind::unsupported);
  const Frame rgb = std::move(*engine::allocateFrame(16, 16, AV_PIX_FMT_GBRP10));
  rgb->color_trc = AVCOL_TRC_SMPTE2084;
  EXPECT_EQ(kindOf(rgb), engine::ErrorKind::unsupported);
}

// Below the knee nothing changes but the coding; near the edge of BT.709 the table is least exact.
const std::vector<Triple> dimColours{{60, 60, 60}, {60, 12, 8}, {9, 50, 12}, {10, 14, 60}, {70, 44, 34}, {3, 2, 1}};
constexpr double tolerance = 2.5;  // 8-bit steps

Frame dimPicture(AVColorTransferCharacteristic transfer) {
  std::vector<Triple> lights(dimColours.size());
  std::ranges::transform(dimColours, lights.begin(), wide);
  return strips({"", AV_PIX_FMT_YUV420P10, transfer, AVCOL_RANGE_MPEG}, signalsOf(lights, transfer));
}

TEST(ToneMapper, CodesDimColoursAsBT709DoesForADisplayOfBT1886) {
  for (const auto transfer : {AVCOL_TRC_SMPTE2084, AVCOL_TRC_ARIB_STD_B67}) {
    ToneMapper mapper;
    const Frame picture = mapped(mapper, dimPicture(transfer));
    for (std::size_t i = 0; i < dimColours.size(); ++i) {
      Triple rgb = dimColours[i];
      for (double& channel : rgb) channel = std::pow(channel / 203, 1 / 2.4);
      const double luma = 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
      EXPECT_NEAR(mean(inside(picture, 0, i)), 16 + 219 * luma, tolerance) << transfer << " " << i;
      EXPECT_NEAR(mean(inside(picture, 1, i)), 128 + 224 * (rgb[2] - luma) / 1.8556, tolerance) << transfer << " " << i;
      EXPECT_NEAR(mean(inside(picture, 2, i)), 128 + 224 * (rgb[0] - luma) / 1.5748, tolerance) << transfer << " " << i;
    }
  }
}

// Not for HLG: zscale leaves the colours of its OOTF more saturated than BT.2100 has them.
TEST(ToneMapper, AgreesWithAnotherConverterOnDimColours) {
  const Frame source = dimPicture(AVCOL_TRC_SMPTE2084);
  std::string bytes(static_cast<std::size_t>(av_image_get_buffer_size(AV_PIX_FMT_YUV420P10, source->width, strip, 1)),
                    0);
  av_image_copy_to_buffer(reinterpret_cast<std::uint8_t*>(bytes.data()), static_cast<int>(bytes.size()), source->data,
                          source->linesize, AV_PIX_FMT_YUV420P10, source->width, strip, 1);
  const auto judged = runProgram(
      {"ffmpeg", "-v", "error", "-f", "rawvideo", "-pix_fmt", "yuv420p10le", "-s",
       std::to_string(source->width) + "x" + std::to_string(strip), "-i", "-", "-vf",
       "setparams=range=tv:color_primaries=bt2020:colorspace=bt2020nc:color_trc=smpte2084,zscale=t=linear:npl=203,"
       "format=gbrpf32le,zscale=p=bt709:t=bt709:m=bt709:r=tv,format=yuv420p",
       "-f", "rawvideo", "-"},
      {.nextInput = [&] { return std::exchange(bytes, {}); }});
  if (judged.standardError.find("No such filter") != std::string::npos) GTEST_SKIP() << "ffmpeg has no zscale";
  ASSERT_TRUE(judged.succeeded()) << judged;
  const Frame other = std::move(*engine::allocateFrame(source->width, strip, AV_PIX_FMT_YUV420P));
  std::size_t at = 0;
  for (const int plane : {0, 1, 2}) {
    const std::size_t width = static_cast<std::size_t>(plane == 0 ? source->width : source->width / 2);
    for (int y = 0; y < (plane == 0 ? strip : strip / 2); ++y, at += width) {
      judged.standardOutput.copy(reinterpret_cast<char*>(rowOf(*other, plane, y)), width, at);
    }
  }
  ASSERT_EQ(at, judged.standardOutput.size());
  ToneMapper mapper;
  const Frame ours = mapped(mapper, source);
  for (std::size_t i = 0; i < dimColours.size(); ++i) {
    for (const int plane : {0, 1, 2}) {
      EXPECT_NEAR(mean(inside(ours, plane, i)), mean(inside(other, plane, i)), tolerance) << i << " " << plane;
    }
  }
}

TEST(ToneTableRows, AreReadAlikeOneByOneAndManyAtOnce) {
  const auto table = engine::ToneTable::make({});
  ASSERT_TRUE(table);
  std::mt19937 random(1);
  std::array<std::vector<std::uint16_t>, 3> samples;
  for (auto& plane : samples) {
    plane = {0, 65535};
    while (plane.size() < 400) plane.push_back(static_cast<std::uint16_t>(random()));
  }
  engine::DitherRow dither{};
  dither.fill(77);
  for (const auto& values : table->values) {
    std::vector<std::uint8_t> many(400);
    std::vector<std::uint8_t> single(400);
    engine::readToneRow(values.data(), {samples[0].data(), samples[1].data(), samples[2].data(), 400}, dither,
                        many.data());
    for (std::size_t i = 0; i < 400; ++i) {
      engine::readToneRow(values.data(), {&samples[0][i], &samples[1][i], &samples[2][i], 1}, dither, &single[i]);
    }
    EXPECT_EQ(many, single);
  }
}

}  // namespace
}  // namespace clipworks::test
