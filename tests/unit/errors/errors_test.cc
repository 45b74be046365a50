#include <cerrno>
#include <exception>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include <boost/system/error_code.hpp>
#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/vkservices/errors.h>

#include "support/expect_exception.h"

namespace {

namespace vk = opc::vkservices;

// Which constructor a class has.
enum class Form {
  kMessageOnly,  // (message): no code
  kWithCode,     // (message, code): keeps the code
  kDropsCode,    // (message, code): discards the code
};

// One row of the family: the class, its constructor form, and a message as one of its throw
// sites composes it.
#define OPCVK_ERROR_CASE(Name, form, text)        \
  struct Name##Case {                             \
    using Type = vk::Name;                        \
    static constexpr Form kForm = Form::form;     \
    static char const* message() { return text; } \
    static char const* name() { return #Name; }   \
  }

OPCVK_ERROR_CASE(CannotEnableDecryption, kMessageOnly,
                 "Cannot enable decryption unless package is open for Read");
OPCVK_ERROR_CASE(CannotEnableEncryption, kMessageOnly,
                 "Cannot enable encryption unless package is open for Create or Modify");
OPCVK_ERROR_CASE(CipherEntryNotFound, kMessageOnly,
                 "No cipher data found for the given RelationshipSelector.");
OPCVK_ERROR_CASE(CouldNotConvertFileSystemManifest, kMessageOnly,
                 "Could not read link target for: /links/l\xc3\xa9");
OPCVK_ERROR_CASE(CouldNotCreateDestinationParent, kWithCode,
                 "Could not create the destination parent directory: File exists");
OPCVK_ERROR_CASE(CouldNotCreateDestinationRoot, kWithCode,
                 "Could not create the destination root directory: Permission denied");
OPCVK_ERROR_CASE(CouldNotCreateFile, kWithCode, "Could not create or overwrite file: /out/a.txt");
OPCVK_ERROR_CASE(CouldNotCreateFolder, kWithCode, "Could not create folder: /out/d: File exists");
OPCVK_ERROR_CASE(CouldNotCreateLink, kWithCode, "Could not create link: /out/l: File exists");
OPCVK_ERROR_CASE(CouldNotDecryptContent, kMessageOnly,
                 "Content is encrypted but enableDecryption() has not been called yet");
OPCVK_ERROR_CASE(CouldNotGetLastModifiedTime, kWithCode,
                 "Could not get last modified time: No such file or directory");
OPCVK_ERROR_CASE(CouldNotGetPermissions, kWithCode,
                 "Could not get permissions: No such file or directory");
OPCVK_ERROR_CASE(CouldNotGetSourceFilesAndLinks, kDropsCode,
                 "Could not get source files and links at source root: File exists");
OPCVK_ERROR_CASE(CouldNotMakeRelativeToSourceRoot, kMessageOnly,
                 "Could not make source file name relative to source root");
OPCVK_ERROR_CASE(CouldNotOpenFile, kWithCode, "Could not open file: /in/missing.txt");
OPCVK_ERROR_CASE(CouldNotSetLastModifiedTime, kWithCode,
                 "Could not set last modified time: /out/a.txt: Operation not permitted");
OPCVK_ERROR_CASE(CouldNotSetPermissions, kWithCode,
                 "Could not set permissions: /out/a.txt: Operation not permitted");
OPCVK_ERROR_CASE(CouldNotTransformContentData, kMessageOnly,
                 "Failure when attempting to transform data for content type:text/plain");
OPCVK_ERROR_CASE(CouldNotTransformContentType, kMessageOnly,
                 "Failure when attempting to transform content type:text/plain");
OPCVK_ERROR_CASE(FileSystemEntryAlreadyExists, kMessageOnly,
                 "File system entry already exists: /a/b");
OPCVK_ERROR_CASE(FileSystemEntryHasNoParent, kMessageOnly, "File system entry has no parent");
OPCVK_ERROR_CASE(FileSystemEntryMustBeFile, kMessageOnly, "File system entry must be a file");
OPCVK_ERROR_CASE(FileSystemEntryMustBeFolder, kMessageOnly, "File system entry must be a folder");
OPCVK_ERROR_CASE(FileSystemEntryMustBeLink, kMessageOnly,
                 "File system entry must be a symbolic link");
OPCVK_ERROR_CASE(FileSystemEntryNotFound, kMessageOnly, "File system entry does not exist: /a/b");
OPCVK_ERROR_CASE(InvalidCipherData, kMessageOnly,
                 "Cipher data in the package has multiple entries with the same values.");
OPCVK_ERROR_CASE(InvalidCoreProperties, kMessageOnly, "Not all required core properties are set");
OPCVK_ERROR_CASE(InvalidCorePropertyValue, kMessageOnly,
                 "UUID is already set. It can not be overwritten");
OPCVK_ERROR_CASE(InvalidIVBytesSize, kMessageOnly, "IV fixed portion must be at least 4 bytes");
OPCVK_ERROR_CASE(NondeterministicCoreProperties, kMessageOnly,
                 "The UUID core property should not be set while in deterministic mode.");

#undef OPCVK_ERROR_CASE

template <typename... Cases>
struct CaseList {
  using Types = ::testing::Types<Cases...>;
  static constexpr std::size_t kSize = sizeof...(Cases);

  // True if no class of the list derives from another class of the list.
  static constexpr bool noneDerivesFromAnother() {
    return (noneDerivesFrom<typename Cases::Type>() && ...);
  }

 private:
  template <typename T>
  static constexpr bool noneDerivesFrom() {
    return ((std::is_same_v<T, typename Cases::Type> ||
             !std::is_base_of_v<typename Cases::Type, T>)&&...);
  }
};

using Family = CaseList<
    CannotEnableDecryptionCase, CannotEnableEncryptionCase, CipherEntryNotFoundCase,
    CouldNotConvertFileSystemManifestCase, CouldNotCreateDestinationParentCase,
    CouldNotCreateDestinationRootCase, CouldNotCreateFileCase, CouldNotCreateFolderCase,
    CouldNotCreateLinkCase, CouldNotDecryptContentCase, CouldNotGetLastModifiedTimeCase,
    CouldNotGetPermissionsCase, CouldNotGetSourceFilesAndLinksCase,
    CouldNotMakeRelativeToSourceRootCase, CouldNotOpenFileCase, CouldNotSetLastModifiedTimeCase,
    CouldNotSetPermissionsCase, CouldNotTransformContentDataCase, CouldNotTransformContentTypeCase,
    FileSystemEntryAlreadyExistsCase, FileSystemEntryHasNoParentCase, FileSystemEntryMustBeFileCase,
    FileSystemEntryMustBeFolderCase, FileSystemEntryMustBeLinkCase, FileSystemEntryNotFoundCase,
    InvalidCipherDataCase, InvalidCorePropertiesCase, InvalidCorePropertyValueCase,
    InvalidIVBytesSizeCase, NondeterministicCorePropertiesCase>;

static_assert(Family::kSize == 30, "the family has thirty classes");
static_assert(Family::noneDerivesFromAnother(), "no class of the family derives from another");

// The code a failing file-system call reports: the operating system's own, which callers
// compare with the generic condition.
boost::system::error_code fileExistsCode() {
  return boost::system::error_code(EEXIST, boost::system::system_category());
}

template <typename Case>
class ErrorFamilyTest : public ::testing::Test {
 protected:
  using Error = typename Case::Type;

  // Builds the exception the way its throw sites do: with a code if its constructor takes
  // one.
  static Error make(std::string const& message, boost::system::error_code code = fileExistsCode()) {
    if constexpr (Case::kForm == Form::kMessageOnly) {
      return Error(message);
    } else {
      return Error(message, code);
    }
  }

  // The code the exception must report when it was given `given`.
  static boost::system::error_code expectedCode(boost::system::error_code given) {
    return Case::kForm == Form::kWithCode ? given : boost::system::error_code();
  }
};

class CaseNames {
 public:
  template <typename Case>
  static std::string GetName(int) {
    return Case::name();
  }
};

TYPED_TEST_SUITE(ErrorFamilyTest, Family::Types, CaseNames);

TYPED_TEST(ErrorFamilyTest, DerivesFromExceptionAndRuntimeError) {
  using E = typename TestFixture::Error;
  static_assert(std::is_base_of_v<opc::Exception, E>);
  static_assert(std::is_base_of_v<std::runtime_error, E>);
  static_assert(std::is_base_of_v<std::exception, E>);
  static_assert(std::has_virtual_destructor_v<E>);
  static_assert(!std::is_default_constructible_v<E>);
  static_assert(std::is_copy_constructible_v<E>);
  static_assert(std::is_nothrow_move_constructible_v<E>);
  E const e = TestFixture::make(TypeParam::message());
  EXPECT_NE(dynamic_cast<opc::Exception const*>(&e), nullptr);
  EXPECT_NE(dynamic_cast<std::runtime_error const*>(&e), nullptr);
}

TYPED_TEST(ErrorFamilyTest, HasExactlyTheConstructorOfItsForm) {
  using E = typename TestFixture::Error;
  constexpr bool messageOnly = TypeParam::kForm == Form::kMessageOnly;
  static_assert(std::is_constructible_v<E, std::string const&> == messageOnly);
  static_assert(std::is_constructible_v<E, std::string const&, boost::system::error_code> ==
                !messageOnly);
  // A message alone is never taken for an exception of another kind.
  static_assert(!std::is_convertible_v<std::string, E>);
}

TYPED_TEST(ErrorFamilyTest, IsThrownWithItsTypeAndExactMessage) {
  EXPECT_THROW_MESSAGE(throw TestFixture::make(TypeParam::message()), typename TestFixture::Error,
                       TypeParam::message());
}

TYPED_TEST(ErrorFamilyTest, IsCaughtAsOpcException) {
  using E = typename TestFixture::Error;
  try {
    throw TestFixture::make(TypeParam::message());
  } catch (opc::Exception const& e) {
    EXPECT_EQ(typeid(e), typeid(E));
    EXPECT_STREQ(e.what(), TypeParam::message());
    EXPECT_EQ(e.code(), TestFixture::expectedCode(fileExistsCode()));
    return;
  } catch (...) {
  }
  ADD_FAILURE() << "not caught as opc::Exception";
}

TYPED_TEST(ErrorFamilyTest, IsCaughtAsStdExceptionWithTheComposedText) {
  try {
    throw TestFixture::make(TypeParam::message());
  } catch (std::exception const& e) {
    EXPECT_STREQ(e.what(), TypeParam::message());
    return;
  } catch (...) {
  }
  ADD_FAILURE() << "not caught as std::exception";
}

TYPED_TEST(ErrorFamilyTest, AddsNothingToTheText) {
  // The code's words appear only if the thrower put them there; an empty message stays empty.
  EXPECT_STREQ(TestFixture::make("").what(), "");
  std::string const odd = "  leading and trailing blanks, UTF-8 \xc3\xa9\xe6\x97\xa5, ends with: ";
  EXPECT_EQ(TestFixture::make(odd).what(), odd);
  std::string const longText(100000, 'x');
  EXPECT_EQ(TestFixture::make(longText).what(), longText);
}

TYPED_TEST(ErrorFamilyTest, CopyKeepsTextAndCode) {
  using E = typename TestFixture::Error;
  E const original = TestFixture::make(TypeParam::message());
  E const copy(original);
  EXPECT_STREQ(copy.what(), TypeParam::message());
  EXPECT_EQ(copy.code(), original.code());
  EXPECT_EQ(copy.code(), TestFixture::expectedCode(fileExistsCode()));
  // The original is untouched by being copied.
  EXPECT_STREQ(original.what(), TypeParam::message());
}

TYPED_TEST(ErrorFamilyTest, MoveKeepsTextAndCode) {
  using E = typename TestFixture::Error;
  E original = TestFixture::make(TypeParam::message());
  E const moved(std::move(original));
  EXPECT_STREQ(moved.what(), TypeParam::message());
  EXPECT_EQ(moved.code(), TestFixture::expectedCode(fileExistsCode()));
}

TYPED_TEST(ErrorFamilyTest, SurvivesAnExceptionPointer) {
  using E = typename TestFixture::Error;
  std::exception_ptr stored;
  try {
    throw TestFixture::make(TypeParam::message());
  } catch (...) {
    stored = std::current_exception();
  }
  ASSERT_TRUE(stored);
  try {
    std::rethrow_exception(stored);
  } catch (E const& e) {
    EXPECT_STREQ(e.what(), TypeParam::message());
    EXPECT_EQ(e.code(), TestFixture::expectedCode(fileExistsCode()));
    return;
  } catch (...) {
  }
  ADD_FAILURE() << "not rethrown as its own class";
}

TYPED_TEST(ErrorFamilyTest, ReportsTheCodeOfItsForm) {
  auto const e = TestFixture::make(TypeParam::message(), fileExistsCode());
  if constexpr (TypeParam::kForm == Form::kWithCode) {
    // The code given is kept as it is, and still compares with the generic condition.
    EXPECT_EQ(e.code(), fileExistsCode());
    EXPECT_TRUE(e.code() == boost::system::errc::file_exists);
    EXPECT_TRUE(e.code().failed());
  } else {
    // No code, or a code given and dropped: value 0 in the system category, no failure.
    EXPECT_EQ(e.code().value(), 0);
    EXPECT_EQ(e.code().category(), boost::system::system_category());
    EXPECT_FALSE(e.code().failed());
    EXPECT_FALSE(e.code() == boost::system::errc::file_exists);
  }
}

TYPED_TEST(ErrorFamilyTest, KeepsOrDropsAGenericCodeAlike) {
  boost::system::error_code const generic =
      boost::system::errc::make_error_code(boost::system::errc::permission_denied);
  if constexpr (TypeParam::kForm == Form::kWithCode) {
    auto const e = TestFixture::make(TypeParam::message(), generic);
    EXPECT_EQ(e.code(), generic);
    EXPECT_EQ(&e.code().category(), &boost::system::generic_category());
    // A code holding no error is kept as no error.
    EXPECT_FALSE(TestFixture::make(TypeParam::message(), boost::system::error_code()).code());
  } else if constexpr (TypeParam::kForm == Form::kDropsCode) {
    auto const e = TestFixture::make(TypeParam::message(), generic);
    EXPECT_EQ(e.code(), boost::system::error_code());
  } else {
    // Message only: whatever the thrower meant, the code holds no error.
    EXPECT_EQ(TestFixture::make(TypeParam::message()).code(), boost::system::error_code());
  }
}

}  // namespace
