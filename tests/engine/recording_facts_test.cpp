#include <clipworks/engine/stills/RecordingFacts.h>

#include <tests/engine/EngineTesting.h>

namespace clipworks::engine {
namespace {

using Time = std::optional<RecordingTime>;

TEST(RecordingTime, IsReadInFullOrNotAtAll) {
  const auto at = [](std::optional<int> offset) { return Time({2019, 7, 24, 12, 5, 40, offset}); };
  EXPECT_EQ(parseRecordingTime("2019-07-24T12:05:40"), at(std::nullopt));
  EXPECT_EQ(parseRecordingTime("2019-07-24T12:05:40.000000Z"), at(0));
  EXPECT_EQ(parseRecordingTime("2019-07-24T12:05:40+0300"), at(180));
  EXPECT_EQ(parseRecordingTime("2019-07-24 12:05:40-09:30"), at(-570));
  const std::string endless = "2019-07-24T12:05:40." + std::string(100'000, '1');
  for (const char* text :
       {"", "2019", "2019-07-24", "2019-13-24T12:05:40", "2019-02-29T12:05:40", "2019-07-24T24:05:40",
        "2019-07-24T12:05:40+9900", "2019-07-24T12:05:40Z and more", endless.c_str()}) {
    EXPECT_EQ(parseRecordingTime(text), std::nullopt) << text;
  }
}

TEST(RecordingPlace, IsReadInAllThreeFormsOfTheStandard) {
  const auto isNear = [](double latitude, double longitude, std::optional<double> altitude) {
    using testing::DoubleNear;
    return testing::Optional(testing::FieldsAre(DoubleNear(latitude, 1e-9), DoubleNear(longitude, 1e-9), altitude));
  };
  EXPECT_THAT(parseRecordingPlace("+52.4597+013.3220+051.178/"), isNear(52.4597, 13.322, 51.178));
  EXPECT_THAT(parseRecordingPlace("+38.1893-119.9558/"), isNear(38.1893, -119.9558, std::nullopt));
  EXPECT_THAT(parseRecordingPlace("-4030.5+00715.25/"), isNear(-40.508333333333333, 7.2541666666666667, std::nullopt));
  EXPECT_THAT(parseRecordingPlace("+404318-0740022.8-3CRSWGS_84/"),
              isNear(40 + 43 / 60.0 + 18 / 3600.0, -(74 + 22.8 / 3600), -3.0));
  for (const char* text :
       {"", "+52.4597", "+95.0+013.0/", "+52.0+190.0/", "+5.0+013.0/", "52.4N 13.3E", "+1e9+0010/"}) {
    EXPECT_EQ(parseRecordingPlace(text), std::nullopt) << text;
  }
}

TEST(RecordingFacts, TakesTheMostPreciseOfWhatIsThere) {
  const auto facts = recordingFacts({{"creation_time", "2015-12-12T08:59:26.000000Z"},
                                     {"date", "2015-01-19T12:45:11-0800"},
                                     {"location", "+38.1893-119.9558+2004.158/"},
                                     {"com.maker.model", "Phone"},
                                     {"model-eng", "Phone in English"},
                                     {"encoder", "8.1.2"}});
  EXPECT_EQ(facts.time, Time({2015, 1, 19, 12, 45, 11, -480}));
  EXPECT_EQ(facts.place.value().altitude, 2004.158);
  EXPECT_EQ(facts.model, "Phone");
  EXPECT_EQ(facts.make + facts.software, "");
}

TEST(RecordingFacts, SkipsWhatWasNeverSet) {
  const std::string epoch = "1904-01-01T00:00:00.000000Z";
  EXPECT_TRUE(recordingFacts({{"creation_time", epoch}, {"location", "+00.0000+000.0000/"}}).isEmpty());
  EXPECT_TRUE(recordingFacts({{"creation_time", "1970-01-01T00:00:00.000000Z"}, {"date", "1998"}}).isEmpty());
  const std::string set = "2020-08-19T09:55:04.000000Z";
  EXPECT_EQ(recordingFacts({{"org.maker.creationdate", "yesterday"}, {"creation_time", set}}).time,
            Time({2020, 8, 19, 9, 55, 4, 0}));
}

}  // namespace
}  // namespace clipworks::engine
