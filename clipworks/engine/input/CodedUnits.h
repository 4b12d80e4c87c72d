#pragma once

#include <cstdint>
#include <optional>

#include <clipworks/engine/FFmpeg.h>

namespace clipworks::engine {

/// The head of a NAL unit of H.264 or HEVC.
struct CodedUnit {
  int type = 0;                           ///< nal_unit_type
  int referenceIdc = 0;                   ///< nal_ref_idc of H.264; 0 for HEVC
  int layer = 0;                          ///< nuh_layer_id of HEVC
  int temporalLayer = 0;                  ///< TemporalId of HEVC
  const std::uint8_t* payload = nullptr;  ///< behind the head
  std::int64_t payloadBytes = 0;
};

/// Walks the units of a coded sample in the file's own form: lengths before its units (ISO/IEC 14496-15). Of samples in
/// any other form, and of other codecs, there are none. Never reads beyond the sample, whatever it says.
class CodedUnits {
 public:
  CodedUnits(const AVPacket& packet, const AVCodecParameters& parameters);
  [[nodiscard]] std::optional<CodedUnit> next();
  /// Whether the units handed out so far are the whole sample.
  [[nodiscard]] bool isWhole() const { return whole_ && at_ == size_; }

 private:
  const std::uint8_t* data_;
  std::int64_t size_;
  int prefix_;  // bytes of the length before each unit; 0 for start codes
  bool avc_;
  std::int64_t at_ = 0;
  bool whole_ = true;
};

/// The build of the encoder x264 that a coded sample of H.264 says it comes from (user data of ITU-T H.264, D.1.7: a
/// UUID, then "x264 - core NNN …"); nothing where it says none. Old builds made pictures that only decode right by a
/// decoder that knows, and only the first sample of a stream says so.
[[nodiscard]] std::optional<int> x264BuildIn(const AVPacket& sample);

/// Whether a coded access point in the file's own form lets nothing after it refer to what comes before: an IDR picture
/// of H.264 or HEVC (ITU-T H.264, 7.4.1.2.4; H.265, 7.4.2.2). Of other codecs every access point does.
[[nodiscard]] bool isClosedAccessPoint(const AVPacket& packet, const AVCodecParameters& parameters);

/// Whether decoding may begin at a coded access point when the pictures that are shown before it are left out: any of
/// HEVC, since no later picture refers to leading ones (ITU-T H.265, 3.75 and 8.1.3), a closed one of others.
[[nodiscard]] bool isDecodingStart(const AVPacket& packet, const AVCodecParameters& parameters);

/// Makes an access point of HEVC behind which pictures are left out that are decoded after, but shown before it, one
/// at which decoding starts anew wherever it stands: of a CRA picture a BLA picture without leading ones (ITU-T H.265,
/// 7.4.2.2, and table 7-1). What is no CRA picture in the form of `parameters` stays.
void startAnew(AVPacket& packet, const AVCodecParameters& parameters);

/// Tells the coded pictures that can be left out without changing any other one. For the samples of one track.
class DisposablePictures {
 public:
  /// The parameters must outlive this.
  explicit DisposablePictures(const AVCodecParameters& parameters);

  /// Whether nothing refers to the picture (ITU-T H.264, 7.4.1, nal_ref_idc; H.265, table 7-1: a sub-layer
  /// non-reference picture of the highest sub-layer), and the sample carries nothing else that counts later, such as
  /// parameter sets. False when in doubt, and for other codecs. To be asked in decoding order.
  [[nodiscard]] bool isDisposable(const AVPacket& packet);

 private:
  [[nodiscard]] bool isDisposableUnit(const CodedUnit& unit);

  const AVCodecParameters* parameters_;
  int highestTemporalLayer_;  // of HEVC, by its sequence parameter sets; beyond all as long as none was seen
};

}  // namespace clipworks::engine
