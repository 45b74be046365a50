#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>

#include <boost/regex.hpp>
#include <gtest/gtest.h>

#include <foundation/release_info/invalid_release_info.h>
#include <foundation/release_info/release_info.h>

#include "support/expect_exception.h"

namespace {

using foundation::release_info::InvalidReleaseInfo;
using foundation::release_info::ReleaseInfo;

constexpr char kNamespace[] = "http://schemas.opcvkservices.org/release/2026/releaseInfo";

std::string document(std::string const& body) {
  return std::string("<releaseInfo xmlns='") + kNamespace + "'>" + body + "</releaseInfo>";
}

ReleaseInfo parse(std::string const& text) {
  std::istringstream in(text);
  return ReleaseInfo(in);
}

void expectRefused(std::string const& text, std::string const& problem) {
  EXPECT_THROW_MESSAGE(parse(text), InvalidReleaseInfo, "Invalid release information: " + problem);
}

TEST(ReleaseInfoTest, RunningProductHasFamilyOfItsConfigureDateAndProjectVersion) {
  ReleaseInfo const running;
  EXPECT_FALSE(running.isLegacy());
  EXPECT_EQ(running.getORVANEVersion(), OPCVK_TEST_PROJECT_VERSION);
  std::string const date = running.getBuildDate();
  ASSERT_TRUE(boost::regex_match(date, boost::regex("\\d{4}-\\d{2}-\\d{2}"))) << date;
  int const month = std::stoi(date.substr(5, 2));
  EXPECT_EQ(running.getReleaseFamily(), "R" + date.substr(0, 4) + (month <= 6 ? "a" : "b"));
}

TEST(ReleaseInfoTest, RunningVersionHasAtLeastThreeDots) {
  std::string const version = ReleaseInfo().getORVANEVersion();
  EXPECT_GE(std::count(version.begin(), version.end(), '.'), 3) << version;
}

TEST(ReleaseInfoTest, LegacyRecordHoldsTheFamilyAlone) {
  ReleaseInfo const legacy("R2011a");
  EXPECT_TRUE(legacy.isLegacy());
  EXPECT_EQ(legacy.getReleaseFamily(), "R2011a");
  EXPECT_EQ(legacy.getORVANEVersion(), "");
  EXPECT_EQ(legacy.getBuildDate(), "");
}

TEST(ReleaseInfoTest, LegacyRecordTakesAnyTextEvenEmpty) {
  EXPECT_EQ(ReleaseInfo("").getReleaseFamily(), "");
  EXPECT_TRUE(ReleaseInfo("").isLegacy());
  EXPECT_EQ(ReleaseInfo("not a release").getReleaseFamily(), "not a release");
}

TEST(ReleaseInfoTest, VersionInfoOfRunningProductIsTheDocumentedXml) {
  ReleaseInfo const running;
  std::string const expected =
      std::string("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n") +
      "<releaseInfo xmlns=\"" + kNamespace + "\">\n" + "  <releaseFamily>" +
      running.getReleaseFamily() + "</releaseFamily>\n" + "  <version>" +
      running.getORVANEVersion() + "</version>\n" + "  <buildDate>" + running.getBuildDate() +
      "</buildDate>\n" + "</releaseInfo>\n";
  EXPECT_EQ(running.getVersionInfo(), expected);
}

TEST(ReleaseInfoTest, EveryKindOfRecordSurvivesItsXml) {
  for (ReleaseInfo const& record :
       {ReleaseInfo(), ReleaseInfo("R2011a"), ReleaseInfo(""), ReleaseInfo("R2019b & <x>")}) {
    ReleaseInfo const back = parse(record.getVersionInfo());
    EXPECT_EQ(back, record) << record.getVersionInfo();
    EXPECT_EQ(back.isLegacy(), record.isLegacy());
  }
}

TEST(ReleaseInfoTest, ReadsVersionWithoutBuildDate) {
  ReleaseInfo const record =
      parse(document("<releaseFamily>R2020a</releaseFamily><version>9.8.7.6</version>"));
  EXPECT_FALSE(record.isLegacy());
  EXPECT_EQ(record.getReleaseFamily(), "R2020a");
  EXPECT_EQ(record.getORVANEVersion(), "9.8.7.6");
  EXPECT_EQ(record.getBuildDate(), "");
}

TEST(ReleaseInfoTest, ReadsAVersionOfFewDotsForItsReaderToJudge) {
  // How many dots a version needs is the business of whoever uses it.
  EXPECT_EQ(parse(document("<releaseFamily>R2020a</releaseFamily><version>1.2.3</version>"))
                .getORVANEVersion(),
            "1.2.3");
}

TEST(ReleaseInfoTest, ReadsFromWhereTheStreamStands) {
  std::istringstream in("skip" + ReleaseInfo("R2011a").getVersionInfo());
  in.ignore(4);
  EXPECT_EQ(ReleaseInfo(in).getReleaseFamily(), "R2011a");
}

TEST(ReleaseInfoTest, RefusesEmptyText) {
  expectRefused("", "XML error at line 1, column 1: invalid document structure");
}

TEST(ReleaseInfoTest, RefusesMalformedXml) {
  expectRefused(document("<releaseFamily>R2020a</releaseFamily>").substr(5),
                "XML error at line 1, column 1: invalid document structure");
}

TEST(ReleaseInfoTest, RefusesADocumentTypeDeclaration) {
  EXPECT_THROW(parse("<!DOCTYPE releaseInfo [<!ENTITY e 'R2020a'>]>" +
                     document("<releaseFamily>&e;</releaseFamily>")),
               InvalidReleaseInfo);
}

TEST(ReleaseInfoTest, RefusesAnotherNamespace) {
  expectRefused(
      "<releaseInfo xmlns='urn:other'><releaseFamily>R2020a</releaseFamily></releaseInfo>",
      "XML error at line 1, column 32: no declaration found for element 'releaseInfo'");
}

TEST(ReleaseInfoTest, RefusesAMissingFamily) {
  EXPECT_THROW(parse(document("<version>1.2.3.4</version>")), InvalidReleaseInfo);
}

TEST(ReleaseInfoTest, RefusesABuildDateWithoutVersion) {
  EXPECT_THROW(
      parse(document("<releaseFamily>R2020a</releaseFamily><buildDate>2020-01-01</buildDate>")),
      InvalidReleaseInfo);
}

TEST(ReleaseInfoTest, RefusesElementsOutOfOrderOrTwice) {
  EXPECT_THROW(parse(document("<version>1.2.3.4</version><releaseFamily>R2020a</releaseFamily>")),
               InvalidReleaseInfo);
  EXPECT_THROW(parse(document("<releaseFamily>R2020a</releaseFamily><releaseFamily>R2020b"
                              "</releaseFamily>")),
               InvalidReleaseInfo);
}

TEST(ReleaseInfoTest, RefusesUnknownElementsAndAttributes) {
  EXPECT_THROW(parse(document("<releaseFamily>R2020a</releaseFamily><extra/>")),
               InvalidReleaseInfo);
  EXPECT_THROW(parse(document("<releaseFamily a='1'>R2020a</releaseFamily>")), InvalidReleaseInfo);
}

TEST(ReleaseInfoTest, RefusesVersionThatIsNotDigitsAndDots) {
  for (char const* version : {"", "1.2.", ".1.2.3", "1..2", "1.2.3.x", " 1.2.3.4"}) {
    EXPECT_THROW(parse(document(std::string("<releaseFamily>R2020a</releaseFamily><version>") +
                                version + "</version>")),
                 InvalidReleaseInfo)
        << version;
  }
}

TEST(ReleaseInfoTest, RefusesABuildDateThatIsNotADay) {
  for (char const* date : {"2020-13-01", "2020-1-1", "20-01-01", "2020-01-01Z", "yesterday"}) {
    EXPECT_THROW(parse(document(std::string("<releaseFamily>R2020a</releaseFamily>"
                                            "<version>1.0.0.0</version><buildDate>") +
                                date + "</buildDate>")),
                 InvalidReleaseInfo)
        << date;
  }
}

TEST(ReleaseInfoTest, RefusesOverlongValues) {
  EXPECT_THROW(parse(document("<releaseFamily>" + std::string(65, 'R') + "</releaseFamily>")),
               InvalidReleaseInfo);
}

TEST(ReleaseInfoTest, RefusesTextBeyondTheLimitBeforeParsing) {
  std::string const text = document("<releaseFamily>R2020a</releaseFamily>") +
                           std::string(ReleaseInfo::kMaxVersionInfoSize, ' ');
  expectRefused(text, "the text is larger than 65536 bytes");
}

TEST(ReleaseInfoTest, RefusesAFailingStream) {
  std::istringstream in(ReleaseInfo().getVersionInfo());
  in.setstate(std::ios::badbit);
  EXPECT_THROW_MESSAGE(ReleaseInfo record(in), InvalidReleaseInfo,
                       "Invalid release information: the stream could not be read");
}

TEST(ReleaseInfoTest, IsAStandardExceptionOutsideTheOpcFamily) {
  try {
    parse("");
    FAIL() << "nothing was thrown";
  } catch (std::runtime_error const& e) {
    EXPECT_NE(dynamic_cast<InvalidReleaseInfo const*>(&e), nullptr);
  }
}

TEST(ReleaseInfoTest, WritingAFamilyThatXmlCannotCarryFails) {
  EXPECT_THROW(ReleaseInfo(std::string("R\x01")).getVersionInfo(), InvalidReleaseInfo);
}

TEST(ReleaseInfoTest, CopiesAreEqualAndIndependent) {
  ReleaseInfo original("R2011a");
  ReleaseInfo copy(original);
  EXPECT_EQ(copy, original);
  copy = ReleaseInfo();
  EXPECT_NE(copy, original);
  EXPECT_EQ(original.getReleaseFamily(), "R2011a");
}

}  // namespace
