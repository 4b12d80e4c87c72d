#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <numeric>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/engine/input/MediaFile.h>
#include <clipworks/engine/pictures/FramePadding.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

// What tests of the engine share, and the headers that most of them need.

namespace clipworks::engine {

using test::fileBytes;
using test::writeTo;

/// What was made; fails the test with the error's sentence when there is none.
template <class T>
T must(Expected<T> made) {
  if (!made) throw std::runtime_error(made.error().sentence);
  return std::move(made).value();
}
inline void must(const Expected<void>& done) {
  if (!done) throw std::runtime_error(done.error().sentence);
}

/// Runs the ffmpeg program; `more` comes before the last argument. Fails the test with the program's words.
inline void runFFmpeg(std::vector<std::string> arguments, const std::vector<std::string>& more = {}) {
  arguments.insert(arguments.end() - 1, more.begin(), more.end());
  arguments.insert(arguments.begin(), {"ffmpeg", "-v", "error", "-y"});
  const auto made = test::runProgram(arguments);
  if (!made.succeeded()) throw std::runtime_error(made.standardError);
}

/// The first stream of a kind; null when the file has none.
inline const StreamFacts* streamOf(const MediaFile& file, StreamKind kind) {
  const auto found = std::ranges::find(file.streams(), kind, &StreamFacts::kind);
  return found == file.streams().end() ? nullptr : &*found;
}

/// A big-endian number; negative ones in two's complement.
inline std::string bigEndian(std::uint64_t value, int bytes = 4) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) text += static_cast<char>(value >> shift & 0xff);
  return text;
}

inline Packet packetOf(const std::string& bytes) {
  Packet packet = makePacket();
  av_new_packet(packet.get(), static_cast<int>(bytes.size()));
  std::ranges::copy(bytes, packet->data);
  return packet;
}

inline const AVPixFmtDescriptor& pixelsOf(const AVFrame& frame) {
  return *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
}
inline int columnsOf(const AVFrame& frame, int plane) {
  return plane == 0 ? frame.width : AV_CEIL_RSHIFT(frame.width, pixelsOf(frame).log2_chroma_w);
}
inline int rowsOf(const AVFrame& frame, int plane) {
  return plane == 0 ? frame.height : AV_CEIL_RSHIFT(frame.height, pixelsOf(frame).log2_chroma_h);
}
inline std::uint8_t* rowOf(const AVFrame& frame, int plane, int y) {
  return frame.data[plane] + static_cast<std::ptrdiff_t>(y) * frame.linesize[plane];
}
inline int sampleAt(const AVFrame& frame, int plane, int x, int y) {
  const auto* row = rowOf(frame, plane, y);
  return pixelsOf(frame).comp[0].depth > 8 ? reinterpret_cast<const std::uint16_t*>(row)[x] : row[x];
}

/// Looks at each sample of the first three planes, until the test has failed for good.
template <class Look>
void forEachSample(const AVFrame& frame, Look look) {
  for (int plane = 0; plane < 3; ++plane)
    for (int y = 0; y < rowsOf(frame, plane); ++y)
      for (int x = 0; x < columnsOf(frame, plane) && !testing::Test::HasFatalFailure(); ++x) look(plane, x, y);
}

/// A picture whose bytes are all 0, as av_write_image_line2 needs it.
inline Frame emptyPicture(int width, int height, AVPixelFormat format) {
  Frame frame = must(allocateFrame(width, height, format));
  for (const auto* buffer : frame->buf)
    if (buffer != nullptr) std::fill_n(buffer->data, buffer->size, std::uint8_t{0});
  return frame;
}

/// A picture whose samples hold what `level` says of their plane and place.
inline Frame painted(int width, int height, AVPixelFormat format, const std::function<double(int, int, int)>& level) {
  Frame frame = must(allocateFrame(width, height, format));
  const bool isWide = pixelsOf(*frame).comp[0].depth > 8;
  forEachSample(*frame, [&](int plane, int x, int y) {
    auto* const row = rowOf(*frame, plane, y);
    const auto value = static_cast<std::uint16_t>(std::lround(level(plane, x, y)));
    if (isWide) reinterpret_cast<std::uint16_t*>(row)[x] = value;
    if (!isWide) row[x] = static_cast<std::uint8_t>(value);
  });
  return frame;
}

}  // namespace clipworks::engine
