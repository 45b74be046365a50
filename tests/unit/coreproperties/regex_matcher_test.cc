// The regular-expression companion matches as the regular-expression library does when called
// directly, and an expression that does not compile raises the library's own exception, which
// a caller catches by its type across the companion's boundary.
#include "coreproperties/regex_matcher.h"

#include <string>
#include <typeinfo>
#include <vector>

#include <boost/regex.hpp>
#include <gtest/gtest.h>

namespace {

using opc::vkservices::detail::regexMatcher;

bool direct(std::wstring const& subject, wchar_t const* expression) {
  return boost::regex_match(subject, boost::wregex(expression));
}

TEST(RegexMatcherTest, MatchesWholeTextsAsTheLibraryDoes) {
  std::vector<wchar_t const*> const expressions = {
      L"^vnd\\.veltrance\\.[\\w-]+\\.[\\w-]+$",
      L"^R\\d{4}(a|b)$",
      L"[[:xdigit:]]{8}-[[:xdigit:]]{4}-[[:xdigit:]]{4}-[[:xdigit:]]{4}-[[:xdigit:]]{12}",
      L"a*",
      L"(?i)abc",
  };
  std::vector<std::wstring> const subjects = {
      L"",
      L"vnd.veltrance.foo.bar",
      L"vnd.veltrance.foo",
      L"vnd.veltrance.f\u00F6\u00F6.b-r",
      L"vnd.veltrance.foo.bar\n",
      L"R2011a",
      L"R2011ax",
      L"r2011a",
      L"R\u0662\u0660\u0661\u0661a",
      L"00000000-0000-0000-0000-000000000000",
      L"0123ABCD-ef45-6789-abcd-EF0123456789",
      L"0123abcd-ef45-6789-abcd-ef012345678g",
      L"aaaa",
      L"ab",
      L"ABC",
  };
  int matched = 0;
  for (wchar_t const* expression : expressions) {
    for (std::wstring const& subject : subjects) {
      bool const expected = direct(subject, expression);
      EXPECT_EQ(regexMatcher().matchesWhole(subject, expression), expected);
      matched += expected ? 1 : 0;
    }
  }
  // Both verdicts occur, so that a matcher that always says one thing fails.
  EXPECT_GT(matched, 5);
  EXPECT_LT(matched, 40);
}

TEST(RegexMatcherTest, BadExpressionRaisesTheLibrarysExceptionAcrossTheBoundary) {
  for (wchar_t const* expression : {L"(", L"[a-", L"a{2,1}", L"*a", L"\\"}) {
    std::string expectedMessage;
    std::string expectedType;
    try {
      direct(L"a", expression);
      ADD_FAILURE() << "the library accepts the expression";
    } catch (boost::regex_error const& e) {
      expectedMessage = e.what();
      expectedType = typeid(e).name();
    }
    try {
      regexMatcher().matchesWhole(L"a", expression);
      ADD_FAILURE() << "the matcher accepts an expression that the library refuses";
    } catch (boost::regex_error const& e) {
      EXPECT_EQ(e.what(), expectedMessage);
      EXPECT_EQ(typeid(e).name(), expectedType);
    }
  }
}

TEST(RegexMatcherTest, MatcherIsLoadedOnceForTheProcess) {
  EXPECT_EQ(&regexMatcher(), &regexMatcher());
}

}  // namespace
