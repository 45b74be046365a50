#include "file_feeder.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>
#include <opc/core/perms.h>
#include <opc/core/string_conversions.h>
#include <opc/vkservices/content_types.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/ude_to_utf8_transform.h>

#include "bytes_content_source.h"
#include "paths.h"
#include "tool_error.h"

namespace opcvk {
namespace {

using opc::vkservices::FileSystemManager;
using opc::vkservices::IContentSource;
using opc::vkservices::TransformMode;

// Files up to this size are read whole on the reading threads; larger ones are read while
// they are copied, so that no file's content needs to be in memory at once.
constexpr std::uint64_t kWholeFileLimit = 1u << 20;
// The window of files read ahead of the caller: enough to keep the readers busy while the
// caller adds, small enough that memory does not follow the size of the tree.
constexpr std::size_t kFilesAhead = 1024;
constexpr std::uint64_t kBytesAhead = 8u << 20;

// The years a package's file time can hold, as the local file system tells them.
constexpr std::int64_t kFirstSecond = -17987443200;  // 1400-01-01T00:00:00Z
constexpr std::int64_t kLastSecond = 253402300799;   // 9999-12-31T23:59:59Z

boost::system::error_code systemCode(int error) {
  return boost::system::error_code(error, boost::system::system_category());
}

// The time the walk or the reader saw, as the library's own add reads it from the disk: to
// the microsecond, refused outside the years the package can hold.
boost::posix_time::ptime timeOf(std::int64_t seconds, std::uint32_t nanoseconds) {
  if (seconds < kFirstSecond || seconds > kLastSecond) {
    boost::system::error_code const code = systemCode(EOVERFLOW);
    throw opc::vkservices::CouldNotGetLastModifiedTime(
        "Could not get last modified time: " + code.message(), code);
  }
  // Whole days first: boost::posix_time::seconds takes a long, and days keep the sum exact.
  // Division rounds towards zero, so days and seconds keep the sign of the whole.
  boost::posix_time::ptime const epoch(boost::gregorian::date(1970, 1, 1));
  return epoch + boost::gregorian::days(seconds / 86400) +
         boost::posix_time::seconds(static_cast<long>(seconds % 86400)) +
         boost::posix_time::microseconds(nanoseconds / 1000);
}

unsigned readingThreads(unsigned threads) {
  if (threads == 0) threads = std::thread::hardware_concurrency();
  return std::max(threads, 1u);
}

bool hasBackslash(std::u16string const& text) { return text.find(u'\\') != std::u16string::npos; }

// The extension of the file at the package path `path`, as the local file system tells it
// (the text after the last "." of the last name, none when that name begins with its only
// dot), without the copies of the path that its answer makes.  A file's path never ends with
// a separator.
std::u16string_view extensionOf(std::u16string_view path) {
  std::size_t const slash = path.rfind(u'/');
  std::u16string_view const name =
      slash == std::u16string_view::npos ? path : path.substr(slash + 1);
  std::size_t const dot = name.rfind(u'.');
  if (dot == std::u16string_view::npos || dot == 0) return std::u16string_view();
  return name.substr(dot + 1);
}

}  // namespace

FileFeeder::FileFeeder(std::filesystem::path const& root, SourceTree const& tree,
                       TransformMode mode, unsigned threads)
    : root_(root),
      rootText_(fromArgument(root.native())),
      tree_(tree),
      mode_(mode),
      rootDirect_(!hasBackslash(rootText_)),
      textType_(opc::vkservices::getTextContentType()) {
  std::vector<std::uint32_t> indices;
  std::string native;
  for (std::size_t i = 0; i < tree.items.size(); ++i) {
    SourceItem const& item = tree.items[i];
    if (item.kind != SourceItem::Kind::File) continue;
    // Only a path whose bytes hold a backslash needs its text for the test.
    native.clear();
    tree.appendNative(item, native);
    bool const plain = native.find('\\') == std::string::npos;
    if (plain ? rootDirect_ : direct(tree.relative(item))) {
      indices.push_back(static_cast<std::uint32_t>(i));
    }
  }
  readAhead_ =
      std::make_unique<ReadAhead>(root.native(), tree, std::move(indices), readingThreads(threads),
                                  kFilesAhead, kBytesAhead, kWholeFileLimit);
}

FileFeeder::~FileFeeder() = default;

bool FileFeeder::direct(std::u16string const& path) const {
  return rootDirect_ && !hasBackslash(path);
}

std::uint64_t FileFeeder::add(FileSystemManager& files, std::size_t index,
                              std::u16string const& path) {
  SourceItem const& item = tree_.items[index];
  // The package path is "/" and the path below the root, which the caller has converted
  // already: its text serves for the tests and the messages, with no second conversion.
  if (!direct(path)) {
    files.addList(rootText_, {path}, mode_);
    // The add passes over in silence what it cannot find; a file that went away
    // meanwhile is not to be lost without a word.
    if (!files.hasEntry(path)) {
      throw ToolError("Could not add: " + root_.native() + displayText(path));
    }
    return item.size;
  }
  // The table's own object, which the source shares.
  std::shared_ptr<opc::model::ContentType const> const& type = typeOf(path);
  ReadResult read = readAhead_->next();
  // Permissions and time come first, as the library's add reads them before the content.
  bool const walked = item.statusKnown;
  std::uint32_t const mode = walked ? item.mode : read.mode;
  std::uint64_t const size = walked ? item.size : read.size;
  std::optional<boost::posix_time::ptime> time;
  if (walked || read.statusKnown) {
    time = walked ? timeOf(item.mtimeSeconds, item.mtimeNanoseconds)
                  : timeOf(read.mtimeSeconds, read.mtimeNanoseconds);
  }
  std::unique_ptr<IContentSource> source = contentOf(std::move(read), path, type);
  if (mode_ == TransformMode::ApplyTransforms && *type == textType_) {
    source = std::make_unique<opc::vkservices::UDEToUTF8Transform>(std::move(source));
  }
  // A file with content has been opened, so its status is known.
  files.addFile(std::move(source), path, static_cast<opc::Perms::Perms_tag>(mode), *time);
  return size;
}

std::unique_ptr<IContentSource> FileFeeder::contentOf(
    ReadResult read, std::u16string const& path,
    std::shared_ptr<opc::model::ContentType const> const& type) {
  // Made only when needed: most files need neither a path nor a message.  The package path
  // begins with the separator that joins it to the root.
  auto const fullPath = [&] { return rootText_ + path; };
  // A file that went away since the walk is not to be lost without a word.
  auto const gone = [&] {
    return ToolError("Could not add: " + root_.native() + displayText(path));
  };
  if (read.failedToOpen) {
    if (read.error == ENOENT) throw gone();
    throw opc::vkservices::CouldNotOpenFile("Could not open file: " + opc::toUDEString(fullPath()),
                                            systemCode(read.error));
  }
  if (read.error != 0) {
    throw opc::Exception("Could not read from the input stream", systemCode(read.error));
  }
  if (read.large) {
    try {
      return std::make_unique<opc::vkservices::FileContentSource>(fullPath(), *type);
    } catch (opc::vkservices::CouldNotOpenFile const& error) {
      if (error.code().value() == ENOENT) throw gone();
      throw;
    }
  }
  return std::make_unique<BytesContentSource>(std::move(read.bytes), type);
}

std::shared_ptr<opc::model::ContentType const> const& FileFeeder::typeOf(
    std::u16string const& path) {
  // The extension is of the last name alone, which the leading "/" does not change.
  std::u16string_view const extension = extensionOf(path);
  auto found = types_.find(extension);
  if (found == types_.end()) {
    std::u16string key(extension);
    auto type = std::make_shared<opc::model::ContentType const>(
        opc::vkservices::lookupContentType(key, opc::vkservices::getORVANEDefaultContentType()));
    found = types_.emplace(std::move(key), std::move(type)).first;
  }
  return found->second;
}

}  // namespace opcvk
