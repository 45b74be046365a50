// A FileSystemOps that passes every call to another one, except the calls a test chose to fail.
#ifndef TESTS_SUPPORT_FAULTY_FILE_SYSTEM_OPS_H_
#define TESTS_SUPPORT_FAULTY_FILE_SYSTEM_OPS_H_

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <opc/core/file_system_ops.h>

namespace opcvk_test {

// Wraps `inner` (shared, so that it lives as long as the wrapper) and injects failures.
//
// `failOn("doCreateOutputStream", code)` makes every later call of that slot fail: the slot
// sets `code` and the text "injected failure" and gives the empty result (false, "",
// Perms::unknown, not_a_date_time, a null stream, nothing listed) without calling `inner`.
// With `nthCall` N > 0, only the N-th call of the slot after `failOn` fails, and the slot
// works again afterwards.  Slot names are the names of the virtual operations; an unknown
// name throws std::invalid_argument.  doGetLocalPath takes no code: it fails by returning
// false.  doIsAbsolutePath cannot fail and is refused.
//
// Every call is counted per slot, failed or not (`callCount`).  Thread-safe.
class FaultyFileSystemOps : public opc::FileSystemOps {
 public:
  explicit FaultyFileSystemOps(std::shared_ptr<opc::FileSystemOps> inner);
  ~FaultyFileSystemOps() override;

  void failOn(std::string const& slot, boost::system::error_code code, int nthCall = 0);
  void clearFaults();
  int callCount(std::string const& slot) const;

 protected:
  std::u16string doGetTempName(std::u16string const& path, std::string& text,
                               boost::system::error_code& code) const override;
  std::u16string doGetParentPath(std::u16string const& path, std::string& text,
                                 boost::system::error_code& code) const override;
  std::u16string doGetFilename(std::u16string const& path, std::string& text,
                               boost::system::error_code& code) const override;
  std::u16string doGetExtension(std::u16string const& path, std::string& text,
                                boost::system::error_code& code) const override;
  std::u16string doAppendPath(std::u16string const& base, std::u16string const& rest,
                              std::string& text, boost::system::error_code& code) const override;
  std::u16string doNormalizePath(std::u16string const& path, std::string& text,
                                 boost::system::error_code& code) const override;
  bool doGetLocalPath(std::u16string const& path, std::u16string& out) const override;
  bool doIsAbsolutePath(std::u16string const& path) const override;
  bool doExists(std::u16string const& path, std::string& text,
                boost::system::error_code& code) const override;
  bool doIsFile(std::u16string const& path, std::string& text,
                boost::system::error_code& code) const override;
  bool doIsFolder(std::u16string const& path, std::string& text,
                  boost::system::error_code& code) const override;
  bool doIsSymlink(std::u16string const& path, std::string& text,
                   boost::system::error_code& code) const override;
  opc::Perms::Perms_tag doGetPermissions(std::u16string const& path, std::string& text,
                                         boost::system::error_code& code) const override;
  void doSetPermissions(std::u16string const& path, opc::Perms::Perms_tag permissions,
                        std::string& text, boost::system::error_code& code) const override;
  boost::posix_time::ptime doGetLastModifiedTime(std::u16string const& path, std::string& text,
                                                 boost::system::error_code& code) const override;
  void doSetLastModifiedTime(std::u16string const& path, boost::posix_time::ptime time,
                             std::string& text, boost::system::error_code& code) const override;
  std::u16string doGetLinkTarget(std::u16string const& path, std::string& text,
                                 boost::system::error_code& code) const override;
  void doGetFiles(std::u16string const& folder, std::vector<std::u16string>& out, bool recursive,
                  std::string& text, boost::system::error_code& code) const override;
  std::shared_ptr<std::istream> doCreateInputStream(std::u16string const& path, int mode,
                                                    std::string& text,
                                                    boost::system::error_code& code) const override;
  std::shared_ptr<std::ostream> doCreateOutputStream(
      std::u16string const& path, int mode, std::string& text,
      boost::system::error_code& code) const override;
  void doCreateFolder(std::u16string const& path, std::string& text,
                      boost::system::error_code& code) const override;
  void doCreateFolders(std::u16string const& path, std::string& text,
                       boost::system::error_code& code) const override;
  void doCreateSymlink(std::u16string const& target, std::u16string const& linkPath,
                       std::string& text, boost::system::error_code& code) const override;
  void doCopy(std::u16string const& from, std::u16string const& to, opc::ExistsMode mode,
              std::string& text, boost::system::error_code& code) const override;
  void doRename(std::u16string const& from, std::u16string const& to, std::string& text,
                boost::system::error_code& code) const override;
  void doRemove(std::u16string const& path, std::string& text,
                boost::system::error_code& code) const override;
  void doRemoveAll(std::u16string const& path, std::string& text,
                   boost::system::error_code& code) const override;

 private:
  struct Fault {
    boost::system::error_code code;
    int nthCall = 0;
    int callsSinceSet = 0;
  };

  // Counts the call; true (with text and code set) if it must fail.
  bool injected(char const* slot, std::string& text, boost::system::error_code& code) const;

  std::shared_ptr<opc::FileSystemOps> inner_;
  mutable std::mutex mutex_;
  mutable std::map<std::string, Fault> faults_;
  mutable std::map<std::string, int> calls_;
};

}  // namespace opcvk_test

#endif  // TESTS_SUPPORT_FAULTY_FILE_SYSTEM_OPS_H_
