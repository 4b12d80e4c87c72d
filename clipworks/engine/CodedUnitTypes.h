#pragma once

/// nal_unit_type of H.264: ITU-T H.264, table 7-1.
namespace clipworks::engine::avc {

inline constexpr int slice = 1;
inline constexpr int idrSlice = 5;
inline constexpr int supplement = 6;
inline constexpr int sequenceParameters = 7;
inline constexpr int pictureParameters = 8;
inline constexpr int delimiter = 9;
inline constexpr int filler = 12;

}  // namespace clipworks::engine::avc

/// nal_unit_type of HEVC: ITU-T H.265, table 7-1.
namespace clipworks::engine::hevc {

inline constexpr int lastNonReference = 8;  // TRAIL_N, TSA_N, STSA_N, RADL_N, RASL_N are even
inline constexpr int firstAccessPoint = 16;
inline constexpr int brokenWithoutLeading = 18;  // BLA_N_LP
inline constexpr int idrWithLeading = 19;
inline constexpr int idr = 20;
inline constexpr int cleanAccess = 21;  // CRA
inline constexpr int lastReservedAccessPoint = 23;
inline constexpr int firstNonPicture = 32;
inline constexpr int videoParameters = 32;
inline constexpr int sequenceParameters = 33;
inline constexpr int pictureParameters = 34;
inline constexpr int delimiter = 35;
inline constexpr int filler = 38;
inline constexpr int supplementBefore = 39;
inline constexpr int supplementAfter = 40;
inline constexpr int firstUnspecified = 48;

}  // namespace clipworks::engine::hevc
