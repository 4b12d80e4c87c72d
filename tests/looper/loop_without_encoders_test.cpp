#include <clipworks/looper/VideoLooperUtils.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clipworks/filedeck/FileSystem.h>
#include <clipworks/foundation/HEVCSupport.h>
#include <clipworks/media/dispatch/DispatchQueue.h>
#include <clipworks/media/export/AVAssetExportSession.h>
#include <clipworks/media/export/EncoderAvailability.h>

#include <tests/support/BarCodeClip.h>
#include <tests/support/MediaJudge.h>
#include <tests/support/PrintedLinesCapture.h>
#include <tests/support/TemporaryDirectory.h>

// A process of its own: whether there is HEVC is remembered, and what is withheld stays withheld.

namespace clipworks::test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;
using ExportResult = Result<URL, VideoLooperUtils::VideoLooperError>;

TEST(LoopWithoutEncoders, FallsBackToH264AndThenToSilence) {
  constexpr unsigned h264Code = 0x61766331;  // 'avc1'
  constexpr unsigned hevcCode = 0x68766331;  // 'hvc1'
  const TemporaryDirectory outputs;
  FileSystem::shared().setOutputsURL(URL(outputs.path()));
  const BarCodeClip clip({.width = 160, .height = 90, .frames = 30, .videoCodec = "mpeg4"});
  const auto looper = VideoLooperUtils::make(URL(clip.path()));
  looper->createLoopComposition(2, [](const auto& result) { ASSERT_TRUE(result); });

  EncoderAvailability::withhold(VideoCodecKind::hevc);
  EXPECT_NE(VTCopySupportedPropertyDictionaryForEncoder(1920, 1080, hevcCode), 0);
  EXPECT_EQ(VTCopySupportedPropertyDictionaryForEncoder(1920, 1080, h264Code), 0);
  EXPECT_FALSE(HEVCSupport::hasHEVCHardwareEncoder());
  EXPECT_EQ(AVAssetExportSession::make(looper->composition(), AVAssetExportPresetHEVCHighestQuality), nullptr);
  std::optional<ExportResult> got;
  looper->exportCurrentComposition([&](const ExportResult& result) { got = result; });
  ASSERT_TRUE(DispatchQueue::main().runOne(std::chrono::seconds(100))) << "no result came to the main queue";
  ASSERT_TRUE(got && *got);
  EXPECT_EQ(MediaJudge((*got)->path()).stream("video").codec, "h264");
  std::filesystem::remove((*got)->path());

  EncoderAvailability::withhold(VideoCodecKind::h264);
  const PrintedLinesCapture printed;
  bool called = false;
  std::shared_ptr<int> captured = std::make_shared<int>();
  const std::weak_ptr<int> alive = captured;
  looper->exportCurrentComposition([&called, held = std::move(captured)](const ExportResult&) { called = true; });
  EXPECT_TRUE(alive.expired()) << "the completion is destroyed at once";
  EXPECT_EQ(DispatchQueue::main().drain(), 0U);
  EXPECT_FALSE(called);
  EXPECT_THAT(printed.lines(), ElementsAre(StartsWith("Current capacity: ")));
  EXPECT_TRUE(AVAssetExportSession::liveSessions().empty());
  EXPECT_TRUE(std::filesystem::is_empty(outputs.path()));
  EXPECT_NE(AVAssetExportSession::make(looper->composition(), AVAssetExportPresetPassthrough), nullptr)
      << "copying needs no encoder";
}

}  // namespace
}  // namespace clipworks::test
