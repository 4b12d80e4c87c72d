#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <clipworks/edit/EditErrors.h>
#include <clipworks/edit/EditState.h>
#include <clipworks/edit/Files.h>
#include <clipworks/edit/Stills.h>
#include <clipworks/edit/TakePicture.h>
#include <clipworks/media/images/CGImage.h>
#include <clipworks/media/time/ExactTime.h>

namespace clipworks {
namespace {

constexpr int mostOnSide = 40;
constexpr double widestSheet = 1920;  // pixels
constexpr std::size_t gap = 4;        // pixels between pictures, and around them
constexpr std::size_t bytesPerPixel = 4;

/// Digits, a colon and a point in 3 × 5 pixels, a row in three bits, the first row first.
struct Glyph {
  char character;
  std::array<std::uint8_t, 5> rows;
};
constexpr std::array<Glyph, 12> glyphs{{{'0', {7, 5, 5, 5, 7}},
                                        {'1', {2, 6, 2, 2, 7}},
                                        {'2', {7, 1, 7, 4, 7}},
                                        {'3', {7, 1, 7, 1, 7}},
                                        {'4', {5, 5, 7, 1, 1}},
                                        {'5', {7, 4, 7, 1, 7}},
                                        {'6', {7, 4, 7, 5, 7}},
                                        {'7', {7, 1, 1, 1, 1}},
                                        {'8', {7, 5, 7, 5, 7}},
                                        {'9', {7, 5, 7, 1, 7}},
                                        {':', {0, 2, 0, 2, 0}},
                                        {'.', {0, 0, 0, 0, 2}}}};
constexpr std::size_t glyphWidth = 3;
constexpr std::size_t glyphHeight = 5;

/// Rows of blue, green, red, alpha.
class Sheet {
 public:
  Sheet(std::size_t width, std::size_t height)
      : width_(width), height_(height), bytes_(width * height * bytesPerPixel, 0) {}

  void paste(const CGImage& picture, std::size_t left, std::size_t top) {
    const auto bytes = picture.copyData();
    const std::size_t columns = std::min(picture.width(), width_ - left);
    for (std::size_t y = 0; y < std::min(picture.height(), height_ - top); ++y) {
      std::memcpy(at(left, top + y), bytes.data() + y * picture.bytesPerRow(), columns * bytesPerPixel);
    }
  }

  /// White on black, with its lower left corner at (left, bottom); `scale` pixels for one of a glyph.
  void write(std::string_view text, std::size_t left, std::size_t bottom, std::size_t scale) {
    const std::size_t width = (text.size() * (glyphWidth + 1) + 1) * scale;
    const std::size_t height = (glyphHeight + 2) * scale;
    fill(left, bottom - height, width, height, 0);
    for (const char character : text) {
      left += scale;
      const auto glyph =
          std::find_if(glyphs.begin(), glyphs.end(), [&](const Glyph& one) { return one.character == character; });
      for (std::size_t y = 0; glyph != glyphs.end() && y < glyphHeight; ++y) {
        for (std::size_t x = 0; x < glyphWidth; ++x) {
          if ((glyph->rows[y] >> (glyphWidth - 1 - x)) & 1)
            fill(left + x * scale, bottom - height + (y + 1) * scale, scale, scale, 255);
        }
      }
      left += glyphWidth * scale;
    }
  }

  [[nodiscard]] std::shared_ptr<const CGImage> image() const {
    return CGImage::make(width_, height_, bytes_.data(), width_ * bytesPerPixel);
  }

 private:
  std::uint8_t* at(std::size_t x, std::size_t y) { return bytes_.data() + (y * width_ + x) * bytesPerPixel; }
  void fill(std::size_t left, std::size_t top, std::size_t width, std::size_t height, std::uint8_t level) {
    for (std::size_t y = top; y < std::min(top + height, height_); ++y) {
      if (left < width_) std::memset(at(left, y), level, std::min(width, width_ - left) * bytesPerPixel);
    }
  }

  std::size_t width_;
  std::size_t height_;
  std::vector<std::uint8_t> bytes_;
};

std::string clock(const CMTime& time) {
  const auto thousandths = std::llround(time.seconds() * 1000);
  char text[32];
  (void)std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld.%03lld", thousandths / 3'600'000,
                      thousandths / 60'000 % 60, thousandths / 1000 % 60, thousandths % 1000);
  return text;
}

/// Even, as chroma wants it, and as small as one may look at.
double sideOf(double length) { return std::max(16.0, 2 * std::floor(length / 2)); }

}  // namespace

Result<PictureReport, Error> takeSheet(const Edit& edit, int columns, int rows, const std::filesystem::path& path,
                                       const PictureOptions& options) {
  if (columns < 1 || rows < 1 || columns > mostOnSide || rows > mostOnSide)
    return failed(ErrorCode::badArgument, "a sheet has from 1 to 40 columns and rows");
  if (auto fit = needPictures(edit, "taking a picture"); !fit) return failure(fit.error());
  if (auto fit = checkFiles(edit.state(), path, options.existing); !fit) return failure(fit.error());

  const CGSize seen = edit.size();
  const double room = (widestSheet - gap) / columns - gap;
  const double scale = std::min(1.0, room / seen.width);
  const CGSize cell{sideOf(seen.width * scale), sideOf(seen.height * scale)};
  EditState state = edit.state();
  draw(state, {cell.width / seen.width, 0, 0, cell.height / seen.height, 0, 0}, cell);
  const Edit small = edited(std::move(state));

  std::vector<CMTime> times;
  const int count = columns * rows;
  for (int i = 0; i < count; ++i) {
    const CMTime& whole = edit.duration();
    times.push_back(CMTime(mulDiv(whole.value, 2 * i + 1, 2 * count), whole.timescale));
  }
  auto stills = Stills::find(small, std::move(times), options.threads);
  if (!stills) return failure(stills.error());

  const auto width = static_cast<std::size_t>(cell.width);
  const auto height = static_cast<std::size_t>(cell.height);
  Sheet sheet(gap + static_cast<std::size_t>(columns) * (width + gap),
              gap + static_cast<std::size_t>(rows) * (height + gap));
  const std::size_t letters = clock(edit.duration()).size() * (glyphWidth + 1) + 1;
  const std::size_t textScale = std::clamp<std::size_t>(width / 3 / letters, 1, 3);
  for (std::size_t i = 0; i < stills->count(); ++i) {
    const auto still = stills->take(i, options.stop);
    if (!still) return failure(still.error());
    const std::size_t left = gap + i % static_cast<std::size_t>(columns) * (width + gap);
    const std::size_t top = gap + i / static_cast<std::size_t>(columns) * (height + gap);
    sheet.paste(CGImage(*still), left, top);
    sheet.write(clock(stills->time(i)), left, top + height, textScale);
    if (options.onProgress) options.onProgress(static_cast<double>(i + 1) / static_cast<double>(stills->count()));
  }
  if (auto whole = checkDamage(*stills, options); !whole) return failure(whole.error());
  const auto image = sheet.image();
  if (image == nullptr) return failed(ErrorCode::badArgument, "a sheet of so many pictures is too large");
  auto saved = saveStill(*image->still(), path, options);
  if (!saved) return failure(saved.error());
  return PictureReport{{std::move(*saved)}, damagedMediaIn(stills->damaged())};
}

}  // namespace clipworks
