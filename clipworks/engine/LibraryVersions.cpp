#include <clipworks/engine/LibraryVersions.h>

#include <lcms2.h>
#include <libheif/heif.h>
#include <png.h>
#include <pulse/version.h>
#include <zlib.h>

#include <zimg.h>

#include <clipworks/engine/FFmpeg.h>

namespace clipworks::engine {
namespace {

/// Of three numbers in one.
std::string dotted(unsigned major, unsigned minor, unsigned micro) {
  return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(micro);
}

std::string dotted(unsigned version) {
  return dotted(AV_VERSION_MAJOR(version), AV_VERSION_MINOR(version), AV_VERSION_MICRO(version));
}

}  // namespace

std::vector<std::pair<std::string, std::string>> libraryVersions() {
  unsigned zimg[3] = {};
  zimg_get_version_info(&zimg[0], &zimg[1], &zimg[2]);
  constexpr int thousand = 1000;
  const auto lcms = static_cast<unsigned>(cmsGetEncodedCMMversion());
  return {{"libavformat", dotted(avformat_version())},
          {"libavcodec", dotted(avcodec_version())},
          {"libavutil", dotted(avutil_version())},
          {"zimg", dotted(zimg[0], zimg[1], zimg[2])},
          {"libheif", heif_get_version()},
          {"libpng", png_get_libpng_ver(nullptr)},
          {"zlib", zlibVersion()},
          {"Little CMS", std::to_string(lcms / thousand) + "." + std::to_string(lcms % thousand / 10)},
          {"PulseAudio", pa_get_library_version()}};
}

}  // namespace clipworks::engine
