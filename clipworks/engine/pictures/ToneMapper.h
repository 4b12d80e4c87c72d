#pragma once

#include <memory>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/Handles.h>
#include <clipworks/engine/pictures/Colour.h>

namespace clipworks::engine {

/// Turns pictures of high dynamic range into 8-bit 4:2:0 ones of BT.709, video range, by the curve of BT.2390: a white
/// sheet of paper (203 cd/m², BT.2408) becomes nearly white, greys keep their order, hues stay (as Oklab has them): a
/// colour that BT.709 does not have becomes the one of its hue that is nearest on the way to a grey about as bright.
/// The brightness of a PQ programme is taken from its metadata, 1000 cd/m² where there is none. The table behind it is
/// made with the first picture and made again when what pictures say of their colours changes. One thread at a time.
class ToneMapper {
 public:
  ToneMapper();
  ToneMapper(ToneMapper&&) noexcept;
  ToneMapper& operator=(ToneMapper&&) noexcept;
  ~ToneMapper();

  /// A new picture of the same size, tagged BT.709; times and side data of `picture` are kept but for HDR metadata.
  /// Fails with `unsupported` for pixels that are not YUV, for a transfer other than PQ and HLG, and for a matrix or
  /// primaries that nothing here knows.
  [[nodiscard]] Expected<Frame> map(const Frame& picture);

 private:
  struct Table;
  [[nodiscard]] Expected<Frame> withHalvedChroma(const Frame& picture);
  [[nodiscard]] Expected<void> prepare(const AVFrame& picture);

  std::unique_ptr<Table> table_;
};

}  // namespace clipworks::engine
