#include "support/faulty_file_system_ops.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>

#include "support/expect_exception.h"
#include "support/in_memory_file_system_ops.h"

namespace {

using boost::system::error_code;
namespace errc = boost::system::errc;

class FaultyFileSystemOpsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    inner_->addFile(u"/data/a.txt", "a");
    inner_->addFile(u"/data/b.txt", "b");
  }

  std::shared_ptr<opcvk_test::InMemoryFileSystemOps> inner_ =
      std::make_shared<opcvk_test::InMemoryFileSystemOps>();
  opcvk_test::FaultyFileSystemOps faulty_{inner_};
};

TEST_F(FaultyFileSystemOpsTest, PassesCallsThroughUntilTold) {
  error_code code;
  EXPECT_TRUE(faulty_.exists(u"/data/a.txt", code));
  EXPECT_TRUE(faulty_.isFile(u"/data/a.txt"));
  std::vector<std::u16string> files;
  faulty_.getFiles(u"/data", files, true, code);
  EXPECT_EQ(files, (std::vector<std::u16string>{u"/data/a.txt", u"/data/b.txt"}));
  auto output = faulty_.createOutputStream(u"/data/c.txt", 34, code);
  ASSERT_TRUE(output);
  *output << "c";
  EXPECT_EQ(inner_->readContent(u"/data/c.txt"), "c");
  EXPECT_EQ(faulty_.callCount("doExists"), 1);
  EXPECT_EQ(faulty_.callCount("doCreateOutputStream"), 1);
  EXPECT_EQ(faulty_.callCount("doRemove"), 0);
}

TEST_F(FaultyFileSystemOpsTest, FailsEveryCallOfTheChosenSlot) {
  faulty_.failOn("doCreateOutputStream", errc::make_error_code(errc::no_space_on_device));
  for (int i = 0; i < 3; ++i) {
    error_code code;
    EXPECT_EQ(faulty_.createOutputStream(u"/data/a.txt", 34, code), nullptr);
    EXPECT_EQ(code, errc::no_space_on_device);
  }
  EXPECT_EQ(inner_->readContent(u"/data/a.txt"), "a") << "the inner file system was not called";
  faulty_.clearFaults();
  error_code code;
  EXPECT_NE(faulty_.createOutputStream(u"/data/a.txt", 34, code), nullptr);
}

TEST_F(FaultyFileSystemOpsTest, FailsOnlyTheNthCall) {
  faulty_.failOn("doSetPermissions", errc::make_error_code(errc::permission_denied), 2);
  error_code code;
  faulty_.setPermissions(u"/data/a.txt", opc::Perms::owner_all, code);
  EXPECT_FALSE(code);
  faulty_.setPermissions(u"/data/b.txt", opc::Perms::owner_all, code);
  EXPECT_EQ(code, errc::permission_denied);
  EXPECT_EQ(inner_->getPermissions(u"/data/b.txt", code), 0644) << "not changed";
  faulty_.setPermissions(u"/data/b.txt", opc::Perms::owner_all, code);
  EXPECT_FALSE(code);
  EXPECT_EQ(faulty_.callCount("doSetPermissions"), 3);
}

TEST_F(FaultyFileSystemOpsTest, RaisingOperationsRaiseTheInjectedCode) {
  faulty_.failOn("doIsFile", errc::make_error_code(errc::io_error));
  EXPECT_THROW_MESSAGE(faulty_.isFile(u"/data/a.txt"), opc::Exception,
                       "Could not test for a file: /data/a.txt: injected failure");
  faulty_.failOn("doGetLocalPath", errc::make_error_code(errc::io_error));
  std::u16string out;
  EXPECT_FALSE(faulty_.getLocalPath(u"x", out));
}

TEST_F(FaultyFileSystemOpsTest, RefusesUnknownSlotsAndEmptyCodes) {
  EXPECT_THROW_MESSAGE(faulty_.failOn("doExist", errc::make_error_code(errc::io_error)),
                       std::invalid_argument, "no slot that can fail is named doExist");
  EXPECT_THROW_MESSAGE(faulty_.failOn("doIsAbsolutePath", errc::make_error_code(errc::io_error)),
                       std::invalid_argument, "no slot that can fail is named doIsAbsolutePath");
  EXPECT_THROW_MESSAGE(faulty_.failOn("doExists", error_code()), std::invalid_argument,
                       "an injected failure needs an error code");
}

}  // namespace
