#include <clipworks/engine/stills/ExifBlock.h>

#include <libexif/exif-data.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include <clipworks/engine/stills/RecordingFacts.h>
#include <clipworks/engine/stills/StillColor.h>

namespace clipworks::engine {
namespace {

constexpr std::size_t longestText = 1000;  // of a device's name; a whole block must fit a JPEG marker
constexpr ExifByteOrder byteOrder = EXIF_BYTE_ORDER_MOTOROLA;

struct ReleaseData {
  void operator()(ExifData* data) const { exif_data_unref(data); }
};
struct ReleaseMemory {
  void operator()(ExifMem* memory) const { exif_mem_unref(memory); }
};
struct ReleaseEntry {
  void operator()(ExifEntry* entry) const { exif_entry_unref(entry); }
};

/// Adds entries of chosen type and length, which the library itself does only for tags that it has rules for.
class Writer {
 public:
  explicit Writer(ExifData& data) : data_(data), memory_(exif_mem_new_default()) {
    if (memory_ == nullptr) throw std::bad_alloc();
  }

  void text(ExifIfd ifd, int tag, const std::string& value) {
    if (value.empty()) return;
    const std::string ended = value.substr(0, longestText);
    auto* bytes = add(ifd, tag, EXIF_FORMAT_ASCII, ended.size() + 1);
    std::memcpy(bytes, ended.c_str(), ended.size() + 1);
  }
  void bytes(ExifIfd ifd, int tag, ExifFormat format, std::initializer_list<std::uint8_t> values) {
    std::copy(values.begin(), values.end(), add(ifd, tag, format, values.size()));
  }
  void fractions(ExifIfd ifd, int tag, std::initializer_list<ExifRational> values) {
    auto* place = add(ifd, tag, EXIF_FORMAT_RATIONAL, values.size());
    for (const ExifRational& value : values) {
      exif_set_rational(place, byteOrder, value);
      place += exif_format_get_size(EXIF_FORMAT_RATIONAL);
    }
  }
  void shortNumber(ExifIfd ifd, int tag, ExifShort value) {
    exif_set_short(add(ifd, tag, EXIF_FORMAT_SHORT, 1), byteOrder, value);
  }
  void longNumber(ExifIfd ifd, int tag, ExifLong value) {
    exif_set_long(add(ifd, tag, EXIF_FORMAT_LONG, 1), byteOrder, value);
  }

 private:
  unsigned char* add(ExifIfd ifd, int tag, ExifFormat format, std::size_t count) {
    const std::unique_ptr<ExifEntry, ReleaseEntry> entry(exif_entry_new_mem(memory_.get()));
    const auto size = static_cast<ExifLong>(count * exif_format_get_size(format));
    auto* room = static_cast<unsigned char*>(exif_mem_alloc(memory_.get(), size));
    if (entry == nullptr || room == nullptr) throw std::bad_alloc();
    entry->tag = static_cast<ExifTag>(tag);
    entry->format = format;
    entry->components = count;
    entry->data = room;
    entry->size = size;
    exif_content_add_entry(data_.ifd[ifd], entry.get());
    return room;
  }

  ExifData& data_;
  std::unique_ptr<ExifMem, ReleaseMemory> memory_;
};

std::string printed(const char* form, int a, int b, int c, int d = 0, int e = 0, int f = 0) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), form, a, b, c, d, e, f);
  return text.data();
}

void writeTime(Writer& writer, const RecordingTime& time) {
  const std::string date =
      printed("%04d:%02d:%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour, time.minute, time.second);
  writer.text(EXIF_IFD_0, EXIF_TAG_DATE_TIME, date);
  writer.text(EXIF_IFD_EXIF, EXIF_TAG_DATE_TIME_ORIGINAL, date);
  writer.text(EXIF_IFD_EXIF, EXIF_TAG_DATE_TIME_DIGITIZED, date);
  if (!time.offsetMinutes) return;
  const int minutes = std::abs(*time.offsetMinutes);
  const std::string offset = printed("%c%02d:%02d", *time.offsetMinutes < 0 ? '-' : '+', minutes / 60, minutes % 60);
  for (const int tag : {EXIF_TAG_OFFSET_TIME, EXIF_TAG_OFFSET_TIME_ORIGINAL, EXIF_TAG_OFFSET_TIME_DIGITIZED}) {
    writer.text(EXIF_IFD_EXIF, tag, offset);
  }
}

void writeAngle(Writer& writer, int referenceTag, int tag, double degrees, const char* positive, const char* negative) {
  constexpr ExifLong parts = 10'000;  // of a second: 3 mm on the ground
  const auto total = static_cast<ExifLong>(std::lround(std::abs(degrees) * 3600 * parts));
  writer.text(EXIF_IFD_GPS, referenceTag, degrees < 0 ? negative : positive);
  writer.fractions(EXIF_IFD_GPS, tag,
                   {{total / parts / 3600, 1}, {total / parts / 60 % 60, 1}, {total % (60 * parts), parts}});
}

void writePlace(Writer& writer, const RecordingPlace& place) {
  writer.bytes(EXIF_IFD_GPS, EXIF_TAG_GPS_VERSION_ID, EXIF_FORMAT_BYTE, {2, 3, 0, 0});
  writeAngle(writer, EXIF_TAG_GPS_LATITUDE_REF, EXIF_TAG_GPS_LATITUDE, place.latitude, "N", "S");
  writeAngle(writer, EXIF_TAG_GPS_LONGITUDE_REF, EXIF_TAG_GPS_LONGITUDE, place.longitude, "E", "W");
  if (!place.altitude) return;
  constexpr ExifLong parts = 1000;
  const std::uint8_t belowSea = *place.altitude < 0 ? 1 : 0;
  writer.bytes(EXIF_IFD_GPS, EXIF_TAG_GPS_ALTITUDE_REF, EXIF_FORMAT_BYTE, {belowSea});
  writer.fractions(EXIF_IFD_GPS, EXIF_TAG_GPS_ALTITUDE,
                   {{static_cast<ExifLong>(std::lround(std::abs(*place.altitude) * parts)), parts}});
}

/// What EXIF wants in every compressed picture (2.32, 4.6.8).
void writePicture(Writer& writer, const AVFrame& frame) {
  constexpr ExifShort inches = 2;
  constexpr ExifShort centred = 1;
  constexpr ExifShort sRGB = 1;
  constexpr ExifShort uncalibrated = 0xFFFF;
  writer.fractions(EXIF_IFD_0, EXIF_TAG_X_RESOLUTION, {{72, 1}});
  writer.fractions(EXIF_IFD_0, EXIF_TAG_Y_RESOLUTION, {{72, 1}});
  writer.shortNumber(EXIF_IFD_0, EXIF_TAG_RESOLUTION_UNIT, inches);
  writer.shortNumber(EXIF_IFD_0, EXIF_TAG_YCBCR_POSITIONING, centred);
  writer.bytes(EXIF_IFD_EXIF, EXIF_TAG_EXIF_VERSION, EXIF_FORMAT_UNDEFINED, {'0', '2', '3', '2'});
  writer.bytes(EXIF_IFD_EXIF, EXIF_TAG_COMPONENTS_CONFIGURATION, EXIF_FORMAT_UNDEFINED, {1, 2, 3, 0});
  writer.bytes(EXIF_IFD_EXIF, EXIF_TAG_FLASH_PIX_VERSION, EXIF_FORMAT_UNDEFINED, {'0', '1', '0', '0'});
  writer.shortNumber(EXIF_IFD_EXIF, EXIF_TAG_COLOR_SPACE, gamutOf(frame) == StillGamut::sRGB ? sRGB : uncalibrated);
  writer.longNumber(EXIF_IFD_EXIF, EXIF_TAG_PIXEL_X_DIMENSION, static_cast<ExifLong>(frame.width));
  writer.longNumber(EXIF_IFD_EXIF, EXIF_TAG_PIXEL_Y_DIMENSION, static_cast<ExifLong>(frame.height));
}

}  // namespace

Expected<std::vector<std::uint8_t>> exifBlock(const StillImage& still) {
  const RecordingFacts facts = recordingFacts(still.metadata);
  if (facts.isEmpty()) return {};
  const std::unique_ptr<ExifData, ReleaseData> data(exif_data_new());
  if (data == nullptr) return failed(ErrorKind::outOfMemory, "out of memory for a still's metadata");
  exif_data_set_byte_order(data.get(), byteOrder);
  Writer writer(*data);
  writer.text(EXIF_IFD_0, EXIF_TAG_MAKE, facts.make);
  writer.text(EXIF_IFD_0, EXIF_TAG_MODEL, facts.model);
  writer.text(EXIF_IFD_0, EXIF_TAG_SOFTWARE, facts.software);
  writePicture(writer, *still.frame);
  if (facts.time) writeTime(writer, *facts.time);
  if (facts.place) writePlace(writer, *facts.place);

  unsigned char* bytes = nullptr;
  unsigned length = 0;
  exif_data_save_data(data.get(), &bytes, &length);
  const std::unique_ptr<unsigned char, decltype(&std::free)> owner(bytes, &std::free);
  if (bytes == nullptr || length <= exifPrefix.size()) {
    return failed(ErrorKind::internal, "a still's metadata cannot be written");
  }
  return std::vector<std::uint8_t>(bytes + exifPrefix.size(), bytes + length);
}

}  // namespace clipworks::engine
