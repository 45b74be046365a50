// A file being written below a LocalConfinedDestination, by its descriptor.  Private to
// libopccore.
#ifndef OPC_CORE_LOCAL_CONFINED_FILE_H_
#define OPC_CORE_LOCAL_CONFINED_FILE_H_

#include <ostream>
#include <string>

#include <opc/core/confined_destination.h>

#include "descriptor_out_buffer.h"

namespace opc {
namespace detail {

// Content, time and permissions all go to the open descriptor, so they reach the file that
// was opened whatever is done to its name meanwhile.
class LocalConfinedFile : public ConfinedFile {
 public:
  // A file written in place; takes over `fd`.  `createdMode` is the permission bits the file
  // is known to have (it was just created with them), or -1: setPermissions asks nothing of
  // the system for the bits it already has.
  explicit LocalConfinedFile(int fd, int createdMode = -1);
  // A temporary file `temporary` in the folder `folder` (both descriptors taken over), which
  // `commit` renames to `target` in the same folder.
  LocalConfinedFile(int fd, int folder, std::string temporary, std::string target);
  ~LocalConfinedFile() override;

  std::ostream& stream() override;
  void finishContent(ConfinedResult& result) override;
  void setLastModifiedTime(boost::posix_time::ptime time, boost::system::error_code& code) override;
  void setPermissions(Perms::Perms_tag permissions, boost::system::error_code& code) override;
  void commit(boost::system::error_code& code) override;

 private:
  int fd_;
  int folder_;
  std::string temporary_;
  std::string target_;
  bool committed_ = false;
  int createdMode_ = -1;
  DescriptorOutBuffer buffer_;
  std::ostream stream_;
};

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_LOCAL_CONFINED_FILE_H_
