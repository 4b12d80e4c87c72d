#include <clipworks/engine/stills/JPEGEncoder.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>

#include <jpeglib.h>

#include <array>
#include <memory>
#include <string>

#include <clipworks/engine/pictures/FramePadding.h>
#include <clipworks/engine/stills/ExifBlock.h>
#include <clipworks/engine/stills/StillPixels.h>

namespace clipworks::engine {
namespace {

constexpr int usualQuality = 95;
constexpr int ditheredQuality = 98;  // with less, what was mixed becomes one level, and steps of less than one are lost
// JFIF 1.02: BT.601's matrix in full range.
constexpr YUVMeaning meaningInJFIF{AVCOL_SPC_BT470BG, true, AVCHROMA_LOC_CENTER};
constexpr int blockSide = DCTSIZE;
constexpr int exifMarker = JPEG_APP0 + 1;

/// Where libjpeg jumps to when it fails, which must not be a place that C++ objects live in.
struct FailureExit {
  jpeg_error_mgr manager{};
  std::jmp_buf exit{};
  std::array<char, JMSG_LENGTH_MAX> words{};
};

void leave(j_common_ptr context) {
  auto* failure = reinterpret_cast<FailureExit*>(context->err);
  context->err->format_message(context, failure->words.data());
  std::longjmp(failure->exit, 1);
}

void keepSilent(j_common_ptr) {}

struct Input {
  const AVFrame* planes;  // YUV444P, whole blocks
  unsigned width;
  unsigned height;
  int quality;
  const std::vector<std::uint8_t>* exif;     // may be empty
  const std::vector<std::uint8_t>* profile;  // may be empty
};

struct Output {
  unsigned char* bytes = nullptr;
  unsigned long length = 0;
};

void configure(jpeg_compress_struct& context, const Input& input) {
  context.image_width = input.width;
  context.image_height = input.height;
  context.input_components = 3;
  context.in_color_space = JCS_YCbCr;
  jpeg_set_defaults(&context);
  jpeg_set_quality(&context, input.quality, TRUE);
  context.optimize_coding = TRUE;
  context.dct_method = JDCT_ISLOW;
  context.raw_data_in = TRUE;
  for (int i = 0; i < 3; ++i) context.comp_info[i].h_samp_factor = context.comp_info[i].v_samp_factor = 1;
}

void writeRows(jpeg_compress_struct& context, const AVFrame& planes) {
  while (context.next_scanline < context.image_height) {
    std::array<std::array<JSAMPROW, blockSide>, 3> rows{};
    std::array<JSAMPARRAY, 3> arrays{};
    for (std::size_t plane = 0; plane < 3; ++plane) {
      for (std::size_t row = 0; row < blockSide; ++row) {
        rows[plane][row] =
            planes.data[plane] + static_cast<std::ptrdiff_t>(context.next_scanline + row) * planes.linesize[plane];
      }
      arrays[plane] = rows[plane].data();
    }
    jpeg_write_raw_data(&context, arrays.data(), blockSide);
  }
}

/// Between `setjmp` and its return only plain values live. False with words in `failure` when libjpeg failed.
bool compress(const Input& input, FailureExit& failure, Output& output) {
  jpeg_compress_struct context{};
  context.err = jpeg_std_error(&failure.manager);
  failure.manager.error_exit = leave;
  failure.manager.output_message = keepSilent;
  if (setjmp(failure.exit) != 0) {
    jpeg_destroy_compress(&context);
    return false;
  }
  jpeg_create_compress(&context);
  jpeg_mem_dest(&context, &output.bytes, &output.length);
  configure(context, input);
  jpeg_start_compress(&context, TRUE);
  if (!input.exif->empty()) {
    jpeg_write_marker(&context, exifMarker, input.exif->data(), static_cast<unsigned>(input.exif->size()));
  }
  if (!input.profile->empty()) {
    jpeg_write_icc_profile(&context, input.profile->data(), static_cast<unsigned>(input.profile->size()));
  }
  writeRows(context, *input.planes);
  jpeg_finish_compress(&context);
  jpeg_destroy_compress(&context);
  return true;
}

Expected<Frame> blocksOf(const Frame& picture) {
  auto planes = planarYUV(picture, AV_PIX_FMT_YUV444P, meaningInJFIF);
  if (!planes) return planes;
  const int width = (picture->width + blockSide - 1) / blockSide * blockSide;
  const int height = (picture->height + blockSide - 1) / blockSide * blockSide;
  if (width == picture->width && height == picture->height) return planes;
  return padFrame(*planes, width, height);
}

}  // namespace

Expected<std::vector<std::uint8_t>> encodeJPEG(const StillImage& still) {
  if (auto fit = checkStill(*still.frame); !fit) return tl::make_unexpected(fit.error());
  auto profile = profileFor(*still.frame);
  if (!profile) return profile;
  auto planes = blocksOf(still.frame);
  if (!planes) return tl::make_unexpected(planes.error());
  auto exif = exifBlock(still);
  if (!exif) return exif;
  if (!exif->empty()) exif->insert(exif->begin(), exifPrefix.begin(), exifPrefix.end());

  FailureExit failure;
  Output output;
  const Input input{planes->get(),
                    static_cast<unsigned>(still.frame->width),
                    static_cast<unsigned>(still.frame->height),
                    still.isDithered ? ditheredQuality : usualQuality,
                    &*exif,
                    &*profile};
  const bool isWhole = compress(input, failure, output);
  const std::unique_ptr<unsigned char, decltype(&std::free)> owner(output.bytes, &std::free);
  if (!isWhole)
    return failed(ErrorKind::internal, std::string("the picture cannot be encoded as JPEG: ") + failure.words.data());
  return std::vector<std::uint8_t>(output.bytes, output.bytes + output.length);
}

}  // namespace clipworks::engine
