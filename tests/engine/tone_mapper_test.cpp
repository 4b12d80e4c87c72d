#include <clipworks/engine/pictures/ToneMapper.h>

#include <clipworks/engine/pictures/ToneTable.h>
#include <clipworks/engine/pictures/ToneTableRows.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

using Triple = std::array<double, 3>;
using Triples = std::vector<Triple>;

constexpr int strip = 32;  // columns and rows of one colour

struct Kind {
  const char* name;
  AVPixelFormat format;
  AVColorTransferCharacteristic transfer;
  AVColorRange range = AVCOL_RANGE_MPEG;
};

const Kind kinds[] = {{"PQ", AV_PIX_FMT_YUV420P10, AVCOL_TRC_SMPTE2084},
                      {"PQ in full range", AV_PIX_FMT_YUV420P12, AVCOL_TRC_SMPTE2084, AVCOL_RANGE_JPEG},
                      {"PQ interleaved", AV_PIX_FMT_P010, AVCOL_TRC_SMPTE2084},
                      {"PQ in full range 4:4:4", AV_PIX_FMT_YUV444P12, AVCOL_TRC_SMPTE2084, AVCOL_RANGE_JPEG},
                      {"HLG", AV_PIX_FMT_YUV420P10, AVCOL_TRC_ARIB_STD_B67},
                      {"HLG in full range", AV_PIX_FMT_YUV420P10, AVCOL_TRC_ARIB_STD_B67, AVCOL_RANGE_JPEG},
                      {"HLG 4:2:2", AV_PIX_FMT_YUV422P10, AVCOL_TRC_ARIB_STD_B67},
                      {"HLG of 8 bits", AV_PIX_FMT_YUV420P, AVCOL_TRC_ARIB_STD_B67}};
const Kind& pq = kinds[0];

double toPQ(double light) {
  const double power = std::pow(light / 10000, 0.1593017578125);
  return std::pow((0.8359375 + 18.8515625 * power) / (1 + 18.6875 * power), 78.84375);
}

double toHLG(double scene) {
  return scene <= 1.0 / 12 ? std::sqrt(3 * scene) : 0.17883277 * std::log(12 * scene - 0.28466892) + 0.55991073;
}

// From light of BT.2020 (cd/m²) to a signal; of HLG by BT.2100, table 5: the OETF after the inverse of the OOTF of a
// display of 1000 cd/m².
Triple signalOf(const Triple& light, const Kind& kind) {
  if (kind.transfer == AVCOL_TRC_SMPTE2084) return {toPQ(light[0]), toPQ(light[1]), toPQ(light[2])};
  const double luminance = (0.2627 * light[0] + 0.6780 * light[1] + 0.0593 * light[2]) / 1000;
  const double scale = luminance <= 0 ? 0 : 1 / (1000 * std::pow(luminance, 0.2 / 1.2));
  return {toHLG(light[0] * scale), toHLG(light[1] * scale), toHLG(light[2] * scale)};
}

Triple grey(double level) { return {level, level, level}; }

// Upright strips of one R'G'B' signal each, BT.2020.
Frame strips(const Kind& kind, const Triples& signals, int cut = 0) {
  Frame picture = emptyPicture(strip * static_cast<int>(signals.size()) - cut, strip - cut, kind.format);
  picture->color_trc = kind.transfer;
  picture->color_primaries = AVCOL_PRI_BT2020;
  picture->colorspace = AVCOL_SPC_BT2020_NCL;
  picture->color_range = kind.range;
  picture->chroma_location = AVCHROMA_LOC_LEFT;
  const bool full = kind.range == AVCOL_RANGE_JPEG;
  for (int component = 0; component < 3; ++component) {
    const int depth = pixelsOf(*picture).comp[component].depth;
    const double largest = (1 << depth) - 1;
    const double eighth = 1 << (depth - 8);  // of what 8 bits hold
    const int right = component > 0 ? pixelsOf(*picture).log2_chroma_w : 0;
    std::vector<std::uint16_t> row;
    for (int x = 0; x < columnsOf(*picture, component); ++x) {
      const Triple& rgb = signals[static_cast<std::size_t>((x << right) / strip)];
      const double luma = 0.2627 * rgb[0] + 0.6780 * rgb[1] + 0.0593 * rgb[2];
      const double difference = component == 1 ? (rgb[2] - luma) / 1.8814 : (rgb[0] - luma) / 1.4746;
      const double value = component == 0 ? (full ? luma * largest : (16 + 219 * luma) * eighth)
                                          : 128 * eighth + difference * (full ? largest : 224 * eighth);
      row.push_back(static_cast<std::uint16_t>(std::lround(std::clamp(value, 0.0, largest))));
    }
    for (int y = 0; y < rowsOf(*picture, component); ++y)
      av_write_image_line2(row.data(), picture->data, picture->linesize, &pixelsOf(*picture), 0, y, component,
                           static_cast<int>(row.size()), 2);
  }
  return picture;
}

Frame stripsOfLight(const Kind& kind, Triples lights, int cut = 0) {
  for (Triple& light : lights) light = signalOf(light, kind);
  return strips(kind, lights, cut);
}

// The samples of one plane that lie well inside a strip.
std::vector<int> inside(const Frame& picture, int plane, std::size_t index) {
  std::vector<int> samples;
  const int width = plane == 0 ? strip : strip / 2;
  const int from = static_cast<int>(index) * width;
  for (int i = 0; i < width * width / 2; ++i)
    samples.push_back(sampleAt(*picture, plane, from + width / 4 + i % (width / 2), i / (width / 2)));
  return samples;
}

double mean(const Frame& picture, int plane, std::size_t index) {
  const auto samples = inside(picture, plane, index);
  return std::accumulate(samples.begin(), samples.end(), 0.0) / static_cast<double>(samples.size());
}

Triple times(const std::array<Triple, 3>& matrix, const Triple& v) {
  Triple product{};
  for (std::size_t i = 0; i < 3; ++i) product[i] = matrix[i][0] * v[0] + matrix[i][1] * v[1] + matrix[i][2] * v[2];
  return product;
}

Triple asItIs(const Triple& rgb) { return rgb; }
// BT.2087: from light of BT.709 to light of BT.2020.
Triple wide(const Triple& rgb) {
  return times({{{0.6274, 0.3293, 0.0433}, {0.0691, 0.9195, 0.0114}, {0.0164, 0.0880, 0.8956}}}, rgb);
}

// From the means of a strip to light of BT.2020; 1 is white.
Triple shownLight(const Frame& picture, std::size_t index) {
  const double luma = (mean(picture, 0, index) - 16) / 219;
  const double blue = luma + 1.8556 * (mean(picture, 1, index) - 128) / 224;
  const double red = luma + 1.5748 * (mean(picture, 2, index) - 128) / 224;
  const double green = (luma - 0.2126 * red - 0.0722 * blue) / 0.7152;
  const auto shown = [](double signal) { return std::pow(std::max(signal, 0.0), 2.4); };
  return wide({shown(red), shown(green), shown(blue)});
}

// Hue of light of BT.2020, in degrees: in Oklab, which takes it as the eye does when colourfulness changes.
double hue(const Triple& rgb) {
  const Triple xyz = times({{{0.6370, 0.1446, 0.1689}, {0.2627, 0.6780, 0.0593}, {0.0000, 0.0281, 1.0610}}}, rgb);
  Triple cone = times({{{0.8189330101, 0.3618667424, -0.1288597137},
                        {0.0329845436, 0.9293118715, 0.0361456387},
                        {0.0482003018, 0.2643662691, 0.6338517070}}},
                      xyz);
  for (double& channel : cone) channel = std::cbrt(channel);
  const double a = 1.9779984951 * cone[0] - 2.4285922050 * cone[1] + 0.4505937099 * cone[2];
  const double b = 0.0259040371 * cone[0] + 0.7827717662 * cone[1] - 0.8086757660 * cone[2];
  return std::atan2(b, a) * 180 / std::numbers::pi;
}

Frame mapped(const Frame& picture) { return must(ToneMapper().map(picture)); }

void say(const Frame& picture, int masteringPeak, unsigned brightestPixel) {
  AVMasteringDisplayMetadata* mastering = av_mastering_display_metadata_create_side_data(picture.get());
  mastering->has_luminance = 1;
  mastering->max_luminance = av_make_q(masteringPeak, 1);
  av_content_light_metadata_create_side_data(picture.get())->MaxCLL = brightestPixel;
}

TEST(ToneMapper, MapsReferenceWhiteToNearlyWhiteAndKeepsTheLightOfGreysBelowTheKnee) {
  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.name);
    const Frame picture = mapped(stripsOfLight(kind, {grey(203), grey(26), grey(0)}));
    EXPECT_NEAR((mean(picture, 0, 0) - 16) / 219, 0.905, 0.045);
    EXPECT_NEAR((mean(picture, 0, 1) - 16) / 219, std::pow(26.0 / 203, 1 / 2.4), 0.005);
    EXPECT_THAT(inside(picture, 0, 2), testing::Each(16));
    for (const int plane : {1, 2}) EXPECT_THAT(inside(picture, plane, 0), testing::Each(128));
  }
}

TEST(ToneMapper, RaisesAGreyRampOverTheWholeSignal) {
  constexpr std::size_t steps = 64;
  Triples signals;
  for (std::size_t i = 0; i <= steps; ++i) signals.push_back(grey(static_cast<double>(i) / steps));
  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.name);
    const Frame picture = mapped(strips(kind, signals));
    for (std::size_t i = 1; i <= steps; ++i) {
      EXPECT_GT(mean(picture, 0, i), mean(picture, 0, i - 1) + 0.1) << i;
      if (i < 8) continue;
      EXPECT_GT(std::ranges::min(inside(picture, 0, i)), std::ranges::max(inside(picture, 0, i - 8))) << i;
    }
    EXPECT_LE(std::ranges::max(inside(picture, 0, steps)), 235);
  }
}

// The primaries and secondaries of BT.709 and of BT.2020, and skin, from dim to far above white.
TEST(ToneMapper, KeepsHues) {
  Triples lights;
  for (const auto light : {wide, asItIs}) {
    for (const double level : {20.0, 60.0, 203.0, 800.0}) {
      for (const Triple& rgb :
           {Triple{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 1, 1}, {1, 0, 1}, {1, 1, 0}, {1, 0.62, 0.48}}) {
        lights.push_back(light({rgb[0] * level, rgb[1] * level, rgb[2] * level}));
      }
    }
  }
  for (const Kind& kind : kinds) {
    const Frame picture = mapped(stripsOfLight(kind, lights));
    for (std::size_t i = 0; i < lights.size(); ++i) {
      const double moved = std::remainder(hue(shownLight(picture, i)) - hue(lights[i]), 360);
      EXPECT_NEAR(moved, 0, 4) << kind.name << ", " << testing::PrintToString(lights[i]);
    }
  }
}

TEST(ToneMapper, FillsOddSizesToTheirEdges) {
  const Triple skin = wide({120, 75, 60});
  for (const Kind& kind : kinds) {
    const Frame picture = mapped(stripsOfLight(kind, {skin, skin}, 3));
    ASSERT_EQ(std::pair(picture->width, picture->height), std::pair(61, 29));
    forEachSample(*picture, [&](int plane, int x, int y) {
      ASSERT_NEAR(sampleAt(*picture, plane, x, y), sampleAt(*picture, plane, 9, 9), 1) << kind.name << plane;
    });
  }
}

TEST(ToneMapper, TakesTheBrightnessOfTheProgrammeFromItsMetadataAndKeepsIt) {
  const Frame plain = stripsOfLight(pq, {grey(203)});
  ToneMapper mapper;
  const double usual = mean(must(mapper.map(plain)), 0, 0);
  Frame dim = shareFrame(plain);
  say(dim, 4000, 400);
  const Frame result = must(mapper.map(dim));
  EXPECT_GT(mean(result, 0, 0), usual + 5);
  EXPECT_LE(mean(result, 0, 0), 235);
  EXPECT_EQ(mean(must(mapper.map(plain)), 0, 0), mean(result, 0, 0)) << "the next picture says nothing of its own";
  EXPECT_EQ(result->nb_side_data, 0);
  EXPECT_EQ(result->color_trc, AVCOL_TRC_BT709);
  EXPECT_EQ(result->color_range, AVCOL_RANGE_MPEG);
}

// Steps of an eightieth of the signal, as a ramp of as many has.
TEST(ToneMapper, KeepsTheStepsOfBrightProgrammesApart) {
  for (const int peak : {1500, 2000, 4000}) {
    Triples signals{grey(toPQ(203))};
    for (double signal = signals[0][0]; signal < toPQ(peak); signal += 1.0 / 80) signals.push_back(grey(signal));
    const std::size_t last = signals.size();
    for (const double beyond : {peak * 1.5, 10000.0}) signals.push_back(grey(toPQ(beyond)));
    const Frame picture = strips(pq, signals);
    say(picture, peak, 0);
    const Frame result = mapped(picture);
    EXPECT_GT(mean(result, 0, 0), 16 + 219 * 0.86) << peak;
    for (std::size_t i = 2; i < signals.size(); ++i)
      EXPECT_GT(mean(result, 0, i) - mean(result, 0, i - 1), i < last ? 0.9 : 0.2) << peak << " " << i;
    EXPECT_LE(mean(result, 0, signals.size() - 1), 235) << peak;
  }
}

TEST(ToneMapper, RefusesWhatItCannotRead) {
  for (const Kind& kind :
       {Kind{"not bright", AV_PIX_FMT_YUV420P, AVCOL_TRC_BT709}, {"no YUV", AV_PIX_FMT_GBRP10, AVCOL_TRC_SMPTE2084}}) {
    EXPECT_EQ(ToneMapper().map(strips(kind, {grey(1)})).error().kind, ErrorKind::unsupported) << kind.name;
  }
}

// Below the knee nothing changes but the coding; near the edge of BT.709 the table is least exact.
TEST(ToneMapper, CodesDimColoursAsBT709DoesForADisplayOfBT1886) {
  const Triples colours{{60, 60, 60}, {60, 12, 8}, {9, 50, 12}, {10, 14, 60}, {70, 44, 34}, {3, 2, 1}};
  Triples lights(colours.size());
  std::ranges::transform(colours, lights.begin(), wide);
  for (const Kind& kind : kinds) {
    const Frame picture = mapped(stripsOfLight(kind, lights));
    for (std::size_t i = 0; i < colours.size(); ++i) {
      const auto code = [](double light) { return std::pow(light / 203, 1 / 2.4); };
      const Triple rgb{code(colours[i][0]), code(colours[i][1]), code(colours[i][2])};
      const double luma = 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
      constexpr double tolerance = 2.5;  // 8-bit steps
      EXPECT_NEAR(mean(picture, 0, i), 16 + 219 * luma, tolerance) << kind.name << " " << i;
      EXPECT_NEAR(mean(picture, 1, i), 128 + 224 * (rgb[2] - luma) / 1.8556, tolerance) << kind.name << " " << i;
      EXPECT_NEAR(mean(picture, 2, i), 128 + 224 * (rgb[0] - luma) / 1.5748, tolerance) << kind.name << " " << i;
    }
  }
}

TEST(ToneTableRows, AreReadAlikeOneByOneAndManyAtOnce) {
  const auto table = must(ToneTable::make({}));
  std::mt19937 random(1);
  std::vector<std::uint16_t> samples(1200);
  for (auto& sample : samples) sample = static_cast<std::uint16_t>(random());
  for (const std::size_t plane : {0U, 400U, 800U}) std::tie(samples[plane], samples[plane + 1]) = std::pair(0, 65535);
  DitherRow dither{};
  dither.fill(77);
  for (const auto& values : table.values) {
    std::vector<std::uint8_t> many(400);
    std::vector<std::uint8_t> single(400);
    readToneRow(values.data(), {&samples[0], &samples[400], &samples[800], 400}, dither, many.data());
    for (std::size_t i = 0; i < 400; ++i)
      readToneRow(values.data(), {&samples[i], &samples[400 + i], &samples[800 + i], 1}, dither, &single[i]);
    EXPECT_EQ(many, single);
  }
}

}  // namespace
}  // namespace clipworks::engine
