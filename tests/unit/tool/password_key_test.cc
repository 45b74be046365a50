#include "password_key.h"

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <foundation/crypto/crypto_engine.h>
#include <opc/core/exception.h>
#include <opc/model/package.h>
#include <opc/vkservices/cipher_data_manager.h>
#include <opc/vkservices/errors.h>

#include "support/expect_exception.h"
#include "tool_error.h"

namespace {

using foundation::crypto::CryptoEngine;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::CipherDataManager;
using opcvk::Password;

int const kWork = CryptoEngine::getMinimumPasswordWorkFactor();

Password passwordOf(std::u16string const& text) { return Password(text.begin(), text.end()); }

// A package in memory with cipher data over it; the package outlives the manager.
struct CipherData {
  explicit CipherData(std::vector<unsigned char> bytes = {},
                      PackageAccess access = PackageAccess::Create)
      : package(Package::openBuffer(std::move(bytes), access)),
        manager(std::make_unique<CipherDataManager>(*package)) {}

  std::unique_ptr<Package> package;
  std::unique_ptr<CipherDataManager> manager;
};

TEST(PasswordKeyTest, NewKeyIsRecordedUnderTheManifestRelationshipAndFoundAgain) {
  CipherData writer;
  EXPECT_FALSE(opcvk::hasFileSystemEntry(*writer.manager));
  auto const key = opcvk::newFileSystemKey(*writer.manager, passwordOf(u"s3cret"), kWork);
  auto const selector = opcvk::fileSystemSelector();
  EXPECT_EQ(selector.getSourceURI().toString(), u"/");
  EXPECT_EQ(selector.getSelectorType(), opc::model::RelationshipSelectorType::ByType);
  EXPECT_EQ(selector.getSelectionCriteria(),
            u"http://schemas.opcvkservices.org/package/2013/relationships/filesystemManifest");
  writer.package->save();

  CipherData reader(writer.package->getBuffer(), PackageAccess::Read);
  ASSERT_TRUE(opcvk::hasFileSystemEntry(*reader.manager));
  auto const entry = reader.manager->getCipherEntry(selector);
  EXPECT_EQ(entry.getSalt().size(), 32u);
  EXPECT_EQ(entry.getIV().size(), 16u);
  EXPECT_EQ(opcvk::fileSystemKey(*reader.manager, passwordOf(u"s3cret")).getKeyBytes(),
            key.getKeyBytes());
}

TEST(PasswordKeyTest, WrongPasswordSaysSoAndNothingMore) {
  CipherData cipher;
  opcvk::newFileSystemKey(*cipher.manager, passwordOf(u"right"), kWork);
  EXPECT_THROW_MESSAGE(opcvk::fileSystemKey(*cipher.manager, passwordOf(u"Right")),
                       opcvk::ToolError, "wrong password");
}

TEST(PasswordKeyTest, NewKeyReplacesTheEntryOfAnEarlierOne) {
  CipherData cipher;
  auto const first = opcvk::newFileSystemKey(*cipher.manager, passwordOf(u"one"), kWork);
  auto const second = opcvk::newFileSystemKey(*cipher.manager, passwordOf(u"two"), kWork);
  EXPECT_NE(first.getKeyBytes(), second.getKeyBytes());
  EXPECT_EQ(opcvk::fileSystemKey(*cipher.manager, passwordOf(u"two")).getKeyBytes(),
            second.getKeyBytes());
  EXPECT_THROW_MESSAGE(opcvk::fileSystemKey(*cipher.manager, passwordOf(u"one")), opcvk::ToolError,
                       "wrong password");
}

TEST(PasswordKeyTest, EntryThatAsksForTooMuchWorkIsRefusedInTheCryptoLibrarysWords) {
  CipherData cipher;
  std::vector<unsigned char> hash(37, 0);
  hash[0] = 1;
  hash[1] = hash[2] = hash[3] = hash[4] = 0xFF;
  cipher.manager->addCipherEntry(opcvk::fileSystemSelector(), hash,
                                 cipher.manager->generateRandomSalt(),
                                 cipher.manager->generateRandomInitVector());
  EXPECT_THROW_MESSAGE(opcvk::fileSystemKey(*cipher.manager, passwordOf(u"pw")), opc::Exception,
                       "The stored password hash asks for a work factor of 4294967295 "
                       "iterations, above the ceiling of 10000000 iterations.");
}

TEST(PasswordKeyTest, PackageWithoutEntryHasNoKey) {
  CipherData cipher;
  EXPECT_THROW_MESSAGE(opcvk::fileSystemKey(*cipher.manager, passwordOf(u"pw")),
                       opc::vkservices::CipherEntryNotFound,
                       "No cipher data found for the given RelationshipSelector.");
}

}  // namespace
