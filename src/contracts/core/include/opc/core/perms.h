// opc::Perms: POSIX-style permission bits of files, folders and links.
#ifndef OPC_CORE_PERMS_H_
#define OPC_CORE_PERMS_H_

#include <cstdint>

namespace opc {

struct Perms {
  // Permission bits as a plain number: owner, group and other, each read, write and execute,
  // in the low nine bits (0777 is 511).  Any value of the low nine bits is valid; the named
  // values are a convenience.
  //
  // `unknown` (65535) is not a permission value: callers use it to say that the permissions
  // are not known, and no operation returns it as a real result.
  enum Perms_tag : std::uint32_t {
    none = 0,
    owner_read = 0400,
    owner_write = 0200,
    owner_exe = 0100,
    owner_all = 0700,
    group_read = 040,
    group_write = 020,
    group_exe = 010,
    group_all = 070,
    others_read = 04,
    others_write = 02,
    others_exe = 01,
    others_all = 07,
    all_all = 0777,
    perms_mask = 0777,
    unknown = 0xFFFF,
  };
};

}  // namespace opc

#endif  // OPC_CORE_PERMS_H_
