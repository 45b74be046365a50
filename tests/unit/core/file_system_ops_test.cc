// The non-virtual layer of FileSystemOps: which operations raise, the shape of their
// messages, and what the operations with an error code hand back.
#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/file_system_ops.h>

#include "support/expect_exception.h"
#include "support/scoped_thread_locale.h"

namespace {

using boost::posix_time::ptime;
using boost::system::error_code;
namespace errc = boost::system::errc;

// Every slot reports the same scripted outcome, so that the public layer can be watched.
class ScriptedFileSystemOps : public opc::FileSystemOps {
 public:
  std::string text;
  error_code code;
  mutable std::vector<std::string> calls;

 protected:
  void report(char const* slot, std::string& outText, error_code& outCode) const {
    calls.push_back(slot);
    outText = text;
    outCode = code;
  }
  std::u16string doGetTempName(std::u16string const&, std::string& t,
                               error_code& c) const override {
    report("doGetTempName", t, c);
    return u"temp";
  }
  std::u16string doGetParentPath(std::u16string const&, std::string& t,
                                 error_code& c) const override {
    report("doGetParentPath", t, c);
    return u"parent";
  }
  std::u16string doGetFilename(std::u16string const&, std::string& t,
                               error_code& c) const override {
    report("doGetFilename", t, c);
    return u"name";
  }
  std::u16string doGetExtension(std::u16string const&, std::string& t,
                                error_code& c) const override {
    report("doGetExtension", t, c);
    return u"ext";
  }
  std::u16string doAppendPath(std::u16string const&, std::u16string const&, std::string& t,
                              error_code& c) const override {
    report("doAppendPath", t, c);
    return u"joined";
  }
  std::u16string doNormalizePath(std::u16string const&, std::string& t,
                                 error_code& c) const override {
    report("doNormalizePath", t, c);
    return u"normal";
  }
  bool doGetLocalPath(std::u16string const&, std::u16string& out) const override {
    calls.push_back("doGetLocalPath");
    out = u"local";
    return !code;
  }
  bool doIsAbsolutePath(std::u16string const& path) const override {
    calls.push_back("doIsAbsolutePath");
    return path == u"abs";
  }
  bool doExists(std::u16string const&, std::string& t, error_code& c) const override {
    report("doExists", t, c);
    return true;
  }
  bool doIsFile(std::u16string const&, std::string& t, error_code& c) const override {
    report("doIsFile", t, c);
    return true;
  }
  bool doIsFolder(std::u16string const&, std::string& t, error_code& c) const override {
    report("doIsFolder", t, c);
    return true;
  }
  bool doIsSymlink(std::u16string const&, std::string& t, error_code& c) const override {
    report("doIsSymlink", t, c);
    return true;
  }
  opc::Perms::Perms_tag doGetPermissions(std::u16string const&, std::string& t,
                                         error_code& c) const override {
    report("doGetPermissions", t, c);
    return opc::Perms::owner_all;
  }
  void doSetPermissions(std::u16string const&, opc::Perms::Perms_tag, std::string& t,
                        error_code& c) const override {
    report("doSetPermissions", t, c);
  }
  ptime doGetLastModifiedTime(std::u16string const&, std::string& t, error_code& c) const override {
    report("doGetLastModifiedTime", t, c);
    return ptime(boost::gregorian::date(2000, 1, 1));
  }
  void doSetLastModifiedTime(std::u16string const&, ptime, std::string& t,
                             error_code& c) const override {
    report("doSetLastModifiedTime", t, c);
  }
  std::u16string doGetLinkTarget(std::u16string const&, std::string& t,
                                 error_code& c) const override {
    report("doGetLinkTarget", t, c);
    return u"target";
  }
  void doGetFiles(std::u16string const&, std::vector<std::u16string>& out, bool, std::string& t,
                  error_code& c) const override {
    report("doGetFiles", t, c);
    out.push_back(u"found");  // also on failure: the public layer must not pass it on
  }
  std::shared_ptr<std::istream> doCreateInputStream(std::u16string const&, int, std::string& t,
                                                    error_code& c) const override {
    report("doCreateInputStream", t, c);
    return std::make_shared<std::istream>(nullptr);
  }
  std::shared_ptr<std::ostream> doCreateOutputStream(std::u16string const&, int, std::string& t,
                                                     error_code& c) const override {
    report("doCreateOutputStream", t, c);
    return std::make_shared<std::ostream>(nullptr);
  }
  void doCreateFolder(std::u16string const&, std::string& t, error_code& c) const override {
    report("doCreateFolder", t, c);
  }
  void doCreateFolders(std::u16string const&, std::string& t, error_code& c) const override {
    report("doCreateFolders", t, c);
  }
  void doCreateSymlink(std::u16string const&, std::u16string const&, std::string& t,
                       error_code& c) const override {
    report("doCreateSymlink", t, c);
  }
  void doCopy(std::u16string const&, std::u16string const&, opc::ExistsMode, std::string& t,
              error_code& c) const override {
    report("doCopy", t, c);
  }
  void doRename(std::u16string const&, std::u16string const&, std::string& t,
                error_code& c) const override {
    report("doRename", t, c);
  }
  void doRemove(std::u16string const&, std::string& t, error_code& c) const override {
    report("doRemove", t, c);
  }
  void doRemoveAll(std::u16string const&, std::string& t, error_code& c) const override {
    report("doRemoveAll", t, c);
  }
};

class FileSystemOpsTest : public ::testing::Test {
 protected:
  void fail(std::string text) {
    fileSystem_.text = std::move(text);
    fileSystem_.code = error_code(EACCES, boost::system::system_category());
  }
  ScriptedFileSystemOps fileSystem_;
};

TEST_F(FileSystemOpsTest, SucceedingSlotsGiveTheirResults) {
  EXPECT_EQ(fileSystem_.getTempName(u"/p"), u"temp");
  EXPECT_EQ(fileSystem_.getParentPath(u"/p"), u"parent");
  EXPECT_EQ(fileSystem_.getFilename(u"/p"), u"name");
  EXPECT_EQ(fileSystem_.getExtension(u"/p"), u"ext");
  EXPECT_EQ(fileSystem_.appendPath(u"/b", u"/r"), u"joined");
  EXPECT_EQ(fileSystem_.normalizePath(u"/p"), u"normal");
  EXPECT_TRUE(fileSystem_.isFile(u"/p"));
  EXPECT_TRUE(fileSystem_.isFolder(u"/p"));
  EXPECT_TRUE(fileSystem_.isSymlink(u"/p"));
  EXPECT_EQ(fileSystem_.getLinkTarget(u"/p"), u"target");
  EXPECT_TRUE(fileSystem_.isAbsolutePath(u"abs"));
  std::u16string local;
  EXPECT_TRUE(fileSystem_.getLocalPath(u"/p", local));
  EXPECT_EQ(local, u"local");
  error_code code = errc::make_error_code(errc::io_error);
  EXPECT_TRUE(fileSystem_.exists(u"/p", code));
  EXPECT_FALSE(code) << "an earlier error in the code is cleared";
  EXPECT_EQ(fileSystem_.getPermissions(u"/p", code), opc::Perms::owner_all);
  std::vector<std::u16string> files = {u"before"};
  fileSystem_.getFiles(u"/p", files, true, code);
  EXPECT_EQ(files, (std::vector<std::u16string>{u"before", u"found"}));
  EXPECT_NE(fileSystem_.createInputStream(u"/p", 33, code), nullptr);
  EXPECT_NE(fileSystem_.createOutputStream(u"/p", 34, code), nullptr);
}

TEST_F(FileSystemOpsTest, EachPublicOperationCallsItsOwnSlot) {
  error_code code;
  std::vector<std::u16string> files;
  fileSystem_.setPermissions(u"/p", opc::Perms::none, code);
  fileSystem_.getLastModifiedTime(u"/p", code);
  fileSystem_.setLastModifiedTime(u"/p", ptime(), code);
  fileSystem_.createFolder(u"/p", code);
  fileSystem_.createFolders(u"/p", code);
  fileSystem_.createSymlink(u"/t", u"/p", code);
  fileSystem_.copy(u"/a", u"/b", opc::ExistsMode::SkipIfExists, code);
  fileSystem_.rename(u"/a", u"/b", code);
  fileSystem_.remove(u"/p", code);
  fileSystem_.removeAll(u"/p", code);
  EXPECT_EQ(
      fileSystem_.calls,
      (std::vector<std::string>{
          "doSetPermissions", "doGetLastModifiedTime", "doSetLastModifiedTime", "doCreateFolder",
          "doCreateFolders", "doCreateSymlink", "doCopy", "doRename", "doRemove", "doRemoveAll"}));
}

TEST_F(FileSystemOpsTest, OperationsWithoutCodeRaiseWithTheSlotsText) {
  fail("the reason");
  EXPECT_THROW_MESSAGE(fileSystem_.isFile(u"/a/b"), opc::Exception,
                       "Could not test for a file: /a/b: the reason");
  EXPECT_THROW_MESSAGE(fileSystem_.isFolder(u"/a"), opc::Exception,
                       "Could not test for a folder: /a: the reason");
  EXPECT_THROW_MESSAGE(fileSystem_.isSymlink(u"/a"), opc::Exception,
                       "Could not test for a symbolic link: /a: the reason");
  EXPECT_THROW_MESSAGE(fileSystem_.getLinkTarget(u"/a"), opc::Exception,
                       "Could not get the link target of: /a: the reason");
  EXPECT_THROW_MESSAGE(fileSystem_.getTempName(u"/a"), opc::Exception,
                       "Could not make a temporary name in: /a: the reason");
  EXPECT_THROW_MESSAGE(fileSystem_.getParentPath(u"/a"), opc::Exception,
                       "Could not get the parent path of: /a: the reason");
  EXPECT_THROW_MESSAGE(fileSystem_.getFilename(u"/a"), opc::Exception,
                       "Could not get the file name of: /a: the reason");
  EXPECT_THROW_MESSAGE(fileSystem_.getExtension(u"/a"), opc::Exception,
                       "Could not get the extension of: /a: the reason");
  EXPECT_THROW_MESSAGE(fileSystem_.normalizePath(u"/a"), opc::Exception,
                       "Could not normalize: /a: the reason");
  EXPECT_THROW_MESSAGE(fileSystem_.appendPath(u"/base", u"/rest"), opc::Exception,
                       "Could not append path: /rest to /base: the reason");
}

TEST_F(FileSystemOpsTest, RaisedExceptionKeepsTheCodeAndFallsBackToItsMessage) {
  fail("");
  opcvk_test::ScopedThreadLocale utf8("C.UTF-8");
  ASSERT_TRUE(utf8.installed());
  try {
    fileSystem_.isFile(u"/\u00e9");
    FAIL() << "no exception";
  } catch (opc::Exception const& e) {
    EXPECT_EQ(std::string(e.what()), "Could not test for a file: /\xc3\xa9: Permission denied");
    EXPECT_EQ(e.code(), errc::permission_denied);
  }
}

TEST_F(FileSystemOpsTest, OperationsWithCodeNeverRaiseAndGiveFallbacks) {
  fail("ignored");
  error_code code;
  EXPECT_FALSE(fileSystem_.exists(u"/p", code)) << "a failure gives false";
  EXPECT_EQ(code, errc::permission_denied);
  EXPECT_EQ(fileSystem_.getPermissions(u"/p", code), opc::Perms::unknown);
  EXPECT_EQ(code, errc::permission_denied);
  EXPECT_TRUE(fileSystem_.getLastModifiedTime(u"/p", code).is_not_a_date_time());
  std::vector<std::u16string> files = {u"before"};
  fileSystem_.getFiles(u"/p", files, true, code);
  EXPECT_EQ(files, std::vector<std::u16string>{u"before"});
  EXPECT_EQ(fileSystem_.createInputStream(u"/p", 33, code), nullptr);
  EXPECT_EQ(code, errc::permission_denied);
  EXPECT_EQ(fileSystem_.createOutputStream(u"/p", 34, code), nullptr);
  EXPECT_EQ(code, errc::permission_denied);
  code.clear();
  fileSystem_.removeAll(u"/p", code);
  EXPECT_EQ(code, errc::permission_denied);
  std::u16string local = u"kept";
  EXPECT_FALSE(fileSystem_.getLocalPath(u"/p", local));
}

}  // namespace
