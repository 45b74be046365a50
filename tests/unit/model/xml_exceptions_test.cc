#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/expect_exception.h"

namespace {

using opc::model::InvalidPartContent;
using opc::model::InvalidXMLDocument;
using opc::model::InvalidXMLSchema;

static_assert(std::is_base_of<opc::Exception, InvalidXMLDocument>::value, "");
static_assert(std::is_base_of<opc::Exception, InvalidPartContent>::value, "");
static_assert(std::is_base_of<opc::Exception, InvalidXMLSchema>::value, "");
static_assert(std::has_virtual_destructor<InvalidXMLDocument>::value, "");

template <typename T>
class XmlExceptionsTest : public ::testing::Test {};

using XmlExceptionTypes =
    ::testing::Types<InvalidXMLDocument, InvalidPartContent, InvalidXMLSchema>;
TYPED_TEST_SUITE(XmlExceptionsTest, XmlExceptionTypes);

TYPED_TEST(XmlExceptionsTest, CarriesTheMessageAsGivenAndNoErrorCode) {
  TypeParam const e("Schema could not be loaded: \xC3\xA9 line 3");
  EXPECT_STREQ("Schema could not be loaded: \xC3\xA9 line 3", e.what());
  EXPECT_FALSE(e.code());
}

TYPED_TEST(XmlExceptionsTest, CopyKeepsMessage) {
  TypeParam const original("first");
  TypeParam copy(original);
  EXPECT_STREQ("first", copy.what());
  TypeParam assigned("second");
  assigned = original;
  EXPECT_STREQ("first", assigned.what());
}

TYPED_TEST(XmlExceptionsTest, IsCaughtAsOpcException) {
  EXPECT_THROW_MESSAGE(throw TypeParam("text"), TypeParam, "text");
  try {
    throw TypeParam("by base");
  } catch (opc::Exception const& e) {
    EXPECT_STREQ("by base", e.what());
    EXPECT_NE(nullptr, dynamic_cast<TypeParam const*>(&e));
  }
}

TEST(XmlExceptionsDistinctTest, ClassesAreNotInterchangeable) {
  try {
    throw InvalidXMLDocument("doc");
  } catch (InvalidPartContent const&) {
    FAIL() << "an InvalidXMLDocument is not an InvalidPartContent";
  } catch (InvalidXMLSchema const&) {
    FAIL() << "an InvalidXMLDocument is not an InvalidXMLSchema";
  } catch (InvalidXMLDocument const& e) {
    EXPECT_STREQ("doc", e.what());
  }
}

}  // namespace
