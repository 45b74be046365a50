// The names extraction refuses and the words of its refusals.
#include "filesystem/destination_guard.h"

#include <string_view>

#include <opc/core/string_conversions.h>

namespace opc {
namespace vkservices {
namespace detail {

namespace {

using boost::system::errc::errc_t;

constexpr char16_t kSeparator = u'/';
constexpr char16_t kBackslash = u'\\';

bool isDotName(std::u16string_view name) { return name == u"." || name == u".."; }

// True if `component`, cut at backslashes as well, holds "." or "..": a file system that
// reads a backslash as a separator would otherwise resolve it.
bool hasDotPiece(std::u16string_view component) {
  std::size_t begin = 0;
  while (true) {
    std::size_t const end = component.find(kBackslash, begin);
    if (isDotName(component.substr(begin, end - begin))) return true;
    if (end == std::u16string_view::npos) return false;
    begin = end + 1;
  }
}

// Whether `path` is absolute, with neither a NUL nor an empty component nor a "." or ".."
// piece (cut at slashes and at backslashes): a path that checkPathName lets through, told in
// one look at each code unit.  Every path of a well-formed package is one.
bool isPlainPath(std::u16string const& path) {
  if (path.empty() || path[0] != kSeparator) return false;
  if (path.size() == 1) return true;
  std::size_t componentLength = 0;
  std::size_t pieceLength = 0;
  std::size_t pieceDots = 0;
  auto const dotPiece = [&] {
    return pieceLength > 0 && pieceLength <= 2 && pieceDots == pieceLength;
  };
  for (std::size_t i = 1; i < path.size(); ++i) {
    char16_t const c = path[i];
    if (c == kSeparator) {
      if (componentLength == 0 || dotPiece()) return false;
      componentLength = pieceLength = pieceDots = 0;
    } else if (c == kBackslash) {
      if (dotPiece()) return false;
      ++componentLength;
      pieceLength = pieceDots = 0;
    } else if (c == u'\0') {
      return false;
    } else {
      ++componentLength;
      ++pieceLength;
      pieceDots += c == u'.';
    }
  }
  return componentLength > 0 && !dotPiece();
}

// Text of a path for a message: NUL would cut what() short, so it shows as "?".
std::string messageText(std::u16string path) {
  for (char16_t& c : path) {
    if (c == u'\0') c = u'?';
  }
  return opc::toUDEString(path);
}

}  // namespace

Refusal DestinationGuard::makeRefusal(std::u16string const& pathName, std::string const& reason,
                                      errc_t condition) {
  return Refusal{"Refused to extract " + messageText(pathName) + ": " + reason,
                 boost::system::errc::make_error_code(condition)};
}

std::optional<Refusal> DestinationGuard::checkPathName(std::u16string const& pathName) {
  if (isPlainPath(pathName)) return std::nullopt;
  if (pathName.find(u'\0') != std::u16string::npos) {
    return makeRefusal(pathName, "the path holds a NUL character",
                       boost::system::errc::invalid_argument);
  }
  if (pathName.empty() || pathName[0] != kSeparator) {
    return makeRefusal(pathName, "the path is not absolute", boost::system::errc::invalid_argument);
  }
  if (pathName.size() == 1) return std::nullopt;  // the root: the destination itself
  bool leaves = false;
  bool unusual = false;
  std::u16string_view const path(pathName);
  std::size_t begin = 1;
  while (true) {
    std::size_t const end = path.find(kSeparator, begin);
    std::u16string_view const component = path.substr(begin, end - begin);
    if (component.empty() || component == u".") {
      unusual = true;
    } else if (component == u".." || hasDotPiece(component)) {
      leaves = true;
    }
    if (end == std::u16string::npos) break;
    begin = end + 1;
  }
  if (leaves) {
    return makeRefusal(pathName, "the path leaves the destination",
                       boost::system::errc::invalid_argument);
  }
  if (unusual) {
    return makeRefusal(pathName, "the path has an empty or \".\" component",
                       boost::system::errc::invalid_argument);
  }
  return std::nullopt;
}

std::optional<Refusal> DestinationGuard::refusalFor(opc::ConfinedResult const& result,
                                                    opc::FileSystemOps const& fileSystem,
                                                    std::u16string const& destination,
                                                    std::u16string const& pathName) {
  switch (result.status) {
    case opc::ConfinedResult::Status::SymbolicLink: {
      // The link is the component at `depth`: its real path ends that many components in.
      std::size_t end = 0;
      for (std::size_t i = 0; i < result.depth && end != std::u16string::npos; ++i) {
        end = pathName.find(kSeparator, end + 1);
      }
      std::u16string const link = fileSystem.appendPath(destination, pathName.substr(0, end));
      return makeRefusal(pathName, messageText(link) + " is a symbolic link inside the destination",
                         boost::system::errc::too_many_symbolic_link_levels);
    }
    case opc::ConfinedResult::Status::SharedFile:
      return makeRefusal(pathName,
                         messageText(fileSystem.appendPath(destination, pathName)) +
                             " has other hard links, which may lie outside the destination",
                         boost::system::errc::too_many_links);
    default:
      return std::nullopt;
  }
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
