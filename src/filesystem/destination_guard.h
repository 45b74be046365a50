// DestinationGuard: the names that extraction refuses, and the words of every refusal.
#ifndef SRC_FILESYSTEM_DESTINATION_GUARD_H_
#define SRC_FILESYSTEM_DESTINATION_GUARD_H_

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <boost/system/error_code.hpp>

#include <opc/core/confined_destination.h>
#include <opc/core/file_system_ops.h>

namespace opc {
namespace vkservices {
namespace detail {

// Why an entry must not be extracted: the whole message ("Refused to extract <entry>:
// <reason>") and the code that goes with it (invalid_argument for a path that leaves the
// destination, too_many_symbolic_link_levels for a link on the way, too_many_links for a file
// that has other hard links).
struct Refusal {
  std::string message;
  boost::system::error_code code;
};

// Carries a Refusal out of a step that does not know the kind of the entry (the making of its
// parents); the extraction of each kind catches it and raises its own class.  Never leaves
// the library.
class ExtractionRefused : public std::exception {
 public:
  explicit ExtractionRefused(Refusal refusal) : refusal_(std::move(refusal)) {}
  char const* what() const noexcept override { return refusal_.message.c_str(); }
  Refusal const& refusal() const { return refusal_; }

 private:
  Refusal refusal_;
};

// A package is untrusted: whatever its manifest holds, nothing may be made, written, or given
// a time or permissions outside the destination root.  Two parts keep it so:
//
//   - the guard refuses, by the text alone and before anything is looked at, package paths
//     with an empty, "." or ".." component, or a NUL character (a component is also cut at
//     backslashes for the dot test, so that "..\x" is refused on file systems that read a
//     backslash as a separator);
//   - the destination's opc::ConfinedDestination refuses, as it meets them, a symbolic link
//     below the root on the way to an entry or at a file's own path (planted before, or made
//     by an earlier entry) and a file with other hard links; the guard words its answers.
//
// Stateless; every operation is static.
class DestinationGuard {
 public:
  DestinationGuard() = delete;

  // The lexical test of the package path `pathName`; nothing is looked at on disk.
  static std::optional<Refusal> checkPathName(std::u16string const& pathName);

  // The refusal of the entry at `pathName` for what the confined destination of
  // `destination` on `fileSystem` met (SymbolicLink, SharedFile), naming the real path at
  // fault; nothing for another result.
  static std::optional<Refusal> refusalFor(opc::ConfinedResult const& result,
                                           opc::FileSystemOps const& fileSystem,
                                           std::u16string const& destination,
                                           std::u16string const& pathName);

  // "Refused to extract <pathName>: <reason>".
  static Refusal makeRefusal(std::u16string const& pathName, std::string const& reason,
                             boost::system::errc::errc_t condition);
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_DESTINATION_GUARD_H_
