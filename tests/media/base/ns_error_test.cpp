#include <clipworks/media/base/NSError.h>

#include <cerrno>

#include <gtest/gtest.h>

namespace clipworks {
namespace {

TEST(NSErrorTest, DescribesTheWholeChainOnOneLine) {
  const NSError cause = makePosixError(ENOSPC, "writing /out/a.mp4");
  const NSError error = makeError(AVError::exportFailed, "the export stopped\nat 3 s", cause);
  EXPECT_EQ(error.localizedDescription(), "the export stopped at 3 s");
  EXPECT_EQ(error.description(),
            "Error Domain=AVFoundationErrorDomain Code=-11820 \"the export stopped at 3 s\", caused by: "
            "Error Domain=NSPOSIXErrorDomain Code=28 \"writing /out/a.mp4: No space left on device\"");
}

TEST(NSErrorTest, KeepsTheErrorBelowWhenTheOriginalIsGone) {
  NSError error;
  {
    const NSError cause("NSPOSIXErrorDomain", EACCES, "no");
    error = NSError("AVFoundationErrorDomain", -1, "outer", cause);
  }
  ASSERT_NE(error.underlyingError(), nullptr);
  EXPECT_EQ(error.underlyingError()->code(), EACCES);
  EXPECT_EQ(error.underlyingError()->underlyingError(), nullptr);
}

}  // namespace
}  // namespace clipworks
