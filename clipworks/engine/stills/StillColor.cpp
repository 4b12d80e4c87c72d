#include <clipworks/engine/stills/StillColor.h>

#include <lcms2.h>

#include <algorithm>
#include <array>
#include <memory>

#include <clipworks/engine/pictures/PictureResampler.h>

namespace clipworks::engine {
namespace {

constexpr cmsCIExyY whiteD65{0.3127, 0.3290, 1.0};
// SMPTE EG 432-1 and ITU-R BT.2020, as x, y and a luminance that is not used.
constexpr cmsCIExyYTRIPLE primariesP3{{0.680, 0.320, 1.0}, {0.265, 0.690, 1.0}, {0.150, 0.060, 1.0}};
constexpr cmsCIExyYTRIPLE primaries2020{{0.708, 0.292, 1.0}, {0.170, 0.797, 1.0}, {0.131, 0.046, 1.0}};
// IEC 61966-2-1 as parameters of ICC's function type 3: Y = (aX + b)^g from d on, else cX.
constexpr std::array<double, 5> curveOfSRGB{2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
constexpr int functionType = 4;  // lcms's number for ICC's type 3

// In a profile's header (ICC.1:2010, 7.2): when it was made.
constexpr std::size_t dateOffset = 24;
constexpr std::array<std::uint8_t, 12> fixedDate{0x07, 0xE8, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};  // the first day of 2024

struct CloseProfile {
  void operator()(void* profile) const { cmsCloseProfile(profile); }
};
struct FreeCurve {
  void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
};
struct FreeText {
  void operator()(cmsMLU* text) const { cmsMLUfree(text); }
};

void describe(cmsHPROFILE profile, cmsTagSignature tag, const char* words) {
  const std::unique_ptr<cmsMLU, FreeText> text(cmsMLUalloc(nullptr, 1));
  if (text == nullptr) return;
  cmsMLUsetASCII(text.get(), "en", "US", words);
  cmsWriteTag(profile, tag, text.get());
}

}  // namespace

StillGamut gamutOf(const AVFrame& frame) {
  switch (frame.color_primaries) {
    case AVCOL_PRI_SMPTE432:
    case AVCOL_PRI_SMPTE431:  // cinema's white is left aside: it would only tint the picture
      return StillGamut::displayP3;
    case AVCOL_PRI_BT2020:
      return StillGamut::bt2020;
    default:
      return StillGamut::sRGB;
  }
}

Expected<std::vector<std::uint8_t>> profileFor(const AVFrame& frame) {
  const StillGamut gamut = gamutOf(frame);
  if (gamut == StillGamut::sRGB) return {};
  const bool isP3 = gamut == StillGamut::displayP3;
  const std::unique_ptr<cmsToneCurve, FreeCurve> curve(
      cmsBuildParametricToneCurve(nullptr, functionType, curveOfSRGB.data()));
  std::array<cmsToneCurve*, 3> curves{curve.get(), curve.get(), curve.get()};
  const std::unique_ptr<void, CloseProfile> profile(
      cmsCreateRGBProfile(&whiteD65, isP3 ? &primariesP3 : &primaries2020, curves.data()));
  const auto impossible = [] { return failed(ErrorKind::internal, "a colour profile cannot be made"); };
  if (curve == nullptr || profile == nullptr) return impossible();
  describe(profile.get(), cmsSigProfileDescriptionTag, isP3 ? "Display P3" : "BT.2020 primaries, sRGB curve");
  describe(profile.get(), cmsSigCopyrightTag, "Public domain");
  cmsUInt32Number size = 0;
  if (!cmsSaveProfileToMem(profile.get(), nullptr, &size) || size < dateOffset + fixedDate.size()) return impossible();
  std::vector<std::uint8_t> bytes(size);
  if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size)) return impossible();
  std::copy(fixedDate.begin(), fixedDate.end(), bytes.begin() + dateOffset);
  return bytes;
}

YUVMeaning meaningOf(const AVFrame& frame) {
  YUVMeaning meaning;
  switch (frame.colorspace) {
    case AVCOL_SPC_BT709:
    case AVCOL_SPC_FCC:
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
    case AVCOL_SPC_SMPTE240M:
    case AVCOL_SPC_BT2020_NCL:
      meaning.matrix = frame.colorspace;
      break;
    case AVCOL_SPC_BT2020_CL:
      meaning.matrix = AVCOL_SPC_BT2020_NCL;
      break;
    default:
      // Pictures are upright here, so that the lines of a portrait video are its shorter side.
      meaning.matrix = std::min(frame.width, frame.height) >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
  }
  meaning.isFullRange = frame.color_range == AVCOL_RANGE_JPEG || plainKind(frame.format) != frame.format;
  if (frame.chroma_location != AVCHROMA_LOC_UNSPECIFIED) meaning.chromaLocation = frame.chroma_location;
  return meaning;
}

}  // namespace clipworks::engine
