#include <clipworks/looper/VideoLooperUtils.h>

#include <clipworks/foundation/HEVCSupport.h>
#include <clipworks/media/export/EncoderAvailability.h>
#include <tests/support/OperationTest.h>

// A process of its own: whether there is HEVC is remembered, and what is withheld stays withheld.

namespace clipworks::test {
namespace {

using Exported = Result<URL, VideoLooperError>;

using LoopWithoutEncoders = OperationTest;

TEST_F(LoopWithoutEncoders, FallsBackToH264AndThenToSilence) {
  const auto looper = VideoLooperUtils::make(urlOf({.width = 160, .height = 90, .frames = 30, .videoCodec = "mpeg4"}));
  looper->createLoopComposition(2, [](const auto& result) { ASSERT_TRUE(result); });

  EncoderAvailability::withhold(VideoCodecKind::hevc);
  EXPECT_EQ(VTCopySupportedPropertyDictionaryForEncoder(1920, 1080, 0x61766331), 0) << "'avc1'";
  EXPECT_FALSE(HEVCSupport::hasHEVCHardwareEncoder());
  EXPECT_EQ(AVAssetExportSession::make(looper->composition(), AVAssetExportPresetHEVCHighestQuality), nullptr);
  const auto made = later<Exported>([&](auto done) { looper->exportCurrentComposition(done); }).value().path();
  EXPECT_EQ(MediaJudge(made).stream("video").codec, "h264");
  std::filesystem::remove(made);

  EncoderAvailability::withhold(VideoCodecKind::h264);
  auto captured = std::make_shared<int>();
  const std::weak_ptr<int> alive = captured;
  looper->exportCurrentComposition([held = std::move(captured)](const Exported&) { ADD_FAILURE() << "called"; });
  EXPECT_TRUE(alive.expired()) << "the completion is destroyed at once";
  EXPECT_EQ(DispatchQueue::main().drain(), 0U);
  EXPECT_THAT(printed_.lines(), testing::Each(testing::StartsWith("Current capacity: ")));
  EXPECT_EQ(printed_.lines().size(), 2U);
  EXPECT_TRUE(AVAssetExportSession::liveSessions().empty());
  EXPECT_TRUE(std::filesystem::is_empty(outputs_.path()));
  EXPECT_NE(AVAssetExportSession::make(looper->composition(), AVAssetExportPresetPassthrough), nullptr)
      << "copying needs no encoder";
}

}  // namespace
}  // namespace clipworks::test
