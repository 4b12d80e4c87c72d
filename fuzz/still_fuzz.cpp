#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include <libheif/heif.h>

#include <clipworks/engine/pictures/StillImage.h>
#include <clipworks/engine/stills/HEICEncoder.h>
#include <clipworks/engine/stills/JPEGEncoder.h>
#include <clipworks/engine/stills/PNGEncoder.h>
#include <fuzz/FuzzInput.h>

// The encoders of photos: pictures of any size, layout and colour tags, with recordings' metadata of any content. A
// file comes out whose own header tells the picture's size, or a sentence.

namespace {

using namespace clipworks;
using namespace clipworks::engine;
using fuzz::require;

using Size = std::pair<int, int>;

int takeSide(fuzz::FuzzInput& input) {
  return input.between(0, 63) == 0 ? input.between(16'383, 16'400) : input.between(1, 48);
}

void takeColors(AVFrame& frame, fuzz::FuzzInput& input) {
  frame.color_primaries = static_cast<AVColorPrimaries>(input.between(0, AVCOL_PRI_NB - 1));
  frame.color_trc = static_cast<AVColorTransferCharacteristic>(input.between(0, AVCOL_TRC_NB - 1));
  frame.colorspace = static_cast<AVColorSpace>(input.between(0, AVCOL_SPC_NB - 1));
  frame.color_range = static_cast<AVColorRange>(input.between(0, 3));
  frame.chroma_location = static_cast<AVChromaLocation>(input.between(0, AVCHROMA_LOC_NB - 1));
}

StillImage takeStill(fuzz::FuzzInput& input) {
  constexpr std::array formats{AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P,
                               AV_PIX_FMT_YUV440P, AV_PIX_FMT_YUV411P, AV_PIX_FMT_BGRA};
  StillImage still;
  still.frame = makeFrame();
  AVFrame& frame = *still.frame;
  frame.format = formats[static_cast<std::size_t>(input.between(0, formats.size() - 1))];
  frame.width = takeSide(input);
  frame.height = takeSide(input);
  if (frame.width > 64 && frame.height > 64) frame.height = 2;  // one side alone goes to its limit
  require(av_frame_get_buffer(still.frame.get(), 0) == 0, "a frame can be had");
  takeColors(frame, input);
  for (int plane = 0; plane < 4 && frame.buf[plane] != nullptr; ++plane) {
    std::fill_n(frame.buf[plane]->data, frame.buf[plane]->size, input.take<std::uint8_t>());
  }
  constexpr std::array keys{"com.apple.quicktime.creationdate",
                            "creation_time",
                            "location",
                            "location-eng",
                            "make",
                            "model",
                            "com.android.version",
                            "com.apple.quicktime.location.ISO6709"};
  const int facts = input.between(0, 4);
  for (int i = 0; i < facts; ++i) {
    std::string text;
    for (int left = input.between(0, 40); left > 0 && !input.isEmpty(); --left) text += input.take<char>();
    still.metadata[keys[static_cast<std::size_t>(input.between(0, keys.size() - 1))]] = text;
  }
  return still;
}

int wordAt(const std::vector<std::uint8_t>& file, std::size_t at) { return file[at] << 8 | file[at + 1]; }

Size sizeInJPEG(const std::vector<std::uint8_t>& file) {
  for (std::size_t at = 2; at + 9 < file.size(); at += 2 + static_cast<std::size_t>(wordAt(file, at + 2))) {
    require(file[at] == 0xff, "markers follow each other");
    if (file[at + 1] == 0xc0 || file[at + 1] == 0xc2) return {wordAt(file, at + 7), wordAt(file, at + 5)};
  }
  return {};
}

Size sizeInPNG(const std::vector<std::uint8_t>& file) {
  require(file.size() > 24, "a file has a header");
  return {wordAt(file, 18), wordAt(file, 22)};
}

Size sizeInHEIC(const std::vector<std::uint8_t>& file) {
  heif_context* context = heif_context_alloc();
  heif_image_handle* handle = nullptr;
  Size size;
  if (heif_context_read_from_memory_without_copy(context, file.data(), file.size(), nullptr).code == heif_error_Ok &&
      heif_context_get_primary_image_handle(context, &handle).code == heif_error_Ok) {
    size = {heif_image_handle_get_width(handle), heif_image_handle_get_height(handle)};
    heif_image_handle_release(handle);
  }
  heif_context_free(context);
  return size;
}

template <class SizeOf>
void check(const StillImage& still, const Expected<std::vector<std::uint8_t>>& file, SizeOf sizeOf) {
  if (!file) return require(!file.error().sentence.empty(), "an error has a sentence");
  require(sizeOf(*file) == Size(still.frame->width, still.frame->height), "the file has the picture's size");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::FuzzInput input(data, size);
  const int kind = input.between(0, 31);
  const StillImage still = takeStill(input);
  if (kind == 0 && still.frame->width <= 48 && still.frame->height <= 48) {
    check(still, encodeHEIC(still), sizeInHEIC);  // slow
  } else if (kind % 2 == 0) {
    check(still, encodeJPEG(still), sizeInJPEG);
  } else {
    check(still, encodePNG(still), sizeInPNG);
  }
  return 0;
}
