#include "package/content_type_pool.h"

#include <string>

#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>

namespace {

using opc::model::ContentType;
using opc::model::detail::ContentTypePool;

TEST(ContentTypePoolTest, PartsOfOneTypeShareOneObject) {
  ContentTypePool pool;
  auto const first = pool.intern(ContentType(u"text/plain;charset=utf-8"));
  auto const other = pool.intern(ContentType(u"image/png"));
  auto const again = pool.intern(ContentType(u"text/plain;charset=utf-8"));
  EXPECT_EQ(first.get(), again.get());
  EXPECT_NE(first.get(), other.get());
  EXPECT_EQ(again->toString(), u"text/plain;charset=utf-8");
}

// Types that compare equal but are spelled otherwise keep their own spelling: a part gives
// back its type as it was given.
TEST(ContentTypePoolTest, TypesEqualButSpelledOtherwiseAreNotShared) {
  ContentTypePool pool;
  auto const lower = pool.intern(ContentType(u"text/plain;charset=utf-8"));
  auto const upper = pool.intern(ContentType(u"Text/Plain;charset=UTF-8"));
  ASSERT_TRUE(*lower == *upper);
  EXPECT_NE(lower.get(), upper.get());
  EXPECT_EQ(upper->toString(), u"Text/Plain;charset=UTF-8");
  auto const ab = pool.intern(ContentType(u"a/b;x=1;y=2"));
  auto const ba = pool.intern(ContentType(u"a/b;y=2;x=1"));
  EXPECT_EQ(ba->toString(), u"a/b;y=2;x=1");
  EXPECT_NE(ab.get(), ba.get());
}

// A value given in quotes that it does not need is written without them: the text is the
// same, and so is the object.
TEST(ContentTypePoolTest, TypesOfTheSameTextShareWhateverTheirSpelling) {
  ContentTypePool pool;
  auto const bare = pool.intern(ContentType(u"a/b;x=abc"));
  auto const quoted = pool.intern(ContentType(u"a/b;x=\"abc\""));
  EXPECT_EQ(bare.get(), quoted.get());
  EXPECT_EQ(quoted->toString(), u"a/b;x=abc");
}

// The type found last is tried first; types that alternate still find their own object.
TEST(ContentTypePoolTest, AlternatingTypesFindTheirOwnObjects) {
  ContentTypePool pool;
  auto const text = pool.intern(ContentType(u"text/plain"));
  auto const png = pool.intern(ContentType(u"image/png"));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(pool.intern(ContentType(u"text/plain")).get(), text.get());
    EXPECT_EQ(pool.intern(ContentType(u"image/png")).get(), png.get());
    EXPECT_NE(pool.intern(ContentType(u"image/PNG")).get(), png.get());
  }
  EXPECT_EQ(png->toString(), u"image/png");
}

TEST(ContentTypePoolTest, ManyDistinctTypesStayExactPastWhatThePoolKeeps) {
  ContentTypePool pool;
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 200; ++i) {
      std::u16string const text = u"application/x-" + opc::toString(std::to_string(i));
      EXPECT_EQ(pool.intern(ContentType(text))->toString(), text);
    }
  }
}

}  // namespace
