#include <string>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/model/exceptions.h>

namespace {

// Each class is caught as opc::Exception, keeps the thrower's text unchanged, and carries
// no error code.
template <typename ExceptionType>
void expectFamilyMember() {
  try {
    throw ExceptionType("Invalid thing \"x\": because");
  } catch (opc::Exception const& e) {
    EXPECT_NE(dynamic_cast<ExceptionType const*>(&e), nullptr);
    EXPECT_EQ(std::string(e.what()), "Invalid thing \"x\": because");
    EXPECT_FALSE(e.code());
    ExceptionType const copy(dynamic_cast<ExceptionType const&>(e));
    EXPECT_EQ(std::string(copy.what()), "Invalid thing \"x\": because");
    return;
  }
  ADD_FAILURE() << "not caught as opc::Exception";
}

TEST(ModelExceptionsTest, DeriveFromOpcException) {
  expectFamilyMember<opc::model::InvalidPartName>();
  expectFamilyMember<opc::model::InvalidURI>();
  expectFamilyMember<opc::model::InvalidContentType>();
  expectFamilyMember<opc::model::InvalidRelationship>();
  expectFamilyMember<opc::model::InvalidPartInfo>();
  expectFamilyMember<opc::model::PackageLocked>();
}

TEST(ModelExceptionsTest, AssignmentReplacesMessage) {
  opc::model::InvalidURI first("first");
  opc::model::InvalidURI const second("second");
  first = second;
  EXPECT_EQ(std::string(first.what()), "second");
}

}  // namespace
