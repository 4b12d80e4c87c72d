#include <clipworks/media/base/UUID.h>

#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace clipworks {
namespace {

TEST(UUIDTest, AreRandomOnesOfVersionFourInUppercaseAndAllDifferent) {
  const std::string form = "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}";
  std::set<std::string> seen;
  std::set<char> firstDigits;
  for (int i = 0; i < 1000; ++i) {
    const std::string text = UUID::make().uuidString();
    ASSERT_THAT(text, testing::MatchesRegex(form));
    EXPECT_TRUE(seen.insert(text).second) << text;
    firstDigits.insert(text.front());
  }
  EXPECT_EQ(firstDigits.size(), 16U) << "a digit never comes first in 1,000 identifiers";
}

}  // namespace
}  // namespace clipworks
