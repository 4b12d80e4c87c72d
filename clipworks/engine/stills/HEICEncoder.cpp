#include <clipworks/engine/stills/HEICEncoder.h>

#include <libheif/heif.h>

#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include <clipworks/engine/Processors.h>
#include <clipworks/engine/Thread.h>
#include <clipworks/engine/stills/ExifBlock.h>
#include <clipworks/engine/stills/StillPixels.h>

namespace clipworks::engine {
namespace {

constexpr int quality = 76;
constexpr const char* preset = "ultrafast";
constexpr std::int64_t mostPixels = 35'651'584;
constexpr int leastSide = 16;  // libheif's x265 takes no less
constexpr YUVMeaning meaningOfBGRA{AVCOL_SPC_SMPTE170M, true, AVCHROMA_LOC_LEFT};
constexpr std::array<heif_channel, 3> channels{heif_channel_Y, heif_channel_Cb, heif_channel_Cr};

template <auto Free>
struct Release {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Context = std::unique_ptr<heif_context, Release<heif_context_free>>;
using Encoder = std::unique_ptr<heif_encoder, Release<heif_encoder_release>>;
using Image = std::unique_ptr<heif_image, Release<heif_image_release>>;
using ImageHandle = std::unique_ptr<heif_image_handle, Release<heif_image_handle_release>>;
using EncodingOptions = std::unique_ptr<heif_encoding_options, Release<heif_encoding_options_free>>;
using ColorTags = std::unique_ptr<heif_color_profile_nclx, Release<heif_nclx_color_profile_free>>;

Expected<void> checked(const heif_error& error) {
  if (error.code == heif_error_Ok) return {};
  const ErrorKind kind =
      error.code == heif_error_Memory_allocation_error ? ErrorKind::outOfMemory : ErrorKind::internal;
  return failed(kind, std::string("the picture cannot be encoded as HEIC: ") + error.message);
}

Expected<void> checkForHEVC(const AVFrame& picture) {
  if (auto fit = checkStill(picture); !fit) return fit;
  const std::string size = std::to_string(picture.width) + " × " + std::to_string(picture.height);
  if (static_cast<std::int64_t>(picture.width) * picture.height > mostPixels) {
    return failed(ErrorKind::tooLarge, "a picture of " + size + " is too large for HEIC, which holds up to " +
                                           std::to_string(mostPixels) + " pixels; JPEG and PNG hold it");
  }
  if (picture.width < leastSide || picture.height < leastSide) {
    return failed(ErrorKind::unsupported, "a picture of " + size +
                                              " is too small for HEIC, whose sides have at least " +
                                              std::to_string(leastSide) + " pixels; JPEG and PNG hold it");
  }
  return {};
}

Expected<Encoder> openEncoder(heif_context& context, int threads) {
  heif_encoder* opened = nullptr;
  if (heif_context_get_encoder_for_format(&context, heif_compression_HEVC, &opened).code != heif_error_Ok) {
    return failed(ErrorKind::noEncoder, "there is no encoder for HEIC");
  }
  Encoder encoder(opened);
  if (auto set = checked(heif_encoder_set_lossy_quality(opened, quality)); !set)
    return tl::make_unexpected(set.error());
  std::vector<std::pair<const char*, std::string>> parameters{{"preset", preset}};
  // Those of x265 itself, which counts the machine's processors.
  if (threads > 0)
    parameters.insert(parameters.end(), {{"x265:pools", std::to_string(threads)}, {"x265:frame-threads", "1"}});
  for (const auto& [name, value] : parameters) {
    if (auto set = checked(heif_encoder_set_parameter_string(opened, name, value.c_str())); !set)
      return tl::make_unexpected(set.error());
  }
  return encoder;
}

ColorTags colorTags(const AVFrame& planes, const YUVMeaning& meaning) {
  ColorTags tags(heif_nclx_color_profile_alloc());
  if (tags == nullptr) throw std::bad_alloc();
  const StillGamut gamut = gamutOf(planes);
  tags->color_primaries = gamut == StillGamut::sRGB        ? heif_color_primaries_ITU_R_BT_709_5
                          : gamut == StillGamut::displayP3 ? heif_color_primaries_SMPTE_EG_432_1
                                                           : heif_color_primaries_ITU_R_BT_2020_2_and_2100_0;
  tags->transfer_characteristics = heif_transfer_characteristic_IEC_61966_2_1;
  // Both libraries number matrices as H.273 does.
  tags->matrix_coefficients = static_cast<heif_matrix_coefficients>(meaning.matrix);
  tags->full_range_flag = meaning.isFullRange ? 1 : 0;
  return tags;
}

Expected<Image> imageOf(const AVFrame& planes, const heif_color_profile_nclx& tags) {
  heif_image* made = nullptr;
  if (auto created =
          checked(heif_image_create(planes.width, planes.height, heif_colorspace_YCbCr, heif_chroma_420, &made));
      !created) {
    return tl::make_unexpected(created.error());
  }
  Image image(made);
  for (int i = 0; i < 3; ++i) {
    const int width = i == 0 ? planes.width : (planes.width + 1) / 2;
    const int height = i == 0 ? planes.height : (planes.height + 1) / 2;
    const heif_channel channel = channels[static_cast<std::size_t>(i)];
    if (auto added = checked(heif_image_add_plane(made, channel, width, height, 8)); !added) {
      return tl::make_unexpected(added.error());
    }
    int stride = 0;
    std::uint8_t* to = heif_image_get_plane(made, channel, &stride);
    av_image_copy_plane(to, stride, planes.data[i], planes.linesize[i], width, height);
  }
  if (auto set = checked(heif_image_set_nclx_color_profile(made, &tags)); !set) return tl::make_unexpected(set.error());
  const auto profile = profileFor(planes);
  if (!profile) return tl::make_unexpected(profile.error());
  if (!profile->empty()) {
    if (auto set = checked(heif_image_set_raw_color_profile(made, "prof", profile->data(), profile->size())); !set) {
      return tl::make_unexpected(set.error());
    }
  }
  return image;
}

Expected<ImageHandle> encode(heif_context& context, const heif_image& image, heif_color_profile_nclx& tags,
                             int threads) {
  const auto start = EncoderStart::begin(coderThreads(threads));  // the library opens its encoder only while it encodes
  if (!start) return tl::make_unexpected(start.error());
  auto encoder = openEncoder(context, coderThreads(threads));
  if (!encoder) return tl::make_unexpected(encoder.error());
  const EncodingOptions options(heif_encoding_options_alloc());
  if (options == nullptr) throw std::bad_alloc();
  options->output_nclx_profile = &tags;
  // The library leaves the tags out by default, for readers of 2019; without them others would guess the matrix.
  options->macOS_compatibility_workaround_no_nclx_profile = 0;
  options->save_two_colr_boxes_when_ICC_and_nclx_available = 1;
  heif_image_handle* handle = nullptr;
  if (auto encoded = checked(heif_context_encode_image(&context, &image, encoder->get(), options.get(), &handle));
      !encoded) {
    return tl::make_unexpected(encoded.error());
  }
  return ImageHandle(handle);
}

heif_error keep(heif_context*, const void* bytes, std::size_t length, void* into) {
  try {
    const auto* from = static_cast<const std::uint8_t*>(bytes);
    static_cast<std::vector<std::uint8_t>*>(into)->assign(from, from + length);
  } catch (const std::bad_alloc&) {
    return {heif_error_Memory_allocation_error, heif_suberror_Unspecified, "out of memory"};
  }
  return {heif_error_Ok, heif_suberror_Unspecified, ""};
}

}  // namespace

Expected<std::vector<std::uint8_t>> encodeHEIC(const StillImage& still, int threads) {
  if (auto fit = checkForHEVC(*still.frame); !fit) return tl::make_unexpected(fit.error());
  const bool isRGB = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(still.frame->format))->flags & AV_PIX_FMT_FLAG_RGB;
  YUVMeaning meaning = isRGB ? meaningOfBGRA : meaningOf(*still.frame);
  meaning.isFullRange = true;  // of video range libheif makes up to a level too much, and the brightest ones the same
  const auto planes = planarYUV(still.frame, AV_PIX_FMT_YUV420P, meaning);
  if (!planes) return tl::make_unexpected(planes.error());
  auto exif = exifBlock(still);
  if (!exif) return exif;

  const Context context(heif_context_alloc());
  if (context == nullptr) throw std::bad_alloc();
  const ColorTags tags = colorTags(**planes, meaning);
  const auto image = imageOf(**planes, *tags);
  if (!image) return tl::make_unexpected(image.error());
  const auto handle = encode(*context, **image, *tags, threads);
  if (!handle) return tl::make_unexpected(handle.error());
  if (!exif->empty()) {
    if (auto added = checked(
            heif_context_add_exif_metadata(context.get(), handle->get(), exif->data(), static_cast<int>(exif->size())));
        !added) {
      return tl::make_unexpected(added.error());
    }
  }
  std::vector<std::uint8_t> bytes;
  heif_writer writer{1, keep};
  if (auto written = checked(heif_context_write(context.get(), &writer, &bytes)); !written) {
    return tl::make_unexpected(written.error());
  }
  return bytes;
}

}  // namespace clipworks::engine
