// A part name and its copies share one block of text: a copy must stay whole however the
// name it came from ends, a name moved from must stay usable, and names that are not plain
// ASCII keep both their spelling and the way they compare.
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/part_name.h>

#include "package/part_table.h"

namespace {

using opc::model::PartName;

TEST(PartNameCopiesTest, ACopyOutlivesTheNameItCameFrom) {
  auto original = std::make_unique<PartName>(u"/Docs/R\u00e9sum\u00e9.XML");
  PartName const copy = *original;
  PartName assigned(u"/other");
  assigned = *original;
  original.reset();
  EXPECT_EQ(copy.toString(), u"/Docs/R\u00e9sum\u00e9.XML");
  EXPECT_EQ(assigned.toString(), u"/Docs/R\u00e9sum\u00e9.XML");
  EXPECT_EQ(copy, PartName(u"/docs/r%C3%A9sum%C3%A9.xml"));
  EXPECT_EQ(copy.hash(), PartName(u"/DOCS/R%c3%a9SUM%c3%a9.xml").hash());
}

TEST(PartNameCopiesTest, ANameMovedFromReadsEmptyAndTakesANewValue) {
  PartName name(u"/a/b.xml");
  PartName const moved = std::move(name);
  EXPECT_EQ(moved.toString(), u"/a/b.xml");
  // NOLINTNEXTLINE(bugprone-use-after-move): what is left must be safe to use.
  EXPECT_EQ(name.toString(), u"");
  EXPECT_FALSE(name == moved);
  name = PartName(u"/c.xml");
  EXPECT_EQ(name.toString(), u"/c.xml");
  PartName other(u"/d.xml");
  other = std::move(name);
  EXPECT_EQ(other.toString(), u"/c.xml");
}

TEST(PartNameCopiesTest, AssigningANameToItselfKeepsIt) {
  PartName name(u"/self.xml");
  PartName const& same = name;
  name = same;
  EXPECT_EQ(name.toString(), u"/self.xml");
  name = std::move(name);
  EXPECT_EQ(name.toString(), u"/self.xml");
}

// Equal names made apart compare, order and hash alike whether or not they share a block.
TEST(PartNameCopiesTest, CopiesAndEqualNamesCompareAlike) {
  PartName const first(u"/Folder/File.TXT");
  PartName const copy = first;
  PartName const apart(u"/folder/file.txt");
  EXPECT_EQ(first, copy);
  EXPECT_EQ(first, apart);
  EXPECT_FALSE(first != apart);
  EXPECT_FALSE(first < apart);
  EXPECT_FALSE(apart < first);
  EXPECT_EQ(first.hash(), apart.hash());
  // A key looked up without a name hashes as the name does.
  EXPECT_EQ(first.hash(), opc::model::detail::PartTable::hashOf("/folder/file.txt"));
  EXPECT_TRUE(PartName(u"/folder/file.txt/x").isDerivedFrom(copy));
}

// Copies made and dropped on several threads at once share the block safely (the sanitizer
// build tells a race).
TEST(PartNameCopiesTest, ThreadsCopyOneNameAtOnce) {
  PartName const shared(u"/\u4e2d\u6587/\u540d\u5b57.xml");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&shared] {
      for (int i = 0; i < 10000; ++i) {
        PartName copy = shared;
        PartName again = std::move(copy);
        if (again.toString().size() != 10) ADD_FAILURE();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(shared.toString(), u"/\u4e2d\u6587/\u540d\u5b57.xml");
}

// Names in small letters, in capitals, and not in ASCII are held each their own way: every one
// gives back its text exactly and tells what it names alike.
TEST(PartNameCopiesTest, EveryKindOfTextComesBackExactly) {
  for (std::u16string const text :
       {u"/lower/case.xml", u"/Mixed/Case.XML", u"/caf\u00e9/NA\u00cfVE.Xml", u"/%C3%A9b/c.txt",
        u"/\U0001F600/x"}) {
    PartName const name(text);
    EXPECT_EQ(name.toString(), text);
    EXPECT_EQ(PartName(name.toString()), name);
    EXPECT_EQ(name.getURI().toString(), text);
    EXPECT_FALSE(name.isRelationshipName());
    PartName const relationships = name.getRelationshipsPartName();
    EXPECT_TRUE(relationships.isRelationshipName());
    EXPECT_EQ(*relationships.getRelationshipsSourceName(), name);
    EXPECT_EQ(relationships.getRelationshipsSourceName()->toString(), text);
  }
}

TEST(PartNameCopiesTest, RelationshipsNamesAreToldInEveryKindOfText) {
  EXPECT_TRUE(PartName(u"/_rels/.rels").isRelationshipName());
  EXPECT_TRUE(PartName(u"/_RELS/.RELS").isRelationshipName());
  EXPECT_TRUE(PartName(u"/a/_Rels/B.xml.Rels").isRelationshipName());
  EXPECT_TRUE(PartName(u"/\u00e9/_rels/\u00e9.rels").isRelationshipName());
  EXPECT_FALSE(PartName(u"/_rels/x.relsx").isRelationshipName());
  EXPECT_FALSE(PartName(u"/_r\u00e9ls/x.rels").isRelationshipName());
  EXPECT_EQ(PartName(u"/A/_RELS/B.XML.RELS").getRelationshipsSourceName()->toString(), u"/A/B.XML");
}

}  // namespace
