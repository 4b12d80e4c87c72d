#pragma once

#include <string_view>

namespace clipworks {

/// What a track carries. Cover art, timed metadata, hint, timecode and subtitle tracks are not listed.
enum class AVMediaType { video, audio };
inline constexpr AVMediaType AVMediaTypeVideo = AVMediaType::video;
inline constexpr AVMediaType AVMediaTypeAudio = AVMediaType::audio;

/// Container formats of written files, by their uniform type identifiers.
using AVFileType = std::string_view;
inline constexpr AVFileType AVFileTypeMPEG4 = "public.mpeg-4";
inline constexpr AVFileType AVFileTypeQuickTimeMovie = "com.apple.quicktime-movie";
inline constexpr AVFileType AVFileTypeAppleM4A = "com.apple.m4a-audio";

/// Chosen by the composition: pass it as `preferredTrackID` to let the composition number the track.
using CMPersistentTrackID = int;
inline constexpr CMPersistentTrackID kCMPersistentTrackID_Invalid = 0;

}  // namespace clipworks
