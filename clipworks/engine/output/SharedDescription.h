#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/FFmpeg.h>
#include <clipworks/engine/Handles.h>

namespace clipworks::engine {

/// One description (ISO/IEC 14496-15, `avcC` or `hvcC`) for copied samples of H.264 or HEVC and for encoded ones that
/// stand among them: it holds the parameter sets of both, those of the encoder under numbers that the copied samples do
/// not use. Decoders change from one set to the other where an access point names it (ITU-T H.264, 7.4.1.2.1; H.265,
/// 7.4.2.4.2). One thread at a time.
class SharedDescription {
 public:
  /// For samples of `copied`. Fails with `unsupported` and why not in a few words where no encoder here makes samples
  /// that could stand among them.
  [[nodiscard]] static Expected<SharedDescription> of(const AVCodecParameters& copied);

  /// The number for the encoder's parameter sets, where it is the encoder that gives it: of H.264.
  [[nodiscard]] int parameterSetNumber() const { return number_; }
  /// What a decoder of the copied samples has to master, as the libraries count: the encoder must not ask for more.
  [[nodiscard]] int profile() const { return profile_; }

  /// The description of both; `encoded` is the encoder's format, with start codes before its parameter sets.
  [[nodiscard]] Expected<CodecParameters> with(const AVCodecParameters& encoded) const;
  /// An encoded sample with start codes, in the form of the copied ones. Its times and flags stay.
  [[nodiscard]] Expected<Packet> asCopied(const AVPacket& encoded) const;

 private:
  using Bytes = std::vector<std::uint8_t>;
  struct ParameterSet {
    int type = 0;  // nal_unit_type
    Bytes unit;    // with its head
  };
  SharedDescription() = default;
  [[nodiscard]] Bytes avcRecordWith(const std::vector<ParameterSet>& sets) const;
  [[nodiscard]] Bytes hevcRecordWith(const std::vector<ParameterSet>& sets) const;

  bool avc_ = false;
  int profile_ = 0;
  int number_ = 0;
  CodecParameters copied_;
  std::vector<ParameterSet> sets_;  // of the copied samples
};

}  // namespace clipworks::engine
