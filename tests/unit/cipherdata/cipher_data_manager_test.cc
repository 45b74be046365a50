// The table of cipher entries: adding, finding and deleting, with every refusal.
#include <string>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/vkservices/cipher_data_manager.h>
#include <opc/vkservices/errors.h>

#include "support/expect_exception.h"
#include "unit/cipherdata/cipher_data_test_support.h"

namespace opcvk_test {
namespace {

using opc::vkservices::CipherEntryNotFound;
using opc::vkservices::detail::RelationshipSelectorHash;

constexpr char kDuplicate[] =
    "Unable to create cipher entry. Unable to create cipher entry. This is likely because the "
    "relationshipSelector is already present.";
constexpr char kNotFound[] = "No cipher data found for the given RelationshipSelector.";

class CipherDataManagerTest : public ::testing::Test {
 protected:
  CipherPackage cipher;
  opc::vkservices::CipherDataManager& manager = *cipher.manager;
};

TEST_F(CipherDataManagerTest, HasCipherEntryOnAPackageWithoutCipherPartIsFalse) {
  EXPECT_FALSE(manager.hasCipherEntry(byType(u"t")));
  EXPECT_TRUE(Access::managedPartNames(manager).empty());
  EXPECT_TRUE(Access::managedRelationshipTypes(manager).empty());
}

TEST_F(CipherDataManagerTest, AddedEntryIsFoundByAnEqualSelector) {
  manager.addCipherEntry(byType(u"urn:t"), {1, 2}, u"abcd", {3, 4});
  ASSERT_TRUE(manager.hasCipherEntry(byType(u"urn:t")));
  auto const entry = manager.getCipherEntry(byType(u"urn:t"));
  EXPECT_TRUE(entry.getRelationshipSelector() == byType(u"urn:t"));
  EXPECT_EQ(entry.getHash(), (Bytes{1, 2}));
  EXPECT_EQ(entry.getSalt(), u"abcd");
  EXPECT_EQ(entry.getIV(), (Bytes{3, 4}));
}

TEST_F(CipherDataManagerTest, EmptyValuesAreRefusedHashFirstThenSaltThenIV) {
  struct Case {
    Bytes hash;
    std::u16string salt;
    Bytes iv;
    char const* message;
  };
  Case const cases[] = {
      {{}, u"", {}, "Input password hash is empty."},
      {{}, u"s", {1}, "Input password hash is empty."},
      {{1}, u"", {}, "Input salt is empty."},
      {{1}, u"s", {}, "Input IV is empty."},
  };
  for (Case const& c : cases) {
    EXPECT_THROW_MESSAGE(manager.addCipherEntry(byType(u"t"), c.hash, c.salt, c.iv), opc::Exception,
                         c.message);
    EXPECT_FALSE(manager.hasCipherEntry(byType(u"t")));
  }
}

TEST_F(CipherDataManagerTest, DuplicateSelectorIsAnOpcExceptionWithTheDoubledPrefix) {
  manager.addCipherEntry(byID(u"rId1"), {1}, u"first", {1});
  EXPECT_THROW_MESSAGE(manager.addCipherEntry(byID(u"rId1"), {2}, u"second", {2}), opc::Exception,
                       kDuplicate);
  EXPECT_EQ(manager.getCipherEntry(byID(u"rId1")).getSalt(), u"first");
}

TEST_F(CipherDataManagerTest, SelectorsThatDifferOnlyInTypeShareAHashAndAreTwoEntries) {
  RelationshipSelectorHash const hash;
  EXPECT_EQ(hash(byType(u"x")), hash(byID(u"x")));
  manager.addCipherEntry(byType(u"x"), {1}, u"by type", {1});
  manager.addCipherEntry(byID(u"x"), {2}, u"by id", {2});
  EXPECT_EQ(manager.getCipherEntry(byType(u"x")).getSalt(), u"by type");
  EXPECT_EQ(manager.getCipherEntry(byID(u"x")).getSalt(), u"by id");
}

TEST_F(CipherDataManagerTest, SelectorsThatDifferInSourceOrCriteriaAreDifferentKeys) {
  manager.addCipherEntry(byType(u"x", u"/a"), {1}, u"a", {1});
  EXPECT_FALSE(manager.hasCipherEntry(byType(u"x", u"/b")));
  EXPECT_FALSE(manager.hasCipherEntry(byType(u"X", u"/a")));
  EXPECT_TRUE(manager.hasCipherEntry(byType(u"x", u"/a")));
}

TEST_F(CipherDataManagerTest, KeyHashIsFnv1aOverSourceFollowedByCriteria) {
  RelationshipSelectorHash const hash;
  // Published FNV-1a 64 values: "foobar" and "a".
  EXPECT_EQ(hash(byID(u"bar", u"foo")), std::size_t{0x85944171f73967e8ULL});
  EXPECT_EQ(hash(byID(u"foobar", u"")), std::size_t{0x85944171f73967e8ULL});
  EXPECT_EQ(hash(byType(u"", u"a")), std::size_t{0xaf63dc4c8601ec8cULL});
}

TEST_F(CipherDataManagerTest, TableStartsWithEightBucketsAndALoadFactorOfOne) {
  EXPECT_GE(Access::bucketCount(manager), 8u);
  EXPECT_EQ(Access::maxLoadFactor(manager), 1.0f);
}

TEST_F(CipherDataManagerTest, UnknownSelectorIsNotFoundOnGetAndDelete) {
  manager.addCipherEntry(byType(u"t"), {1}, u"s", {1});
  EXPECT_THROW_MESSAGE(manager.getCipherEntry(byID(u"t")), CipherEntryNotFound, kNotFound);
  EXPECT_THROW_MESSAGE(manager.deleteCipherEntry(byID(u"t")), CipherEntryNotFound, kNotFound);
  EXPECT_TRUE(manager.hasCipherEntry(byType(u"t")));
}

TEST_F(CipherDataManagerTest, ManagedPartAndTypeFollowWhetherTheTableIsEmpty) {
  manager.addCipherEntry(byType(u"a"), {1}, u"s", {1});
  manager.addCipherEntry(byType(u"b"), {1}, u"s", {1});
  EXPECT_EQ(Access::managedPartNames(manager), std::vector<std::u16string>{cipherPartName()});
  EXPECT_EQ(Access::managedRelationshipTypes(manager),
            std::vector<std::u16string>{cipherRelationshipType()});
  manager.deleteCipherEntry(byType(u"a"));
  EXPECT_EQ(Access::managedPartNames(manager).size(), 1u);
  manager.deleteCipherEntry(byType(u"b"));
  EXPECT_TRUE(Access::managedPartNames(manager).empty());
  EXPECT_TRUE(Access::managedRelationshipTypes(manager).empty());
  EXPECT_THROW_MESSAGE(manager.getCipherEntry(byType(u"b")), CipherEntryNotFound, kNotFound);
}

TEST_F(CipherDataManagerTest, ManyEntriesStayFindable) {
  for (int i = 0; i < 200; ++i) {
    manager.addCipherEntry(byID(u"rId" + std::u16string(1, char16_t(u'A' + i % 26)) +
                                std::u16string(1, char16_t(u'0' + i / 26))),
                           {static_cast<unsigned char>(i)}, u"s", {1});
  }
  for (int i = 0; i < 200; ++i) {
    auto const selector = byID(u"rId" + std::u16string(1, char16_t(u'A' + i % 26)) +
                               std::u16string(1, char16_t(u'0' + i / 26)));
    EXPECT_EQ(manager.getCipherEntry(selector).getHash(), Bytes{static_cast<unsigned char>(i)});
  }
}

}  // namespace
}  // namespace opcvk_test
