#include <gtest/gtest.h>

#include <opc/vkservices/cipher_entry.h>

#include "unit/cipherdata/cipher_data_test_support.h"

namespace opcvk_test {
namespace {

using opc::vkservices::CipherEntry;

TEST(CipherEntryTest, GivesBackWhatItWasMadeWith) {
  CipherEntry const entry(byID(u"rId7", u"/a.xml"), {1, 2, 3}, u"00ff", {4, 5});
  EXPECT_TRUE(entry.getRelationshipSelector() == byID(u"rId7", u"/a.xml"));
  EXPECT_EQ(entry.getHash(), (Bytes{1, 2, 3}));
  EXPECT_EQ(entry.getSalt(), u"00ff");
  EXPECT_EQ(entry.getIV(), (Bytes{4, 5}));
}

TEST(CipherEntryTest, CopiesAndAssignmentsAreIndependent) {
  CipherEntry original(byType(u"t"), {1}, u"s", {2});
  CipherEntry copy(original);
  CipherEntry assigned(byID(u"other"), {9}, u"z", {8});
  assigned = original;
  original = CipherEntry(byID(u"changed"), {7}, u"y", {6});
  for (CipherEntry const* entry : {&copy, &assigned}) {
    EXPECT_TRUE(entry->getRelationshipSelector() == byType(u"t"));
    EXPECT_EQ(entry->getHash(), Bytes{1});
    EXPECT_EQ(entry->getSalt(), u"s");
    EXPECT_EQ(entry->getIV(), Bytes{2});
  }
  EXPECT_EQ(original.getSalt(), u"y");
}

}  // namespace
}  // namespace opcvk_test
