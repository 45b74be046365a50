#include <string>
#include <utility>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <foundation/release_info/release_info.h>
#include <opc/core/string_conversions.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/errors.h>

#include "support/expect_exception.h"

namespace {

using boost::posix_time::ptime;
using foundation::release_info::ReleaseInfo;
using opc::vkservices::CoreProperties;
using opc::vkservices::InvalidCorePropertyValue;

constexpr char kContentTypeMessage[] =
    "Content type must have the format: application/vnd.veltrance.<product>.<package-type>";
constexpr char kFriendlyNameMessage[] = "Content type friendly name must be a non-empty string";
constexpr char kReleaseMessage[] = "ORVANE release must have the format: R<four-digit-year>(a|b)";
constexpr char kUUIDFormatMessage[] =
    "UUID must have the format: hhhhhhhh-hhhh-hhhh-hhhh-hhhhhhhhhhhh where h is a hexidecimal "
    "digit";
constexpr char kUUIDSetMessage[] = "UUID is already set. It can not be overwritten";

std::u16string const kType = u"application/vnd.veltrance.foo.bar";
std::u16string const kUUID = u"0123abcd-4567-89ef-0123-456789abcdef";

// For comparisons that print well when they fail.
std::string text(std::u16string const& value) { return opc::detail::toUTF8String(value); }
std::string text(boost::optional<std::u16string> const& value) {
  return value ? "\"" + text(*value) + "\"" : "(none)";
}

std::u16string running() { return CoreProperties::getCurrentORVANERelease(); }

// The running family with every letter's case turned.
std::u16string otherCase(std::u16string text) {
  for (char16_t& c : text) {
    if (c >= u'a' && c <= u'z') {
      c = static_cast<char16_t>(c - u'a' + u'A');
    } else if (c >= u'A' && c <= u'Z') {
      c = static_cast<char16_t>(c - u'A' + u'a');
    }
  }
  return text;
}

CoreProperties valid() { return CoreProperties(kType, u"Foo bar", running()); }

TEST(CorePropertiesTest, DefaultRecordIsEmptyAndNotValid) {
  CoreProperties const record;
  EXPECT_FALSE(record.isValid());
  EXPECT_EQ(record.getContentType(), u"");
  EXPECT_EQ(record.getContentTypeFriendlyName(), u"");
  EXPECT_EQ(record.getORVANERelease(), u"");
  EXPECT_TRUE(record.getORVANEReleaseInfo().isLegacy());
  EXPECT_FALSE(record.getUUID());
  EXPECT_FALSE(record.getCreatedTime());
  EXPECT_TRUE(std::as_const(record).opcProps().isEmpty());
}

TEST(CorePropertiesTest, ConstructorWithRunningFamilyHoldsTheRunningRecord) {
  CoreProperties const record = valid();
  EXPECT_TRUE(record.isValid());
  EXPECT_EQ(record.getContentType(), kType);
  EXPECT_EQ(record.getContentTypeFriendlyName(), u"Foo bar");
  EXPECT_EQ(record.getORVANEReleaseInfo(), ReleaseInfo());
  EXPECT_FALSE(record.getUUID());
}

TEST(CorePropertiesTest, ConstructorsRaiseTheFirstFailingSettersMessage) {
  EXPECT_THROW_MESSAGE(CoreProperties(u"text/plain", u" ", u"x"), InvalidCorePropertyValue,
                       kContentTypeMessage);
  EXPECT_THROW_MESSAGE(CoreProperties(kType, u" ", u"x"), InvalidCorePropertyValue,
                       kFriendlyNameMessage);
  EXPECT_THROW_MESSAGE(CoreProperties(kType, u"n", u"x"), InvalidCorePropertyValue,
                       kReleaseMessage);
  EXPECT_THROW_MESSAGE(CoreProperties(kType, u"n", ReleaseInfo("r2020a")), InvalidCorePropertyValue,
                       kReleaseMessage);
}

TEST(CorePropertiesTest, ConstructorWithReleaseInfoKeepsTheRecord) {
  CoreProperties const record(kType, u"n", ReleaseInfo("R2011b"));
  EXPECT_EQ(record.getORVANERelease(), u"R2011b");
  EXPECT_TRUE(record.getORVANEReleaseInfo().isLegacy());
}

TEST(CorePropertiesTest, ContentTypeForms) {
  struct Case {
    std::u16string value;
    bool valid;
  };
  for (Case const& c : std::initializer_list<Case>{
           {u"application/vnd.veltrance.foo.bar", true},
           {u"application/vnd.veltrance.foo-1.bar_2", true},
           {u"application/vnd.veltrance.foo.bar;version=2", true},
           {u"application/vnd.veltrance.foo", false},
           {u"text/vnd.veltrance.foo.bar", false},
           {u"Application/vnd.veltrance.foo.bar", false},
           {u"application/VND.veltrance.foo.bar", false},
           {u"application/vnd.veltrance.foo.bar.baz", false},
           {u"application/vnd.veltrance..bar", false},
           {u"application/vnd.other.foo.bar", false},
           {u"application/vnd.veltrance.foo.bar/x", false},
           {u"not a content type", false},
           {u"", false},
       }) {
    EXPECT_EQ(CoreProperties::isValidContentType(c.value), c.valid) << text(c.value);
  }
}

TEST(CorePropertiesTest, SetContentTypeRefusesAndLeavesTheRecord) {
  CoreProperties record = valid();
  EXPECT_THROW_MESSAGE(record.setContentType(u"application/vnd.veltrance.foo"),
                       InvalidCorePropertyValue, kContentTypeMessage);
  EXPECT_EQ(record.getContentType(), kType);
  record.setContentType(u"application/vnd.veltrance.other.type");
  EXPECT_EQ(record.getContentType(), u"application/vnd.veltrance.other.type");
}

TEST(CorePropertiesTest, FriendlyNameForms) {
  EXPECT_TRUE(CoreProperties::isValidContentTypeFriendlyName(u"x"));
  EXPECT_TRUE(CoreProperties::isValidContentTypeFriendlyName(u"a b"));
  EXPECT_TRUE(CoreProperties::isValidContentTypeFriendlyName(u"a \t\u3000 b"));
  EXPECT_FALSE(CoreProperties::isValidContentTypeFriendlyName(u""));
  EXPECT_FALSE(CoreProperties::isValidContentTypeFriendlyName(u" "));
  EXPECT_FALSE(CoreProperties::isValidContentTypeFriendlyName(u" x"));
  EXPECT_FALSE(CoreProperties::isValidContentTypeFriendlyName(u"x "));
  EXPECT_FALSE(CoreProperties::isValidContentTypeFriendlyName(u"x\n"));
  EXPECT_FALSE(CoreProperties::isValidContentTypeFriendlyName(u"\u00A0x"));
}

TEST(CorePropertiesTest, SetFriendlyNameRefusesWhiteSpaceAtTheEdgesWithTheEmptyMessage) {
  CoreProperties record = valid();
  EXPECT_THROW_MESSAGE(record.setContentTypeFriendlyName(u"x "), InvalidCorePropertyValue,
                       kFriendlyNameMessage);
  EXPECT_THROW_MESSAGE(record.setContentTypeFriendlyName(u""), InvalidCorePropertyValue,
                       kFriendlyNameMessage);
  EXPECT_EQ(record.getContentTypeFriendlyName(), u"Foo bar");
}

TEST(CorePropertiesTest, ReleaseForms) {
  EXPECT_TRUE(CoreProperties::isValidORVANERelease(u"R2011a"));
  EXPECT_TRUE(CoreProperties::isValidORVANERelease(u"R0000b"));
  for (std::u16string const value : {u"r2011a", u"R2011A", u"R2011B", u"R11a", u"R20111a",
                                     u"R2011c", u"R2011a ", u"", u"2011a"}) {
    EXPECT_FALSE(CoreProperties::isValidORVANERelease(value)) << text(value);
  }
}

TEST(CorePropertiesTest, RunningFamilyInAnotherCaseStoresTheRunningRecord) {
  CoreProperties record = valid();
  record.setORVANEReleaseInfo(ReleaseInfo("R2011a"));
  record.setORVANERelease(otherCase(running()));
  EXPECT_EQ(record.getORVANERelease(), running());
  EXPECT_EQ(record.getORVANEReleaseInfo(), ReleaseInfo());
  EXPECT_FALSE(record.getORVANEReleaseInfo().isLegacy());
}

TEST(CorePropertiesTest, AnotherFamilyStoresALegacyRecord) {
  CoreProperties record = valid();
  record.setORVANERelease(u"R2011a");
  EXPECT_EQ(record.getORVANERelease(), u"R2011a");
  EXPECT_TRUE(record.getORVANEReleaseInfo().isLegacy());
}

TEST(CorePropertiesTest, AnotherFamilyInAnotherCaseFailsWithTheReleaseMessage) {
  CoreProperties record = valid();
  EXPECT_THROW_MESSAGE(record.setORVANERelease(u"r2011A"), InvalidCorePropertyValue,
                       kReleaseMessage);
  EXPECT_EQ(record.getORVANEReleaseInfo(), ReleaseInfo());
}

TEST(CorePropertiesTest, NonAsciiFamilyIsNarrowedAndRefused) {
  CoreProperties record = valid();
  // Full-width digits: digits to a wide expression, but not once narrowed to ASCII.
  EXPECT_THROW_MESSAGE(record.setORVANERelease(u"R\uFF12\uFF10\uFF11\uFF11a"),
                       InvalidCorePropertyValue, kReleaseMessage);
  EXPECT_EQ(CoreProperties::makeLegacyORVANEReleaseInfo(u"R\u00E9").getReleaseFamily(), "R?");
}

TEST(CorePropertiesTest, SetReleaseInfoChecksTheFamily) {
  CoreProperties record = valid();
  EXPECT_THROW_MESSAGE(record.setORVANEReleaseInfo(ReleaseInfo("")), InvalidCorePropertyValue,
                       kReleaseMessage);
  EXPECT_FALSE(CoreProperties::isValidORVANEReleaseInfo(ReleaseInfo("R2011")));
  EXPECT_TRUE(CoreProperties::isValidORVANEReleaseInfo(ReleaseInfo("R2011b")));
  EXPECT_TRUE(CoreProperties::isValidORVANEReleaseInfo(ReleaseInfo()));
}

TEST(CorePropertiesTest, UUIDForms) {
  EXPECT_TRUE(CoreProperties::isValidUUID(kUUID));
  EXPECT_TRUE(CoreProperties::isValidUUID(u"0123ABCD-4567-89EF-0123-456789ABCDEF"));
  EXPECT_TRUE(CoreProperties::isValidUUID(CoreProperties::getNilUUID()));
  for (std::u16string const value :
       {u"", u"0123abcd456789ef0123456789abcdef", u"0123abcd-4567-89ef-0123-456789abcdeg",
        u"0123abcd-4567-89ef-0123-456789abcde", u"{0123abcd-4567-89ef-0123-456789abcdef}",
        u"0123abcd-4567-89ef-0123-456789abcdef ", u"0123abcd_4567_89ef_0123_456789abcdef"}) {
    EXPECT_FALSE(CoreProperties::isValidUUID(value)) << text(value);
  }
}

TEST(CorePropertiesTest, NilUUID) {
  EXPECT_EQ(CoreProperties::getNilUUID(), u"00000000-0000-0000-0000-000000000000");
}

TEST(CorePropertiesTest, SetUUIDTwiceWithTheSameTextIsHarmless) {
  CoreProperties record = valid();
  record.setUUID(kUUID);
  record.setUUID(kUUID);
  EXPECT_EQ(text(record.getUUID()), text(boost::optional<std::u16string>(kUUID)));
}

TEST(CorePropertiesTest, SetUUIDInAnotherCaseIsAnotherUUID) {
  CoreProperties record = valid();
  record.setUUID(kUUID);
  EXPECT_THROW_MESSAGE(record.setUUID(u"0123ABCD-4567-89EF-0123-456789ABCDEF"),
                       InvalidCorePropertyValue, kUUIDSetMessage);
  EXPECT_EQ(text(record.getUUID()), text(boost::optional<std::u16string>(kUUID)));
}

TEST(CorePropertiesTest, MalformedUUIDGetsTheFormatMessageEvenWhenOneIsSet) {
  CoreProperties record = valid();
  EXPECT_THROW_MESSAGE(record.setUUID(u"nope"), InvalidCorePropertyValue, kUUIDFormatMessage);
  EXPECT_FALSE(record.getUUID());
  record.setUUID(kUUID);
  EXPECT_THROW_MESSAGE(record.setUUID(u"nope"), InvalidCorePropertyValue, kUUIDFormatMessage);
}

TEST(CorePropertiesTest, AssignmentReplacesTheUUID) {
  CoreProperties record = valid();
  record.setUUID(kUUID);
  CoreProperties other = valid();
  other.setUUID(CoreProperties::getNilUUID());
  record = other;
  EXPECT_EQ(text(record.getUUID()),
            text(boost::optional<std::u16string>(CoreProperties::getNilUUID())));
  record = valid();
  EXPECT_FALSE(record.getUUID());
}

TEST(CorePropertiesTest, GeneratedUUIDIsRandomVersion4InLowerCase) {
  CoreProperties first = valid();
  first.generateAndSetUUID();
  CoreProperties second = valid();
  second.generateAndSetUUID();
  ASSERT_TRUE(first.getUUID());
  ASSERT_TRUE(second.getUUID());
  EXPECT_NE(*first.getUUID(), *second.getUUID());
  for (std::u16string const& uuid : {*first.getUUID(), *second.getUUID()}) {
    ASSERT_EQ(uuid.size(), 36u);
    EXPECT_TRUE(CoreProperties::isValidUUID(uuid));
    EXPECT_EQ(uuid[14], u'4') << text(uuid);
    EXPECT_NE(std::u16string(u"89ab").find(uuid[19]), std::u16string::npos) << text(uuid);
    for (char16_t c : uuid) EXPECT_FALSE(c >= u'A' && c <= u'F') << text(uuid);
  }
}

TEST(CorePropertiesTest, GenerateOnARecordWithUUIDRaisesAlreadySet) {
  CoreProperties record = valid();
  record.setUUID(kUUID);
  EXPECT_THROW_MESSAGE(record.generateAndSetUUID(), InvalidCorePropertyValue, kUUIDSetMessage);
  EXPECT_EQ(text(record.getUUID()), text(boost::optional<std::u16string>(kUUID)));
}

TEST(CorePropertiesTest, TimesRefuseSpecialValuesAndAcceptTheWholeRange) {
  CoreProperties record = valid();
  for (ptime const special :
       {ptime(), ptime(boost::posix_time::pos_infin), ptime(boost::posix_time::neg_infin)}) {
    EXPECT_FALSE(CoreProperties::isValidTime(special));
    EXPECT_THROW_MESSAGE(record.setCreatedTime(special), InvalidCorePropertyValue,
                         "Created time is not a valid value");
    EXPECT_THROW_MESSAGE(record.setLastModifiedTime(special), InvalidCorePropertyValue,
                         "Modified time is not a valid value");
  }
  EXPECT_FALSE(record.getCreatedTime());
  EXPECT_FALSE(record.getLastModifiedTime());
  ptime const earliest(boost::posix_time::min_date_time);
  ptime const latest(boost::posix_time::max_date_time);
  record.setCreatedTime(earliest);
  record.setLastModifiedTime(latest);
  EXPECT_TRUE(record.getCreatedTime() == earliest);
  EXPECT_TRUE(record.getLastModifiedTime() == latest);
  EXPECT_TRUE(std::as_const(record).opcProps().getCreated() == earliest);
  EXPECT_TRUE(std::as_const(record).opcProps().getModified() == latest);
}

TEST(CorePropertiesTest, StandardPropertiesAreForwardedUnchecked) {
  CoreProperties record;
  record.setCategory(u" c ");
  record.setCreatedBy(u"");
  record.setDescription(u"d");
  record.setKeywords({{u"k", u"en"}, {u"l", u""}});
  record.setLastModifiedBy(u"m");
  record.setRevision(u"not a number");
  record.setTitle(u"t");
  record.setVersion(u"v");
  opc::model::CoreProperties const& model = std::as_const(record).opcProps();
  EXPECT_EQ(text(model.getCategory()),
            text(boost::optional<std::u16string>(std::u16string(u" c "))));
  EXPECT_EQ(text(model.getCreator()), text(boost::optional<std::u16string>(std::u16string(u""))));
  EXPECT_EQ(text(model.getDescription()),
            text(boost::optional<std::u16string>(std::u16string(u"d"))));
  EXPECT_TRUE(model.getKeywords() == (CoreProperties::Keywords{{u"k", u"en"}, {u"l", u""}}));
  EXPECT_EQ(text(model.getLastModifiedBy()),
            text(boost::optional<std::u16string>(std::u16string(u"m"))));
  EXPECT_EQ(text(model.getRevision()),
            text(boost::optional<std::u16string>(std::u16string(u"not a number"))));
  EXPECT_EQ(text(model.getTitle()), text(boost::optional<std::u16string>(std::u16string(u"t"))));
  EXPECT_EQ(text(model.getVersion()), text(boost::optional<std::u16string>(std::u16string(u"v"))));
  EXPECT_EQ(text(record.getCreatedBy()),
            text(boost::optional<std::u16string>(std::u16string(u""))));
  EXPECT_EQ(text(record.getTitle()), text(boost::optional<std::u16string>(std::u16string(u"t"))));
  EXPECT_TRUE(record.getKeywords() == model.getKeywords());
  EXPECT_FALSE(record.isValid());
}

TEST(CorePropertiesTest, IsValidTestsEmptinessOnly) {
  CoreProperties record;
  record.setContentType(kType);
  EXPECT_FALSE(record.isValid());
  record.setContentTypeFriendlyName(u"n");
  EXPECT_FALSE(record.isValid());
  record.setORVANERelease(u"R1999b");
  EXPECT_TRUE(record.isValid());
}

TEST(CorePropertiesTest, CopiesAreIndependent) {
  CoreProperties original = valid();
  original.setTitle(u"a");
  CoreProperties copy(original);
  copy.setTitle(u"b");
  copy.setUUID(kUUID);
  EXPECT_EQ(text(original.getTitle()), text(boost::optional<std::u16string>(std::u16string(u"a"))));
  EXPECT_FALSE(original.getUUID());
}

TEST(CorePropertiesTest, CurrentValues) {
  EXPECT_EQ(CoreProperties::getCurrentORVANEReleaseInfo(), ReleaseInfo());
  EXPECT_TRUE(CoreProperties::isValidORVANERelease(CoreProperties::getCurrentORVANERelease()));
  ptime const before = boost::posix_time::microsec_clock::universal_time();
  ptime const now = CoreProperties::getCurrentTime();
  EXPECT_LE(before - boost::posix_time::seconds(1), now);
  EXPECT_LE(now,
            boost::posix_time::microsec_clock::universal_time() + boost::posix_time::seconds(1));
}

}  // namespace
