#include "property_fields.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/errors.h>

#include "support/expect_exception.h"
#include "tool_error.h"

namespace {

using opc::vkservices::CoreProperties;

CoreProperties record() {
  return CoreProperties(u"application/vnd.veltrance.a.b", u"A b", u"R2011a");
}

TEST(PropertyFieldsTest, AssignmentsNeedASettableNameAndAnEqualsSign) {
  EXPECT_EQ(opcvk::checkPropertyAssignment("title=x"), "");
  EXPECT_EQ(opcvk::checkPropertyAssignment("title="), "");
  EXPECT_EQ(opcvk::checkPropertyAssignment("description=a=b"), "");
  EXPECT_EQ(opcvk::checkPropertyAssignment("title"), "expected NAME=VALUE, got: title");
  EXPECT_EQ(opcvk::checkPropertyAssignment("subject=x").substr(0, 29),
            "unknown property \"subject\" (o");
  EXPECT_EQ(opcvk::checkPropertyAssignment("Title=x").substr(0, 24), "unknown property \"Title\"");
}

TEST(PropertyFieldsTest, EverySettableNameSetsItsProperty) {
  CoreProperties properties = record();
  for (char const* assignment :
       {"content-type=application/vnd.veltrance.c.d", "friendly-name=C d", "release=R2012b",
        "uuid=0123abcd-4567-49ef-8123-456789abcdef", "title=T", "creator=C", "description=D",
        "category=K", "keywords=k1, k2", "revision=3", "version=V", "last-modified-by=M",
        "created=2001-02-03T04:05:06Z", "modified=2002-03-04T05:06:07.5+01:00"}) {
    opcvk::applyPropertyAssignment(properties, assignment);
  }
  EXPECT_EQ(
      opcvk::propertyLines(properties),
      (std::vector<std::string>{
          "content-type: application/vnd.veltrance.c.d", "friendly-name: C d", "release: R2012b",
          "release-version: ", "uuid: 0123abcd-4567-49ef-8123-456789abcdef", "title: T",
          "creator: C", "description: D", "category: K", "keywords: k1, k2", "revision: 3",
          "version: V", "last-modified-by: M", "created: 2001-02-03T04:05:06Z",
          "modified: 2002-03-04T04:06:07.5Z"}));
  EXPECT_EQ(opcvk::settablePropertyNames().size(), 14u);
}

TEST(PropertyFieldsTest, ValuesGoThroughTheLibrarysSetters) {
  CoreProperties properties = record();
  EXPECT_THROW_MESSAGE(opcvk::applyPropertyAssignment(properties, "friendly-name= x"),
                       opc::vkservices::InvalidCorePropertyValue,
                       "Content type friendly name must be a non-empty string");
  EXPECT_THROW_MESSAGE(opcvk::applyPropertyAssignment(properties, "modified=2024-05-17"),
                       opc::vkservices::InvalidCorePropertyValue,
                       "Modified time is not a valid value");
  EXPECT_THROW_MESSAGE(opcvk::applyPropertyAssignment(properties, "nothing"), opcvk::ToolError,
                       "expected NAME=VALUE, got: nothing");
}

TEST(PropertyFieldsTest, ExtendedPropertiesAreAlwaysShownStandardOnesWhenSet) {
  EXPECT_EQ(opcvk::propertyLines(CoreProperties()),
            (std::vector<std::string>{
                "content-type: ", "friendly-name: ", "release: ", "release-version: ", "uuid: "}));
  CoreProperties properties = record();
  properties.setKeywords({{u"a", u"en"}, {u"b", u""}});
  properties.setTitle(u"");
  EXPECT_EQ(opcvk::propertyLines(properties),
            (std::vector<std::string>{"content-type: application/vnd.veltrance.a.b",
                                      "friendly-name: A b", "release: R2011a", "release-version: ",
                                      "uuid: ", "title: ", "keywords: a (en); b"}));
}

TEST(PropertyFieldsTest, JsonHasEveryNameInOrderWithNullForAbsent) {
  nlohmann::ordered_json const json = opcvk::propertyJson(record());
  std::vector<std::string> names;
  for (auto const& item : json.items()) names.push_back(item.key());
  EXPECT_EQ(names.size(), 20u);
  EXPECT_EQ(names.front(), "content-type");
  EXPECT_EQ(names.back(), "last-printed");
  EXPECT_EQ(json["release"], "R2011a");
  EXPECT_TRUE(json["release-version"].is_null());
  EXPECT_TRUE(json["title"].is_null());
}

}  // namespace
