#include <clipworks/engine/stills/PNGEncoder.h>

#include <png.h>

#include <array>
#include <csetjmp>
#include <cstdio>
#include <new>
#include <string>

#include <clipworks/engine/stills/DeflatedRows.h>
#include <clipworks/engine/stills/ExifBlock.h>
#include <clipworks/engine/stills/StillPixels.h>

namespace clipworks::engine {
namespace {

constexpr std::array<png_byte, 5> dataChunk{'I', 'D', 'A', 'T', 0};
constexpr std::array<png_byte, 5> endChunk{'I', 'E', 'N', 'D', 0};

struct Output {
  std::vector<std::uint8_t> bytes;
  std::array<char, 128> words{};  // why it failed
};

void keep(png_structp context, png_bytep bytes, png_size_t length) {
  auto* output = static_cast<Output*>(png_get_io_ptr(context));
  bool isOutOfMemory = false;
  try {
    output->bytes.insert(output->bytes.end(), bytes, bytes + length);
  } catch (const std::bad_alloc&) {
    isOutOfMemory = true;
  }
  if (isOutOfMemory) png_error(context, "out of memory");
}

void leave(png_structp context, png_const_charp words) {
  auto* output = static_cast<Output*>(png_get_error_ptr(context));
  std::snprintf(output->words.data(), output->words.size(), "%s", words);
  png_longjmp(context, 1);
}

void keepSilent(png_structp, png_const_charp) {}

struct Input {
  png_uint_32 width;
  png_uint_32 height;
  const std::vector<std::vector<std::uint8_t>>* rows;  // parts of their zlib stream
  std::vector<std::uint8_t>* exif;                     // may be empty
  const std::vector<std::uint8_t>* profile;            // empty: sRGB
};

void writeHeader(png_structp context, png_infop info, const Input& input) {
  png_set_IHDR(context, info, input.width, input.height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (input.profile->empty()) {
    png_set_sRGB_gAMA_and_cHRM(context, info, PNG_sRGB_INTENT_PERCEPTUAL);
  } else {
    png_set_iCCP(context, info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, input.profile->data(),
                 static_cast<png_uint_32>(input.profile->size()));
  }
  if (!input.exif->empty()) {
    png_set_eXIf_1(context, info, static_cast<png_uint_32>(input.exif->size()), input.exif->data());
  }
  png_write_info(context, info);
}

/// Between `setjmp` and its return only plain values live. False with words in `output` when libpng failed.
bool compress(const Input& input, Output& output) {
  png_structp context = png_create_write_struct(PNG_LIBPNG_VER_STRING, &output, leave, keepSilent);
  png_infop info = context != nullptr ? png_create_info_struct(context) : nullptr;
  if (info == nullptr) {
    png_destroy_write_struct(&context, nullptr);
    return false;
  }
  if (setjmp(png_jmpbuf(context)) != 0) {
    png_destroy_write_struct(&context, &info);
    return false;
  }
  png_set_write_fn(context, &output, keep, nullptr);
  writeHeader(context, info, input);
  for (const auto& part : *input.rows) png_write_chunk(context, dataChunk.data(), part.data(), part.size());
  png_write_chunk(context, endChunk.data(), nullptr, 0);
  png_destroy_write_struct(&context, &info);
  return true;
}

}  // namespace

Expected<std::vector<std::uint8_t>> encodePNG(const StillImage& still, int threads) {
  if (auto fit = checkStill(*still.frame); !fit) return tl::make_unexpected(fit.error());
  auto profile = profileFor(*still.frame);
  if (!profile) return profile;
  auto planes = planarRGB(still.frame, SharedChroma::interpolated);
  if (!planes) return tl::make_unexpected(planes.error());
  auto exif = exifBlock(still);
  if (!exif) return exif;

  const auto rows = deflatedRows(**planes, threads);
  if (!rows) return tl::make_unexpected(rows.error());

  Output output;
  const Input input{static_cast<png_uint_32>(still.frame->width), static_cast<png_uint_32>(still.frame->height), &*rows,
                    &*exif, &*profile};
  if (!compress(input, output)) {
    return failed(ErrorKind::internal, std::string("the picture cannot be encoded as PNG: ") + output.words.data());
  }
  return std::move(output.bytes);
}

}  // namespace clipworks::engine
