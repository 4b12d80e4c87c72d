#pragma once

#include <map>

#include <clipworks/media/composition/AVMutableComposition.h>
#include <clipworks/media/export/AVAssetExportSession.h>

#include <tests/media/MediaTesting.h>

// What tests of exports share.

namespace clipworks::test {

using Session = AVAssetExportSession;
using Status = AVAssetExportSessionStatus;
constexpr auto toH264 = AVAssetExportPresetHighestQuality;
constexpr auto toHEVC = AVAssetExportPresetHEVCHighestQuality;
constexpr auto toLow = AVAssetExportPresetLowQuality;
constexpr auto passedThrough = AVAssetExportPresetPassthrough;

/// Starts the session, lets `meanwhile` happen, and waits for the end.
inline void run(
    Session& session, const std::function<void()>& meanwhile = [] {}) {
  const auto called = std::make_shared<std::promise<void>>();
  session.exportAsynchronously([called] { called->set_value(); });
  meanwhile();
  EXPECT_EQ(called->get_future().wait_for(patience), std::future_status::ready) << "the export did not end";
}

/// How an export into a directory of its own ended.
struct Exported {
  Status status = Status::unknown;
  std::string failure = "no session";  ///< empty when it completed
  std::vector<ExportedTrack> tracks{};
  std::shared_ptr<TemporaryDirectory> directory = std::make_shared<TemporaryDirectory>();
  fs::path path = directory->file("out.mp4");
  MediaJudge output{path};
};

/// Exports `asset` and waits for the end.
inline Exported tryToExport(
    const std::shared_ptr<AVAsset>& asset, std::string_view preset = toH264,
    const std::function<void(Session&)>& configure = [](Session&) {}) {
  Exported exported;
  const auto session = Session::make(asset, preset);
  if (session == nullptr) return exported;
  session->setOutputURL(URL(exported.path));
  configure(*session);
  run(*session);
  exported.status = session->status();
  exported.failure = failureOf(session->error());
  if (exported.failure.empty() && exported.status != Status::completed) exported.failure = "no error";
  exported.tracks = session->exportedTracks();
  return exported;
}

/// The same, which has to succeed.
inline Exported exportAsset(
    const std::shared_ptr<AVAsset>& asset, std::string_view preset = toH264,
    const std::function<void(Session&)>& configure = [](Session&) {}) {
  Exported exported = tryToExport(asset, preset, configure);
  EXPECT_EQ(exported.failure, "");
  return exported;
}

/// The whole clip `count` times in a row: its first track of pictures with its transform, and its first of sound where
/// there is one.
inline std::shared_ptr<AVMutableComposition> loopOf(const fs::path& clip, int count, const InputLimits& limits = {}) {
  const auto asset = assetAt(clip, limits);
  const auto composition = AVMutableComposition::make();
  const CMTime length(asset->duration().seconds(), asset->duration().timescale);
  for (const auto type : {AVMediaTypeVideo, AVMediaTypeAudio}) {
    const auto sources = asset->tracks(type);
    if (sources.empty()) continue;
    const auto track = composition->addMutableTrack(type, kCMPersistentTrackID_Invalid);
    track->setPreferredTransform(sources.front()->preferredTransform());
    for (int i = 0; i < count; ++i) {
      const auto inserted = track->insertTimeRange({kCMTimeZero, length}, sources.front(), CMTimeMultiply(length, i));
      EXPECT_EQ(failureOf(inserted), "");
    }
  }
  return composition;
}

/// A stretch of a clip, in milliseconds.
struct Part {
  fs::path clip;
  std::int64_t from;
  std::int64_t to;
};

inline CMTime at(std::int64_t milliseconds) { return {milliseconds, 1000}; }
inline CMTimeRange span(std::int64_t from, std::int64_t to) { return {at(from), at(to - from)}; }

/// The pictures of `parts` one after another on one track.
inline std::shared_ptr<AVMutableComposition> cutOf(const std::vector<Part>& parts) {
  const auto composition = AVMutableComposition::make();
  const auto track = composition->addMutableTrack(AVMediaTypeVideo, kCMPersistentTrackID_Invalid);
  std::map<fs::path, std::shared_ptr<AVAsset>> assets;
  CMTime end = kCMTimeZero;
  for (const auto& [clip, from, to] : parts) {
    auto& asset = assets.try_emplace(clip, assetAt(clip)).first->second;
    EXPECT_TRUE(track->insertTimeRange(span(from, to), asset->tracks(AVMediaTypeVideo).at(0), end));
    end = end + at(to - from);
  }
  return composition;
}

/// The length of an MP4 or QuickTime file by its movie header, of others by ffprobe; in seconds.
inline double lengthOf(const fs::path& clip) {
  const MediaJudge judge(clip);
  if (clip.extension() != ".mp4" && clip.extension() != ".mov") return judge.duration();
  const auto [value, timescale] = judge.movieHeaderDuration();
  return static_cast<double>(value) / static_cast<double>(timescale);
}

inline ClipOptions small(ClipOptions options) {
  options.width = 160;
  options.height = 90;
  return options;
}

/// What `clip`'s pictures, at their `times`, make when it plays `count` times in a row.
inline std::vector<SeenPicture> loopedPictures(const std::vector<double>& times, double length, int count) {
  std::vector<SeenPicture> pictures;
  for (int copy = 0; copy < count; ++copy) {
    for (std::size_t i = 0; i < times.size() && times[i] < length; ++i) {
      pictures.push_back({copy * length + times[i], static_cast<int>(i), {}});
    }
  }
  return pictures;
}

/// Fails the test for each picture that is another, or more than `tolerance` seconds away from its time.
inline void expectPictures(const std::vector<SeenPicture>& got, const std::vector<SeenPicture>& expected,
                           double tolerance) {
  ASSERT_EQ(numbersOf(got), numbersOf(expected));
  for (std::size_t i = 0; i < got.size(); ++i) {
    ASSERT_NEAR(got[i].seconds, expected[i].seconds, tolerance) << "picture " << i << " of the output";
  }
}

/// Every sample is decoded after the one before it, and no later than it is shown.
inline void expectDecodable(const std::vector<CodedSample>& samples) {
  for (std::size_t i = 0; i < samples.size(); ++i) {
    ASSERT_LE(samples[i].decode, samples[i].presentation) << "sample " << i;
    ASSERT_TRUE(i == 0 || samples[i - 1].decode < samples[i].decode) << "sample " << i;
  }
}

}  // namespace clipworks::test
