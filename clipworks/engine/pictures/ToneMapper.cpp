#include <clipworks/engine/pictures/ToneMapper.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/pictures/PictureConverter.h>
#include <clipworks/engine/pictures/ToneTable.h>
#include <clipworks/engine/pictures/ToneTableRows.h>

namespace clipworks::engine {
namespace {

// Ordered dither after Bayer: the bits of x ^ y and of y, the lowest first.
constexpr std::array<DitherRow, 8> ditherRows() {
  std::array<DitherRow, 8> rows{};
  for (unsigned y = 0; y < 8; ++y) {
    for (unsigned x = 0; x < 8; ++x) {
      unsigned rank = 0;
      for (unsigned bit = 0; bit < 3; ++bit) {
        rank = rank << 2 | (((x ^ y) >> bit) & 1) << 1 | ((y >> bit) & 1);
      }
      rows[y][x] = static_cast<std::uint8_t>(2 * rank + 1);  // of the table's 128 to an 8-bit step
    }
  }
  return rows;
}

// One component of one row, its samples moved up to 16 bits.
void readSamples(const AVFrame& picture, const AVComponentDescriptor& component, int row,
                 std::vector<std::uint16_t>& to) {
  const std::uint8_t* from = picture.data[component.plane] +
                             static_cast<std::ptrdiff_t>(row) * picture.linesize[component.plane] + component.offset;
  const int up = 16 - component.depth;
  if (component.depth + component.shift <= 8) {
    for (std::size_t x = 0; x < to.size(); ++x) {
      const int sample = from[x * static_cast<std::size_t>(component.step)] >> component.shift;
      to[x] = static_cast<std::uint16_t>(sample << up);
    }
    return;
  }
  for (std::size_t x = 0; x < to.size(); ++x) {
    std::uint16_t sample = 0;
    std::memcpy(&sample, from + x * static_cast<std::size_t>(component.step), sizeof sample);
    to[x] = static_cast<std::uint16_t>(sample >> component.shift << up);
  }
}

std::uint16_t mixed(int first, int second, int firstQuarters) {
  return static_cast<std::uint16_t>((first * firstQuarters + second * (4 - firstQuarters) + 2) >> 2);
}

/// Maps one picture of 4:2:0, two rows of luma and one of chroma at a time.
class PictureMapping {
 public:
  PictureMapping(const AVFrame& from, AVFrame& to, const ToneTable& table)
      : from_(from), to_(to), table_(table), pixels_(*av_pix_fmt_desc_get(static_cast<AVPixelFormat>(from.format))) {
    // H.273, 8.7. The two places at the bottom are not in use anywhere; they are taken as those in the middle.
    const bool top = from.chroma_location == AVCHROMA_LOC_TOPLEFT || from.chroma_location == AVCHROMA_LOC_TOP;
    const bool middle = from.chroma_location == AVCHROMA_LOC_CENTER || from.chroma_location == AVCHROMA_LOC_TOP ||
                        from.chroma_location == AVCHROMA_LOC_BOTTOM;
    onColumn_ = !middle;
    onRow_ = top;
    const auto width = static_cast<std::size_t>(from.width);
    for (auto* row : {&luma_[0], &luma_[1], &atLuma_[0], &atLuma_[1]}) row->resize(width);
    for (auto& rows : chroma_) rows.fill(std::vector<std::uint16_t>((width + 1) / 2));
    between_.resize((width + 1) / 2);
    lumaAtChroma_.resize((width + 1) / 2);
  }

  void run() {
    const int pairs = (from_.height + 1) / 2;
    for (int pair = 0; pair < pairs; ++pair) {
      read(pair, pairs);
      mapLuma(2 * pair, 0);
      if (2 * pair + 1 < from_.height) mapLuma(2 * pair + 1, 1);
      mapChroma(pair);
    }
  }

 private:
  void read(int pair, int pairs) {
    readSamples(from_, pixels_.comp[0], 2 * pair, luma_[0]);
    readSamples(from_, pixels_.comp[0], std::min(2 * pair + 1, from_.height - 1), luma_[1]);
    for (std::size_t i = 0; i < chroma_.size(); ++i) {
      auto& rows = chroma_[i];
      const AVComponentDescriptor& component = pixels_.comp[i + 1];
      if (pair == 0) {
        readSamples(from_, component, 0, rows[1]);
        readSamples(from_, component, 0, rows[2]);
      }
      std::rotate(rows.begin(), rows.begin() + 1, rows.end());  // the row above, this one, the one below
      if (pair == 0) rows[0] = rows[1];
      readSamples(from_, component, std::min(pair + 1, pairs - 1), rows[2]);
    }
  }

  // Chroma at each sample of an even (0) or odd (1) row of luma, linear between its own places.
  void raiseChroma(const std::array<std::vector<std::uint16_t>, 3>& rows, std::size_t parity,
                   std::vector<std::uint16_t>& to) {
    const int nearRow = onRow_ ? (parity == 0 ? 4 : 2) : 3;
    const auto& far = rows[parity == 0 ? 0 : 2];
    const std::size_t last = between_.size() - 1;
    for (std::size_t x = 0; x <= last; ++x) between_[x] = mixed(rows[1][x], far[x], nearRow);
    const int nearEven = onColumn_ ? 4 : 3;
    const int nearOdd = onColumn_ ? 2 : 3;
    to[0] = between_[0];
    for (std::size_t x = 1; x <= last; ++x) {
      to[2 * x - 1] = mixed(between_[x - 1], between_[x], nearOdd);
      to[2 * x] = mixed(between_[x], between_[x - 1], nearEven);
    }
    if (to.size() % 2 == 0) to.back() = between_[last];
  }

  void mapLuma(int row, std::size_t parity) {
    for (std::size_t i = 0; i < chroma_.size(); ++i) raiseChroma(chroma_[i], parity, atLuma_[i]);
    const ToneRow colours{luma_[parity].data(), atLuma_[0].data(), atLuma_[1].data(), from_.width};
    write(0, row, colours);
  }

  // Luma at the places of chroma. The mean of both rows takes the place of the first.
  void lowerLuma() {
    auto& mean = luma_[0];
    if (!onRow_) {
      for (std::size_t x = 0; x < mean.size(); ++x) mean[x] = mixed(mean[x], luma_[1][x], 2);
    }
    const std::size_t lastColumn = mean.size() - 1;
    lumaAtChroma_[0] = mixed(mean[0], mean[std::min<std::size_t>(1, lastColumn)], onColumn_ ? 3 : 2);
    for (std::size_t x = 1; x < lumaAtChroma_.size(); ++x) {
      const int next = mean[std::min(2 * x + 1, lastColumn)];
      const int around = onColumn_ ? (mean[2 * x - 1] + next) / 2 : next;
      lumaAtChroma_[x] = mixed(mean[2 * x], around, 2);
    }
  }

  void mapChroma(int pair) {
    lowerLuma();
    const ToneRow colours{lumaAtChroma_.data(), chroma_[0][1].data(), chroma_[1][1].data(),
                          static_cast<int>(lumaAtChroma_.size())};
    write(1, pair, colours);
    write(2, pair, colours);
  }

  void write(std::size_t plane, int row, const ToneRow& colours) {
    static constexpr auto dither = ditherRows();
    readToneRow(table_.values[plane].data(), colours, dither[static_cast<std::size_t>(row) % dither.size()],
                to_.data[plane] + static_cast<std::ptrdiff_t>(row) * to_.linesize[plane]);
  }

  const AVFrame& from_;
  AVFrame& to_;
  const ToneTable& table_;
  const AVPixFmtDescriptor& pixels_;
  bool onColumn_ = true;  // whether chroma lies on columns of luma, rather than between two
  bool onRow_ = false;    // likewise for rows
  std::array<std::vector<std::uint16_t>, 2> luma_;
  std::array<std::array<std::vector<std::uint16_t>, 3>, 2> chroma_;  // Cb, Cr: the row above, this one, the one below
  std::array<std::vector<std::uint16_t>, 2> atLuma_;                 // Cb, Cr at the places of luma
  std::vector<std::uint16_t> between_;
  std::vector<std::uint16_t> lumaAtChroma_;
};

Expected<const AVPixFmtDescriptor*> describe(const AVFrame& picture) {
  const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format));
  constexpr std::uint64_t unfit =
      AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_FLOAT | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_PAL;
  if (pixels == nullptr || pixels->nb_components < 3 || (pixels->flags & unfit) != 0) {
    return failed(ErrorKind::unsupported, "pictures that are not YUV are not tone-mapped");
  }
  return pixels;
}

// What the programme's brightest part is said to be, by its pixels rather than by its maker's display; 0 where nothing
// is said.
double peakLight(const AVFrame& picture) {
  const AVFrameSideData* side = av_frame_get_side_data(&picture, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL);
  const double brightest = side == nullptr ? 0 : reinterpret_cast<const AVContentLightMetadata*>(side->data)->MaxCLL;
  if (brightest > 0) return brightest;
  side = av_frame_get_side_data(&picture, AV_FRAME_DATA_MASTERING_DISPLAY_METADATA);
  if (side == nullptr) return 0;
  const auto& mastering = *reinterpret_cast<const AVMasteringDisplayMetadata*>(side->data);
  return mastering.has_luminance != 0 ? av_q2d(mastering.max_luminance) : 0;
}

void tagStandardRange(AVFrame& picture) {
  picture.color_primaries = AVCOL_PRI_BT709;
  picture.color_trc = AVCOL_TRC_BT709;
  picture.colorspace = AVCOL_SPC_BT709;
  picture.color_range = AVCOL_RANGE_MPEG;
  for (const auto kind : {AV_FRAME_DATA_MASTERING_DISPLAY_METADATA, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL,
                          AV_FRAME_DATA_DYNAMIC_HDR_PLUS, AV_FRAME_DATA_DYNAMIC_HDR_VIVID,
                          AV_FRAME_DATA_DOVI_RPU_BUFFER, AV_FRAME_DATA_DOVI_METADATA, AV_FRAME_DATA_ICC_PROFILE}) {
    av_frame_remove_side_data(&picture, kind);
  }
}

}  // namespace

struct ToneMapper::Table {
  ToneSource source;
  ToneTable tones;  // empty at first
  std::optional<PictureConverter> converter;
  int width = 0;  // of the converter's pictures
  int height = 0;
};

ToneMapper::ToneMapper() : table_(std::make_unique<Table>()) {}
ToneMapper::ToneMapper(ToneMapper&&) noexcept = default;
ToneMapper& ToneMapper::operator=(ToneMapper&&) noexcept = default;
ToneMapper::~ToneMapper() = default;

Expected<Frame> ToneMapper::map(const Frame& picture) {
  if (!isHighDynamicRange(picture->color_trc)) {
    return failed(ErrorKind::unsupported, "only pictures in PQ or HLG are tone-mapped");
  }
  const auto source = withHalvedChroma(picture);
  if (!source) return tl::make_unexpected(source.error());
  if (auto ready = prepare(**source); !ready) return tl::make_unexpected(ready.error());
  auto result = allocateFrame(picture->width, picture->height, AV_PIX_FMT_YUV420P);
  if (!result) return result;
  av_frame_copy_props(result->get(), picture.get());
  tagStandardRange(**result);
  PictureMapping(**source, **result, table_->tones).run();
  return result;
}

Expected<Frame> ToneMapper::withHalvedChroma(const Frame& picture) {
  const auto pixels = describe(*picture);
  if (!pixels) return tl::make_unexpected(pixels.error());
  if ((*pixels)->log2_chroma_w == 1 && (*pixels)->log2_chroma_h == 1) return shareFrame(picture);
  // The converter makes even sizes only: it repeats the last column and row, which are left out again here.
  const int width = picture->width + picture->width % 2;
  const int height = picture->height + picture->height % 2;
  if (!table_->converter || table_->width != width || table_->height != height) {
    table_->converter.emplace(width, height, AV_PIX_FMT_YUV420P16, PictureConverter::Fit::pad);
    table_->width = width;
    table_->height = height;
  }
  auto converted = table_->converter->convert(picture);
  if (!converted) return converted;
  (*converted)->width = picture->width;
  (*converted)->height = picture->height;
  return converted;
}

Expected<void> ToneMapper::prepare(const AVFrame& picture) {
  const auto format = static_cast<AVPixelFormat>(picture.format);
  ToneSource source;
  source.transfer = picture.color_trc;
  if (picture.color_primaries != AVCOL_PRI_UNSPECIFIED) source.primaries = picture.color_primaries;
  // BT.2100 knows no constant luminance: who writes that means the matrix that is usual.
  if (picture.colorspace != AVCOL_SPC_UNSPECIFIED && picture.colorspace != AVCOL_SPC_BT2020_CL) {
    source.matrix = picture.colorspace;
  }
  source.fullRange = picture.color_range == AVCOL_RANGE_JPEG || format == AV_PIX_FMT_YUVJ420P;
  source.depth = av_pix_fmt_desc_get(format)->comp[0].depth;
  // A decoder may give the metadata with some pictures only: what was said once holds.
  const double said = peakLight(picture);
  source.peakLight = said > 0 ? said : table_->source.peakLight;
  if (!table_->tones.values[0].empty() && table_->source == source) return {};
  auto tones = ToneTable::make(source);
  if (!tones) return tl::make_unexpected(tones.error());
  table_->tones = std::move(*tones);
  table_->source = source;
  return {};
}

}  // namespace clipworks::engine
