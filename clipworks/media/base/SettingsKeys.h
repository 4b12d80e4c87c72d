#pragma once

#include <cstdint>

/// Keys and values of settings dictionaries, by the platform's names.
namespace clipworks {

/// Four characters as the number that names a format.
[[nodiscard]] constexpr std::uint32_t fourCharacterCode(const char (&code)[5]) {
  const auto byte = [&code](int i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(code[i])); };
  return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
}

// Pictures.

/// Which codec: `AVVideoCodecTypeH264` or `AVVideoCodecTypeHEVC`.
inline constexpr const char* AVVideoCodecKey = "AVVideoCodecKey";
inline constexpr const char* AVVideoCodecTypeH264 = "avc1";
inline constexpr const char* AVVideoCodecTypeHEVC = "hvc1";
/// Pixels, a number of any kind; a fraction is rounded to the nearest integer.
inline constexpr const char* AVVideoWidthKey = "AVVideoWidthKey";
inline constexpr const char* AVVideoHeightKey = "AVVideoHeightKey";
/// What happens to pictures of another size.
inline constexpr const char* AVVideoScalingModeKey = "AVVideoScalingModeKey";
/// Stretched to the size; the default.
inline constexpr const char* AVVideoScalingModeResize = "AVVideoScalingModeResize";
/// Scaled keeping their shape until they fill the size, what sticks out is cropped.
inline constexpr const char* AVVideoScalingModeResizeAspectFill = "AVVideoScalingModeResizeAspectFill";
/// A dictionary for the encoder, with the keys below.
inline constexpr const char* AVVideoCompressionPropertiesKey = "AVVideoCompressionPropertiesKey";
/// Bits a second, a number of any kind; 0, or no such key, is constant quality.
inline constexpr const char* AVVideoAverageBitRateKey = "AVVideoAverageBitRateKey";
/// Which profile: High is what the encoders here use in any case.
inline constexpr const char* AVVideoProfileLevelKey = "AVVideoProfileLevelKey";
inline constexpr const char* AVVideoProfileLevelH264HighAutoLevel = "AVVideoProfileLevelH264HighAutoLevel";
/// Pictures a second, for the rate control; by default the distance of the first two tells.
inline constexpr const char* AVVideoExpectedSourceFrameRateKey = "AVVideoExpectedSourceFrameRateKey";

/// Of pixel buffers: which kind of pixels, by the codes below.
inline constexpr const char* kCVPixelBufferPixelFormatTypeKey = "kCVPixelBufferPixelFormatTypeKey";
/// Luma, then both chromas side by side, full range.
inline constexpr std::uint32_t kCVPixelFormatType_420YpCbCr8BiPlanarFullRange = fourCharacterCode("420f");
/// The same in video range.
inline constexpr std::uint32_t kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange = fourCharacterCode("420v");
/// Blue, green, red, alpha.
inline constexpr std::uint32_t kCVPixelFormatType_32BGRA = fourCharacterCode("BGRA");

/// Attachments of pixel buffers: how their numbers are, or were, meant. Code points of ITU-T H.273, as integers.
inline constexpr const char* kCVImageBufferYCbCrMatrixKey = "kCVImageBufferYCbCrMatrixKey";
inline constexpr const char* kCVImageBufferColorPrimariesKey = "kCVImageBufferColorPrimariesKey";
inline constexpr const char* kCVImageBufferTransferFunctionKey = "kCVImageBufferTransferFunctionKey";
/// Whether video made from the pixels shall have full range.
inline constexpr const char* kCVImageBufferFullRangeKey = "kCVImageBufferFullRangeKey";

// Sound.

/// Which format, by the codes below.
inline constexpr const char* AVFormatIDKey = "AVFormatIDKey";
inline constexpr std::uint32_t kAudioFormatLinearPCM = fourCharacterCode("lpcm");
inline constexpr std::uint32_t kAudioFormatMPEG4AAC = fourCharacterCode("aac ");
/// Hertz.
inline constexpr const char* AVSampleRateKey = "AVSampleRateKey";
inline constexpr const char* AVNumberOfChannelsKey = "AVNumberOfChannelsKey";
/// Bits a second, of all channels.
inline constexpr const char* AVEncoderBitRateKey = "AVEncoderBitRateKey";
/// Bytes that describe the channels; empty is the usual layout of their number.
inline constexpr const char* AVChannelLayoutKey = "AVChannelLayoutKey";
/// Of linear PCM: bits a sample, and how they are stored.
inline constexpr const char* AVLinearPCMBitDepthKey = "AVLinearPCMBitDepthKey";
inline constexpr const char* AVLinearPCMIsBigEndianKey = "AVLinearPCMIsBigEndianKey";
inline constexpr const char* AVLinearPCMIsFloatKey = "AVLinearPCMIsFloatKey";

}  // namespace clipworks
