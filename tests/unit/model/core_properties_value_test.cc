#include <string>
#include <utility>
#include <vector>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <opc/model/core_properties.h>

namespace {

using boost::posix_time::ptime;
using boost::posix_time::time_from_string;
using opc::model::CoreProperties;

struct TextProperty {
  char const* name;
  boost::optional<std::u16string> (CoreProperties::*get)() const;
  void (CoreProperties::*set)(std::u16string const&);
};

TextProperty const kTextProperties[] = {
    {"category", &CoreProperties::getCategory, &CoreProperties::setCategory},
    {"contentStatus", &CoreProperties::getContentStatus, &CoreProperties::setContentStatus},
    {"contentType", &CoreProperties::getContentType, &CoreProperties::setContentType},
    {"creator", &CoreProperties::getCreator, &CoreProperties::setCreator},
    {"description", &CoreProperties::getDescription, &CoreProperties::setDescription},
    {"identifier", &CoreProperties::getIdentifier, &CoreProperties::setIdentifier},
    {"language", &CoreProperties::getLanguage, &CoreProperties::setLanguage},
    {"lastModifiedBy", &CoreProperties::getLastModifiedBy, &CoreProperties::setLastModifiedBy},
    {"revision", &CoreProperties::getRevision, &CoreProperties::setRevision},
    {"subject", &CoreProperties::getSubject, &CoreProperties::setSubject},
    {"title", &CoreProperties::getTitle, &CoreProperties::setTitle},
    {"version", &CoreProperties::getVersion, &CoreProperties::setVersion},
};

struct TimeProperty {
  char const* name;
  boost::optional<ptime> (CoreProperties::*get)() const;
  void (CoreProperties::*set)(ptime);
};

TimeProperty const kTimeProperties[] = {
    {"created", &CoreProperties::getCreated, &CoreProperties::setCreated},
    {"modified", &CoreProperties::getModified, &CoreProperties::setModified},
    {"lastPrinted", &CoreProperties::getLastPrinted, &CoreProperties::setLastPrinted},
};

TEST(CorePropertiesTest, DefaultHasNoProperty) {
  CoreProperties properties;
  EXPECT_TRUE(properties.isEmpty());
  for (auto const& property : kTextProperties) {
    EXPECT_FALSE((properties.*property.get)()) << property.name;
  }
  for (auto const& property : kTimeProperties) {
    EXPECT_FALSE((properties.*property.get)()) << property.name;
  }
  EXPECT_FALSE(properties.getKeywords());
}

TEST(CorePropertiesTest, EachTextPropertyKeepsItsOwnValueExactly) {
  CoreProperties properties;
  for (auto const& property : kTextProperties) {
    std::string const name = property.name;
    (properties.*property.set)(u"  " + std::u16string(name.begin(), name.end()) + u" é\n");
  }
  for (auto const& property : kTextProperties) {
    std::string const name = property.name;
    ASSERT_TRUE((properties.*property.get)()) << name;
    EXPECT_EQ(u"  " + std::u16string(name.begin(), name.end()) + u" é\n",
              *(properties.*property.get)())
        << name;
  }
}

TEST(CorePropertiesTest, EmptyTextIsPresentAndDiffersFromAbsent) {
  for (auto const& property : kTextProperties) {
    CoreProperties properties;
    (properties.*property.set)(u"");
    ASSERT_TRUE((properties.*property.get)()) << property.name;
    EXPECT_EQ(u"", *(properties.*property.get)()) << property.name;
    EXPECT_FALSE(properties.isEmpty()) << property.name;
    EXPECT_NE(CoreProperties(), properties) << property.name;
  }
}

TEST(CorePropertiesTest, EachTimePropertyKeepsItsOwnValue) {
  CoreProperties properties;
  ptime const base = time_from_string("2024-05-17 10:20:30.000250");
  int offset = 0;
  for (auto const& property : kTimeProperties) {
    (properties.*property.set)(base + boost::posix_time::hours(offset++));
  }
  offset = 0;
  for (auto const& property : kTimeProperties) {
    ASSERT_TRUE((properties.*property.get)()) << property.name;
    EXPECT_EQ(base + boost::posix_time::hours(offset++), *(properties.*property.get)())
        << property.name;
  }
}

TEST(CorePropertiesTest, SpecialTimeRemovesTheProperty) {
  ptime const specials[] = {ptime(), ptime(boost::posix_time::pos_infin),
                            ptime(boost::posix_time::neg_infin)};
  for (auto const& property : kTimeProperties) {
    for (ptime special : specials) {
      CoreProperties properties;
      (properties.*property.set)(time_from_string("2020-01-01 00:00:00"));
      (properties.*property.set)(special);
      EXPECT_FALSE((properties.*property.get)()) << property.name;
      EXPECT_TRUE(properties.isEmpty()) << property.name;
    }
  }
}

TEST(CorePropertiesTest, KeywordsKeepOrderLanguagesAndEmptyList) {
  CoreProperties properties;
  CoreProperties::Keywords const keywords = {{u"beta", u"en"}, {u"alpha", u""}, {u"beta", u"de"}};
  properties.setKeywords(keywords);
  ASSERT_TRUE(properties.getKeywords());
  EXPECT_EQ(keywords, *properties.getKeywords());

  properties.setKeywords({});
  ASSERT_TRUE(properties.getKeywords());
  EXPECT_TRUE(properties.getKeywords()->empty());
  EXPECT_FALSE(properties.isEmpty());
}

TEST(CorePropertiesTest, CopiesAreIndependent) {
  CoreProperties original;
  original.setTitle(u"one");
  original.setKeywords({{u"k", u""}});
  CoreProperties copy(original);
  EXPECT_EQ(original, copy);
  copy.setTitle(u"two");
  EXPECT_EQ(u"one", *original.getTitle());
  EXPECT_NE(original, copy);

  CoreProperties assigned;
  assigned.setCreator(u"someone");
  assigned = original;
  EXPECT_EQ(original, assigned);
  EXPECT_FALSE(assigned.getCreator());
}

TEST(CorePropertiesTest, EqualityLooksAtEveryProperty) {
  for (auto const& property : kTextProperties) {
    CoreProperties a;
    CoreProperties b;
    (a.*property.set)(u"x");
    EXPECT_NE(a, b) << property.name;
    (b.*property.set)(u"x");
    EXPECT_EQ(a, b) << property.name;
  }
  for (auto const& property : kTimeProperties) {
    CoreProperties a;
    CoreProperties b;
    (a.*property.set)(time_from_string("2020-01-01 00:00:00"));
    EXPECT_NE(a, b) << property.name;
  }
  CoreProperties a;
  CoreProperties b;
  a.setKeywords({{u"k", u"en"}});
  b.setKeywords({{u"k", u"de"}});
  EXPECT_NE(a, b);
}

}  // namespace
