// What is compared of a finished movie with its plan.

#include <gtest/gtest.h>

#include <functional>

#include <clipworks/edit/Chain.h>
#include <clipworks/edit/Plan.h>
#include <clipworks/engine/pipeline/ExportJob.h>
#include <clipworks/engine/pipeline/Verification.h>
#include <tests/support/BarCodeClip.h>
#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {
namespace {

TEST(Verification, FindsEachKindOfDifference) {
  const TemporaryDirectory directory;
  const BarCodeClip clip({.frames = 90});
  const auto edit = Chain(clip.path()).trim({{0.31, 1.5}, {1.8, 2.9}}).edit();
  ASSERT_TRUE(edit) << edit.error().sentence;
  const auto planned = plan(*edit);
  const auto made = makeMovie(*edit, directory.file("a.mp4"), {.verification = Verification::always});
  ASSERT_TRUE(planned && made) << (made ? planned.error() : made.error()).sentence;
  const auto written = engine::MediaFile::open(made->path);
  ASSERT_TRUE(written);
  ASSERT_TRUE(planned->job->pictures->copiesAny() && !planned->job->pictures->copiesAll());

  using Pictures = std::vector<engine::ShownPicture>;
  const auto changed =
      [&](const std::function<void(engine::ExportJob&, Pictures & copied, Pictures & encoded)>& change) {
        engine::ExportJob job = *planned->job;
        Pictures* copied = nullptr;
        Pictures* encoded = nullptr;
        for (auto& run : job.pictures->runs) (run.copy ? copied : encoded) = &run.pictures;
        change(job, *copied, *encoded);
        const auto found = engine::verify(*written, job, [] { return false; });
        return found ? "" : found.error().sentence;
      };
  EXPECT_EQ(changed([](auto&, auto&, auto&) {}), "");
  EXPECT_EQ(changed([](auto&, auto& copied, auto&) { copied.erase(copied.begin() + 3); }),
            "it shows 69 pictures, not 68");
  EXPECT_EQ(changed([](auto&, auto& copied, auto&) { copied[3].time += 90; }).substr(0, 15), "a picture comes");
  const auto another = "is another one";
  EXPECT_NE(changed([](auto&, auto& copied, auto&) { ++copied.back().picture; }).find(another), std::string::npos);
  EXPECT_NE(changed([](auto&, auto&, auto& encoded) { --encoded.front().picture; }).find(another), std::string::npos);
  EXPECT_EQ(changed([](auto& job, auto&, auto&) { job.sound->length += 100; }).substr(0, 15), "its sound lasts");
}

}  // namespace
}  // namespace clipworks::test
