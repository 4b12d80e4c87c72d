#include "ExportTesting.h"

#include <map>
#include <thread>

#include <gtest/gtest.h>

namespace clipworks::test {

std::function<void()> Completion::handler() {
  return [called = called_] { called->set_value(); };
}

bool Completion::wait() { return called_->get_future().wait_for(patience) == std::future_status::ready; }

bool waitUntil(const std::function<bool()>& happened) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!happened()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

std::string Exported::failure() const {
  if (status == AVAssetExportSessionStatus::completed) return "";
  return "status " + std::to_string(static_cast<int>(status)) + ", " + (error ? error->description() : "no error");
}

Exported exportAsset(const std::shared_ptr<AVAsset>& asset, std::string_view preset, const std::filesystem::path& path,
                     const std::function<void(AVAssetExportSession&)>& configure) {
  const auto session = AVAssetExportSession::make(asset, preset);
  if (session == nullptr) return {};
  session->setOutputURL(URL(path));
  if (configure) configure(*session);
  Completion completion;
  session->exportAsynchronously(completion.handler());
  EXPECT_TRUE(completion.wait()) << "the export did not end";
  return {session->status(), session->error(), session->exportedTracks()};
}

std::shared_ptr<AVMutableComposition> loopOf(const std::filesystem::path& clip, int count) {
  const auto asset = AVAsset::make(URL(clip));
  const auto composition = AVMutableComposition::make();
  const CMTime length(asset->duration().seconds(), asset->duration().timescale);
  for (const auto type : {AVMediaTypeVideo, AVMediaTypeAudio}) {
    const auto sources = asset->tracks(type);
    if (sources.empty()) continue;
    const auto track = composition->addMutableTrack(type, kCMPersistentTrackID_Invalid);
    track->setPreferredTransform(sources.front()->preferredTransform());
    for (int i = 0; i < count; ++i) {
      const auto inserted = track->insertTimeRange({kCMTimeZero, length}, sources.front(), CMTimeMultiply(length, i));
      EXPECT_TRUE(inserted) << inserted.error().description();
    }
  }
  return composition;
}

std::shared_ptr<AVMutableComposition> cutOf(const std::vector<Part>& parts, AVMediaType type) {
  const auto composition = AVMutableComposition::make();
  const auto track = composition->addMutableTrack(type, kCMPersistentTrackID_Invalid);
  std::map<std::filesystem::path, std::shared_ptr<AVAsset>> assets;
  CMTime end = kCMTimeZero;
  for (const auto& [clip, from, to] : parts) {
    auto& asset = assets[clip];
    if (asset == nullptr) asset = AVAsset::make(URL(clip));
    const CMTimeRange range(CMTime(from, 1000), CMTime(to - from, 1000));
    EXPECT_TRUE(track->insertTimeRange(range, asset->tracks(type).at(0), end));
    end = end + range.duration;
  }
  return composition;
}

double lengthOf(const std::filesystem::path& clip) {
  const MediaJudge judge(clip);
  if (clip.extension() != ".mp4" && clip.extension() != ".mov") return judge.duration();
  const auto [value, timescale] = judge.movieHeaderDuration();
  return static_cast<double>(value) / static_cast<double>(timescale);
}

std::vector<SeenPicture> loopedPictures(const std::vector<double>& times, double length, int count) {
  std::vector<SeenPicture> pictures;
  for (int copy = 0; copy < count; ++copy) {
    for (std::size_t i = 0; i < times.size() && times[i] < length; ++i) {
      pictures.push_back({copy * length + times[i], static_cast<int>(i), {}});
    }
  }
  return pictures;
}

void expectPictures(const std::vector<SeenPicture>& got, const std::vector<SeenPicture>& expected, double tolerance) {
  ASSERT_EQ(numbersOf(got), numbersOf(expected));
  for (std::size_t i = 0; i < got.size(); ++i) {
    ASSERT_NEAR(got[i].seconds, expected[i].seconds, tolerance) << "picture " << i << " of the output";
  }
}

std::vector<std::string> filesIn(const std::filesystem::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) names.push_back(entry.path().filename());
  return names;
}

}  // namespace clipworks::test
