// ICU is loaded only when an answer needs it, and a failure to load it is told.  The cases
// run in the order written when the program runs them together: those that must not load it
// come first.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <fl/i18n/charset.h>
#include <fl/i18n/normalization.h>
#include <fl/i18n/vk_locale.h>

#include "data/text/sample_texts.h"
#include "icu_engine.h"
#include "support/process_maps.h"
#include "support/scoped_thread_locale.h"
#include "support/temp_dir.h"

namespace {

namespace texts = opcvk_test::texts;
using fl::i18n::codecvt_string_to_ustring;
using opcvk_test::isMapped;
using opcvk_test::rerunWithLibraryCopies;
using opcvk_test::ScopedThreadLocale;

bool icuLoaded() { return isMapped("libvki18n_icu") || isMapped("libicu"); }

// The child of LoadFailureNamesTheLibraryAndTheLoadersReason, started as this program with
// the variable set, runs before any test: it asks for a conversion that needs ICU where the
// companion cannot be found, writes the message to the file that the variable names, and
// ends.
constexpr char kChildVariable[] = "OPCVK_TEST_ICU_LOAD_FAILURE_OUT";

int runAsChild() {
  char const* out = std::getenv(kChildVariable);
  if (out == nullptr) return 0;
  {
    std::ofstream text(out);
    try {
      codecvt_string_to_ustring const converter("Shift_JIS", true);
      text << "loaded";
    } catch (fl::i18n::I18nError const& e) {
      text << e.what();
    }
  }
  std::_Exit(0);
}

int const kRunAsChild = runAsChild();

std::u16string convert(char const* charset, std::string const& bytes) {
  codecvt_string_to_ustring const converter(charset, true);
  return converter.convert(bytes.data(), bytes.size());
}

TEST(IcuLibraryLoadingTest, AnswersWithoutIcuLoadNothing) {
  ASSERT_FALSE(icuLoaded());
  {
    ScopedThreadLocale const utf8("C.UTF-8");
    ASSERT_TRUE(utf8.installed());
    EXPECT_EQ(fl::i18n::VkLocale::global().getEncodingName(), "UTF-8");
  }
  {
    ScopedThreadLocale const plain("C");
    EXPECT_EQ(fl::i18n::VkLocale::global().getEncodingName(), "US-ASCII");
  }
  EXPECT_EQ(convert("UTF-8",
                    "\xEF\xBB\xBF"
                    "caf\xC3\xA9 \xFF\xED\xA0\x80"),
            u"caf\u00E9 \uFFFD\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(convert("ISO-8859-1", "plain ASCII"), u"plain ASCII");
  EXPECT_EQ(fl::i18n::ustring_to_utf8(u"caf\u00E9"), "caf\xC3\xA9");
  std::ostringstream remarks;
  EXPECT_EQ(fl::i18n::detect_charset(texts::kJapaneseUtf8.data(), texts::kJapaneseUtf8.size(),
                                     remarks, "sample"),
            "UTF-8");
  EXPECT_EQ(fl::i18n::normalizeNfc(u"p\u00E4ssword"), u"p\u00E4ssword");
  EXPECT_FALSE(icuLoaded());
}

TEST(IcuLibraryLoadingTest, AsciiFromALegacyEncodingLoadsNothingUntilTextNeedsIcu) {
  ASSERT_FALSE(icuLoaded());
  codecvt_string_to_ustring const converter("windows-1252", true);
  std::string const plain = "quotes";
  EXPECT_EQ(converter.convert(plain.data(), plain.size()), u"quotes");
  EXPECT_FALSE(icuLoaded());
  EXPECT_EQ(converter.convert(texts::kQuotesWindows1252.data(), texts::kQuotesWindows1252.size()),
            convert("UTF-8", texts::kQuotesUtf8));
  EXPECT_TRUE(isMapped("libvki18n_icu"));
}

TEST(IcuLibraryLoadingTest, AnswersThatNeedIcuLoadItAndGiveTheSame) {
  EXPECT_EQ(convert("Shift_JIS", texts::kJapaneseShiftJis), convert("UTF-8", texts::kJapaneseUtf8));
  EXPECT_TRUE(isMapped("libvki18n_icu"));
  EXPECT_TRUE(isMapped("libicuuc"));
  std::ostringstream remarks;
  EXPECT_EQ(fl::i18n::detect_charset(texts::kFrenchLatin1.data(), texts::kFrenchLatin1.size(),
                                     remarks, "sample"),
            "ISO-8859-1");
  EXPECT_EQ(fl::i18n::normalizeNfc(u"e\u0301"), u"\u00E9");
  EXPECT_EQ(fl::i18n::detail::icuEngine().preferredEncodingName("ISO_8859-1:1987"), "ISO-8859-1");
}

TEST(IcuLibraryLoadingTest, LoadFailureNamesTheLibraryAndTheLoadersReason) {
  // libvki18n copied alone into a folder that the loader searches first: its companion is
  // neither beside it nor anywhere the loader looks.
  opcvk_test::TempDir folder;
  std::filesystem::path const where(folder.path());
  std::string const out = (where / "message.txt").string();
  ASSERT_EQ("", rerunWithLibraryCopies(where.string(), {"libvki18n.so."}, kChildVariable, out));
  std::ifstream text(out);
  std::string message;
  std::getline(text, message);
  EXPECT_EQ(
      "The ICU library libvki18n_icu.so.1 could not be loaded: libvki18n_icu.so.1: cannot open "
      "shared object file: No such file or directory",
      message);
}

TEST(IcuLibraryLoadingTest, EngineIsLoadedOnceForTheProcess) {
  fl::i18n::detail::IcuEngine& engine = fl::i18n::detail::icuEngine();
  EXPECT_EQ(&engine, &fl::i18n::detail::icuEngine());
  EXPECT_TRUE(isMapped("libvki18n_icu"));
}

}  // namespace
