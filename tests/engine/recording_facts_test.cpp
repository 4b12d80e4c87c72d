#include <clipworks/engine/stills/RecordingFacts.h>

#include <gtest/gtest.h>

namespace clipworks::engine {

namespace {

using Time = std::optional<RecordingTime>;

TEST(RecordingTime, IsReadInFullOrNotAtAll) {
  const RecordingTime noon{2019, 7, 24, 12, 5, 40, std::nullopt};
  const auto at = [&noon](int offset) { return Time({2019, 7, 24, 12, 5, 40, offset}); };
  EXPECT_EQ(parseRecordingTime("2019-07-24T12:05:40"), Time(noon));
  EXPECT_EQ(parseRecordingTime("2019-07-24T12:05:40.000000Z"), at(0));
  EXPECT_EQ(parseRecordingTime("2019-07-24T12:05:40+0300"), at(180));
  EXPECT_EQ(parseRecordingTime("2019-07-24 12:05:40-09:30"), at(-570));
  for (const char* text : {"", "2019", "2019-07-24", "2019-13-24T12:05:40", "2019-02-29T12:05:40",
                           "2019-07-24T24:05:40", "2019-07-24T12:05:40+9900", "2019-07-24T12:05:40Z and more"}) {
    EXPECT_EQ(parseRecordingTime(text), std::nullopt) << text;
  }
  EXPECT_EQ(parseRecordingTime("2019-07-24T12:05:40." + std::string(100'000, '1')), std::nullopt);
}

TEST(RecordingPlace, IsReadInAllThreeFormsOfTheStandard) {
  const auto near = [](const char* text, double latitude, double longitude, std::optional<double> altitude) {
    const auto place = parseRecordingPlace(text);
    ASSERT_TRUE(place) << text;
    EXPECT_NEAR(place->latitude, latitude, 1e-9) << text;
    EXPECT_NEAR(place->longitude, longitude, 1e-9) << text;
    EXPECT_EQ(place->altitude, altitude) << text;
  };
  near("+52.4597+013.3220+051.178/", 52.4597, 13.322, 51.178);
  near("+38.1893-119.9558/", 38.1893, -119.9558, std::nullopt);
  near("-4030.5+00715.25/", -40.508333333333333, 7.2541666666666667, std::nullopt);
  near("+404318-0740022.8-3CRSWGS_84/", 40 + 43 / 60.0 + 18 / 3600.0, -(74 + 0 / 60.0 + 22.8 / 3600), -3.0);
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
  ASSERT_TRUE(facts.place);
  EXPECT_EQ(facts.place->altitude, 2004.158);
  EXPECT_EQ(facts.model, "Phone");
  EXPECT_EQ(facts.make + facts.software, "");
}

TEST(RecordingFacts, SkipsWhatWasNeverSet) {
  EXPECT_TRUE(
      recordingFacts({{"creation_time", "1904-01-01T00:00:00.000000Z"}, {"location", "+00.0000+000.0000/"}}).isEmpty());
  EXPECT_TRUE(recordingFacts({{"creation_time", "1970-01-01T00:00:00.000000Z"}, {"date", "1998"}}).isEmpty());
  const auto facts =
      recordingFacts({{"org.maker.creationdate", "yesterday"}, {"creation_time", "2020-08-19T09:55:04.000000Z"}});
  EXPECT_EQ(facts.time, Time({2020, 8, 19, 9, 55, 4, 0}));
}

}  // namespace
}  // namespace clipworks::engine
