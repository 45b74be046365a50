#include "support/in_memory_file_system_ops.h"

#include <cerrno>
#include <deque>
#include <sstream>
#include <stdexcept>
#include <streambuf>

#include <boost/date_time/gregorian/gregorian_types.hpp>

namespace opcvk_test {
namespace {

using boost::system::error_code;
using Ops = opc::FileSystemOps;
using Kind = InMemoryFileSystemOps::Kind;

constexpr int kMaxLinks = 40;
constexpr int kKnownModes = Ops::kModeIn | Ops::kModeOut | Ops::kModeAte | Ops::kModeApp |
                            Ops::kModeTrunc | Ops::kModeBinary;

error_code systemError(int errnum) { return error_code(errnum, boost::system::system_category()); }

// Sets the code and gives true when `errnum` is an error, for `if (fails(...)) return`.
bool fails(int errnum, error_code& code) {
  if (errnum != 0) code = systemError(errnum);
  return errnum != 0;
}

std::vector<std::u16string> split(std::u16string const& path) {
  std::vector<std::u16string> parts;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find(u'/', start);
    if (end == std::u16string::npos) end = path.size();
    if (end > start) parts.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

std::u16string join(std::vector<std::u16string> const& parts) {
  std::u16string key;
  for (std::u16string const& part : parts) key += u"/" + part;
  return key.empty() ? u"/" : key;
}

std::u16string parentKey(std::u16string const& key) {
  std::size_t last = key.rfind(u'/');
  return last == 0 ? u"/" : key.substr(0, last);
}

bool isBelow(std::u16string const& key, std::u16string const& folder) {
  std::u16string prefix = folder == u"/" ? folder : folder + u"/";
  return key.size() > prefix.size() && key.compare(0, prefix.size(), prefix) == 0;
}

bool hasNul(std::u16string const& path) { return path.find(u'\0') != std::u16string::npos; }

// Writes straight into the shared content at a position of its own.
class ContentOutBuffer : public std::streambuf {
 public:
  ContentOutBuffer(std::shared_ptr<std::string> content, bool append)
      : content_(std::move(content)), append_(append) {}

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    char byte = traits_type::to_char_type(c);
    return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
  }
  std::streamsize xsputn(char const* data, std::streamsize count) override {
    if (append_) position_ = content_->size();
    std::size_t size = static_cast<std::size_t>(count);
    if (position_ + size > content_->size()) content_->resize(position_ + size);
    content_->replace(position_, size, data, size);
    position_ += size;
    return count;
  }

 private:
  std::shared_ptr<std::string> content_;
  bool append_;
  std::size_t position_ = 0;
};

class ContentOStream : public std::ostream {
 public:
  ContentOStream(std::shared_ptr<std::string> content, bool append)
      : std::ostream(nullptr), buffer_(std::move(content), append) {
    rdbuf(&buffer_);
  }

 private:
  ContentOutBuffer buffer_;
};

}  // namespace

InMemoryFileSystemOps::InMemoryFileSystemOps() : clock_(boost::gregorian::date(2000, 1, 1)) {
  nodes_[u"/"] = Node{Kind::Folder, nullptr, u"", static_cast<opc::Perms::Perms_tag>(0755), clock_};
  nodes_[u"/tmp"] = nodes_[u"/"];
}

InMemoryFileSystemOps::~InMemoryFileSystemOps() = default;

void InMemoryFileSystemOps::makeParents(std::u16string const& key) {
  std::vector<std::u16string> parts = split(key);
  std::vector<std::u16string> done;
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    done.push_back(parts[i]);
    Node& node = nodes_[join(done)];
    if (!node.time.is_special()) continue;
    node = Node{Kind::Folder, nullptr, u"", static_cast<opc::Perms::Perms_tag>(0755), clock_};
  }
}

void InMemoryFileSystemOps::addFile(std::u16string const& path, std::string const& content,
                                    opc::Perms::Perms_tag permissions,
                                    boost::posix_time::ptime time) {
  std::lock_guard<std::mutex> lock(mutex_);
  std::u16string key = join(split(path));
  makeParents(key);
  nodes_[key] = Node{Kind::File, std::make_shared<std::string>(content), u"", permissions,
                     time.is_special() ? clock_ : time};
}

void InMemoryFileSystemOps::addFolder(std::u16string const& path) {
  std::lock_guard<std::mutex> lock(mutex_);
  std::u16string key = join(split(path));
  makeParents(key);
  nodes_[key] = Node{Kind::Folder, nullptr, u"", static_cast<opc::Perms::Perms_tag>(0755), clock_};
}

void InMemoryFileSystemOps::addSymlink(std::u16string const& path, std::u16string const& target) {
  std::lock_guard<std::mutex> lock(mutex_);
  std::u16string key = join(split(path));
  makeParents(key);
  nodes_[key] =
      Node{Kind::Symlink, nullptr, target, static_cast<opc::Perms::Perms_tag>(0777), clock_};
}

std::string InMemoryFileSystemOps::readContent(std::u16string const& path) const {
  std::lock_guard<std::mutex> lock(mutex_);
  Node const* node = find(join(split(path)));
  if (node == nullptr || node->kind != Kind::File) throw std::out_of_range("no such file");
  return *node->content;
}

std::vector<std::u16string> InMemoryFileSystemOps::listAll() const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::u16string> all;
  for (auto const& entry : nodes_) all.push_back(entry.first);
  return all;
}

void InMemoryFileSystemOps::setClock(boost::posix_time::ptime now) {
  std::lock_guard<std::mutex> lock(mutex_);
  clock_ = now;
}

InMemoryFileSystemOps::Node const* InMemoryFileSystemOps::find(std::u16string const& key) const {
  auto it = nodes_.find(key);
  return it == nodes_.end() ? nullptr : &it->second;
}

int InMemoryFileSystemOps::resolve(std::u16string const& path, bool followLast,
                                   std::u16string& key) const {
  if (hasNul(path)) return EINVAL;
  std::deque<std::u16string> pending;
  for (std::u16string const& part : split(path)) pending.push_back(part);
  std::vector<std::u16string> done;
  int links = 0;
  while (!pending.empty()) {
    std::u16string part = pending.front();
    pending.pop_front();
    if (part == u".") continue;
    if (part == u"..") {
      if (!done.empty()) done.pop_back();
      continue;
    }
    done.push_back(part);
    Node const* node = find(join(done));
    bool last = pending.empty();
    if (node != nullptr && node->kind == Kind::Symlink && (!last || followLast)) {
      if (++links > kMaxLinks) return ELOOP;
      done.pop_back();
      if (!node->target.empty() && node->target[0] == u'/') done.clear();
      std::vector<std::u16string> target = split(node->target);
      pending.insert(pending.begin(), target.begin(), target.end());
      continue;
    }
    if (!last && node == nullptr) return ENOENT;
    if (!last && node->kind != Kind::Folder) return ENOTDIR;
  }
  key = join(done);
  return 0;
}

int InMemoryFileSystemOps::checkParent(std::u16string const& key) const {
  if (key == u"/") return EEXIST;
  Node const* parent = find(parentKey(key));
  if (parent == nullptr) return ENOENT;
  if (parent->kind != Kind::Folder) return ENOTDIR;
  return (parent->permissions & 0200) ? 0 : EACCES;
}

std::vector<std::pair<std::u16string, InMemoryFileSystemOps::Node const*>>
InMemoryFileSystemOps::children(std::u16string const& key) const {
  std::vector<std::pair<std::u16string, Node const*>> found;
  for (auto it = nodes_.upper_bound(key); it != nodes_.end(); ++it) {
    if (!isBelow(it->first, key)) {
      if (it->first.compare(0, key.size(), key) != 0) break;
      continue;
    }
    std::u16string name = it->first.substr(key == u"/" ? 1 : key.size() + 1);
    if (name.find(u'/') == std::u16string::npos) found.emplace_back(name, &it->second);
  }
  return found;
}

std::u16string InMemoryFileSystemOps::doGetTempName(std::u16string const& path, std::string&,
                                                    error_code& code) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::u16string key;
  if (fails(resolve(path.empty() ? u"/tmp" : path, true, key), code)) return u"";
  Node const* folder = find(key);
  if (fails(folder == nullptr ? ENOENT : folder->kind != Kind::Folder ? ENOTDIR : 0, code)) {
    return u"";
  }
  std::u16string base = path.empty() ? u"/tmp" : path;
  if (base.back() != u'/') base += u"/";
  for (;;) {
    std::string number = std::to_string(++tempCounter_);
    std::u16string name = u"opc-temp-" + std::u16string(number.begin(), number.end());
    std::u16string candidate;
    if (resolve(base + name, false, candidate) == 0 && find(candidate) == nullptr) {
      return base + name;
    }
  }
}

std::u16string InMemoryFileSystemOps::doGetParentPath(std::u16string const& path, std::string&,
                                                      error_code&) const {
  return names_.getParentPath(path);
}

std::u16string InMemoryFileSystemOps::doGetFilename(std::u16string const& path, std::string&,
                                                    error_code&) const {
  return names_.getFilename(path);
}

std::u16string InMemoryFileSystemOps::doGetExtension(std::u16string const& path, std::string&,
                                                     error_code&) const {
  return names_.getExtension(path);
}

std::u16string InMemoryFileSystemOps::doAppendPath(std::u16string const& base,
                                                   std::u16string const& rest, std::string& text,
                                                   error_code& code) const {
  if (hasNul(base) || hasNul(rest)) {
    text = "the path holds a NUL character";
    code = systemError(EINVAL);
    return u"";
  }
  std::vector<std::u16string> kept;
  for (std::u16string const& part : split(rest)) {
    if (part == u".") continue;
    if (part == u"..") {
      if (kept.empty()) {
        text = "the path leads out of the base folder";
        code = systemError(EINVAL);
        return u"";
      }
      kept.pop_back();
      continue;
    }
    kept.push_back(part);
  }
  std::u16string out = base;
  for (std::u16string const& part : kept) {
    if (!out.empty() && out.back() != u'/') out += u"/";
    out += part;
  }
  return out;
}

std::u16string InMemoryFileSystemOps::doNormalizePath(std::u16string const& path, std::string&,
                                                      error_code&) const {
  return names_.normalizePath(path);
}

bool InMemoryFileSystemOps::doGetLocalPath(std::u16string const& path, std::u16string& out) const {
  if (hasNul(path)) return false;
  out = doIsAbsolutePath(path) ? path : u"/" + path;
  return true;
}

bool InMemoryFileSystemOps::doIsAbsolutePath(std::u16string const& path) const {
  return !path.empty() && path[0] == u'/';
}

// Queries look at the node itself: links are followed on the way, not at the end.
#define OPCVK_LOCKED_NODE(path, followLast, onMissing)       \
  std::lock_guard<std::mutex> lock(mutex_);                  \
  std::u16string key;                                        \
  int error = resolve(path, followLast, key);                \
  if (error == ENOENT || error == ENOTDIR) return onMissing; \
  if (fails(error, code)) return onMissing;                  \
  Node const* node = find(key)

bool InMemoryFileSystemOps::doExists(std::u16string const& path, std::string&,
                                     error_code& code) const {
  OPCVK_LOCKED_NODE(path, false, false);
  return node != nullptr;
}

bool InMemoryFileSystemOps::doIsFile(std::u16string const& path, std::string&,
                                     error_code& code) const {
  OPCVK_LOCKED_NODE(path, false, false);
  return node != nullptr && node->kind == Kind::File;
}

bool InMemoryFileSystemOps::doIsFolder(std::u16string const& path, std::string&,
                                       error_code& code) const {
  OPCVK_LOCKED_NODE(path, false, false);
  return node != nullptr && node->kind == Kind::Folder;
}

bool InMemoryFileSystemOps::doIsSymlink(std::u16string const& path, std::string&,
                                        error_code& code) const {
  OPCVK_LOCKED_NODE(path, false, false);
  return node != nullptr && node->kind == Kind::Symlink;
}

// Operations on one existing node, which a missing path fails.
#define OPCVK_LOCKED_EXISTING(path, followLast, onFailure)               \
  std::lock_guard<std::mutex> lock(mutex_);                              \
  std::u16string key;                                                    \
  if (fails(resolve(path, followLast, key), code)) return onFailure;     \
  auto found = nodes_.find(key);                                         \
  if (fails(found == nodes_.end() ? ENOENT : 0, code)) return onFailure; \
  Node& node = found->second

opc::Perms::Perms_tag InMemoryFileSystemOps::doGetPermissions(std::u16string const& path,
                                                              std::string&,
                                                              error_code& code) const {
  OPCVK_LOCKED_EXISTING(path, false, opc::Perms::unknown);
  return node.permissions;
}

void InMemoryFileSystemOps::doSetPermissions(std::u16string const& path,
                                             opc::Perms::Perms_tag permissions, std::string& text,
                                             error_code& code) const {
  if (permissions > opc::Perms::perms_mask) {
    text = "the permissions are not within 0777";
    code = systemError(EINVAL);
    return;
  }
  OPCVK_LOCKED_EXISTING(path, false, );
  if (fails(node.kind == Kind::Symlink ? EOPNOTSUPP : 0, code)) return;
  node.permissions = permissions;
}

boost::posix_time::ptime InMemoryFileSystemOps::doGetLastModifiedTime(std::u16string const& path,
                                                                      std::string&,
                                                                      error_code& code) const {
  OPCVK_LOCKED_EXISTING(path, false, boost::posix_time::ptime());
  return node.time;
}

void InMemoryFileSystemOps::doSetLastModifiedTime(std::u16string const& path,
                                                  boost::posix_time::ptime time, std::string&,
                                                  error_code& code) const {
  if (fails(time.is_special() ? EINVAL : 0, code)) return;
  OPCVK_LOCKED_EXISTING(path, false, );
  node.time = time;
}

std::u16string InMemoryFileSystemOps::doGetLinkTarget(std::u16string const& path, std::string&,
                                                      error_code& code) const {
  OPCVK_LOCKED_EXISTING(path, false, u"");
  if (fails(node.kind == Kind::Symlink ? 0 : EINVAL, code)) return u"";
  return node.target;
}

void InMemoryFileSystemOps::doGetFiles(std::u16string const& folder,
                                       std::vector<std::u16string>& out, bool recursive,
                                       std::string&, error_code& code) const {
  OPCVK_LOCKED_EXISTING(folder, true, );
  if (fails(node.kind == Kind::Folder ? 0 : ENOTDIR, code)) return;
  // Same order as LocalFileSystemOps: a folder's files and links by name, then its
  // subfolders, depth first.
  std::vector<std::pair<std::u16string, std::u16string>> pending{{key, folder}};
  while (!pending.empty()) {
    auto [currentKey, currentText] = pending.back();
    pending.pop_back();
    std::u16string prefix =
        currentText.empty() || currentText.back() == u'/' ? currentText : currentText + u"/";
    std::vector<std::pair<std::u16string, std::u16string>> subfolders;
    for (auto const& [name, child] : children(currentKey)) {
      if (child->kind != Kind::Folder) {
        out.push_back(prefix + name);
      } else if (recursive) {
        subfolders.emplace_back(currentKey == u"/" ? u"/" + name : currentKey + u"/" + name,
                                prefix + name);
      }
    }
    pending.insert(pending.end(), subfolders.rbegin(), subfolders.rend());
  }
}

std::shared_ptr<std::istream> InMemoryFileSystemOps::doCreateInputStream(std::u16string const& path,
                                                                         int mode,
                                                                         std::string& text,
                                                                         error_code& code) const {
  if ((mode & ~kKnownModes) || (mode & (Ops::kModeOut | Ops::kModeApp | Ops::kModeTrunc))) {
    text = "not a mode for reading";
    code = systemError(EINVAL);
    return nullptr;
  }
  OPCVK_LOCKED_EXISTING(path, true, nullptr);
  if (fails(node.kind == Kind::Folder ? EISDIR : (node.permissions & 0400) ? 0 : EACCES, code)) {
    return nullptr;
  }
  auto stream = std::make_shared<std::istringstream>(*node.content, std::ios_base::binary);
  if (mode & Ops::kModeAte) stream->seekg(0, std::ios_base::end);
  return stream;
}

std::shared_ptr<std::ostream> InMemoryFileSystemOps::doCreateOutputStream(
    std::u16string const& path, int mode, std::string& text, error_code& code) const {
  int full = mode | Ops::kModeOut;
  bool append = full & Ops::kModeApp;
  bool truncate = full & Ops::kModeTrunc;
  if ((full & ~kKnownModes) || (append && truncate)) {
    text = "not a mode for writing";
    code = systemError(EINVAL);
    return nullptr;
  }
  std::lock_guard<std::mutex> lock(mutex_);
  std::u16string key;
  if (fails(resolve(path, true, key), code)) return nullptr;
  auto found = nodes_.find(key);
  bool mustExist = (full & Ops::kModeIn) && !append && !truncate;
  if (found == nodes_.end()) {
    if (fails(mustExist ? ENOENT : checkParent(key), code)) return nullptr;
    found = nodes_
                .emplace(key, Node{Kind::File, std::make_shared<std::string>(), u"",
                                   static_cast<opc::Perms::Perms_tag>(0644), clock_})
                .first;
  } else {
    Node& node = found->second;
    if (fails(node.kind == Kind::Folder ? EISDIR : (node.permissions & 0200) ? 0 : EACCES, code)) {
      return nullptr;
    }
    bool keep = append || ((full & Ops::kModeIn) && !truncate);
    if (!keep) node.content->clear();
    node.time = clock_;
  }
  auto stream = std::make_shared<ContentOStream>(found->second.content, append);
  if (mode & Ops::kModeAte) stream->seekp(0, std::ios_base::end);
  return stream;
}

void InMemoryFileSystemOps::doCreateFolder(std::u16string const& path, std::string&,
                                           error_code& code) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::u16string key;
  if (fails(resolve(path, false, key), code)) return;
  if (fails(find(key) != nullptr ? EEXIST : checkParent(key), code)) return;
  nodes_[key] = Node{Kind::Folder, nullptr, u"", static_cast<opc::Perms::Perms_tag>(0755), clock_};
}

void InMemoryFileSystemOps::doCreateFolders(std::u16string const& path, std::string&,
                                            error_code& code) const {
  if (fails(path.empty() || hasNul(path) ? (path.empty() ? ENOENT : EINVAL) : 0, code)) return;
  std::vector<std::u16string> parts = split(path);
  std::u16string prefix = doIsAbsolutePath(path) ? u"" : u".";
  std::lock_guard<std::mutex> lock(mutex_);
  for (std::size_t i = 0; i < parts.size(); ++i) {
    prefix += u"/" + parts[i];
    std::u16string key;
    if (fails(resolve(prefix, true, key), code)) return;
    Node const* node = find(key);
    if (node != nullptr) {
      if (node->kind == Kind::Folder) continue;
      code = systemError(i + 1 == parts.size() ? EEXIST : ENOTDIR);
      return;
    }
    if (fails(checkParent(key), code)) return;
    nodes_[key] =
        Node{Kind::Folder, nullptr, u"", static_cast<opc::Perms::Perms_tag>(0755), clock_};
  }
}

void InMemoryFileSystemOps::doCreateSymlink(std::u16string const& target,
                                            std::u16string const& linkPath, std::string&,
                                            error_code& code) const {
  if (fails(target.empty() ? ENOENT : hasNul(target) ? EINVAL : 0, code)) return;
  std::lock_guard<std::mutex> lock(mutex_);
  std::u16string key;
  if (fails(resolve(linkPath, false, key), code)) return;
  if (fails(find(key) != nullptr ? EEXIST : checkParent(key), code)) return;
  nodes_[key] =
      Node{Kind::Symlink, nullptr, target, static_cast<opc::Perms::Perms_tag>(0777), clock_};
}

void InMemoryFileSystemOps::doCopy(std::u16string const& from, std::u16string const& to,
                                   opc::ExistsMode mode, std::string&, error_code& code) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::u16string fromKey;
  std::u16string toKey;
  if (fails(resolve(from, false, fromKey), code) || fails(resolve(to, false, toKey), code)) return;
  Node const* source = find(fromKey);
  if (fails(source == nullptr                   ? ENOENT
            : source->kind == Kind::Folder      ? EISDIR
            : source->kind == Kind::Symlink     ? EINVAL
            : (source->permissions & 0400) == 0 ? EACCES
                                                : 0,
            code)) {
    return;
  }
  Node const* existing = find(toKey);
  if (existing != nullptr) {
    if (mode == opc::ExistsMode::SkipIfExists) return;
    if (fails(mode == opc::ExistsMode::FailIfExists ? EEXIST
              : existing->kind == Kind::Folder      ? EISDIR
                                                    : 0,
              code)) {
      return;
    }
  }
  if (fails(checkParent(toKey), code)) return;
  nodes_[toKey] = Node{Kind::File, std::make_shared<std::string>(*source->content), u"",
                       source->permissions, clock_};
}

void InMemoryFileSystemOps::doRename(std::u16string const& from, std::u16string const& to,
                                     std::string&, error_code& code) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::u16string fromKey;
  std::u16string toKey;
  if (fails(resolve(from, false, fromKey), code) || fails(resolve(to, false, toKey), code)) return;
  Node const* source = find(fromKey);
  if (fails(source == nullptr ? ENOENT : checkParent(fromKey), code)) return;
  if (fromKey == toKey) return;
  if (fails(isBelow(toKey, fromKey) ? EINVAL : checkParent(toKey), code)) return;
  Node const* existing = find(toKey);
  if (existing != nullptr) {
    bool fromFolder = source->kind == Kind::Folder;
    bool toFolder = existing->kind == Kind::Folder;
    if (fails(fromFolder && !toFolder                ? ENOTDIR
              : !fromFolder && toFolder              ? EISDIR
              : toFolder && !children(toKey).empty() ? ENOTEMPTY
                                                     : 0,
              code)) {
      return;
    }
  }
  std::map<std::u16string, Node> moved;
  for (auto it = nodes_.begin(); it != nodes_.end();) {
    if (it->first == fromKey || isBelow(it->first, fromKey)) {
      moved.emplace(toKey + it->first.substr(fromKey.size()), it->second);
      it = nodes_.erase(it);
    } else {
      ++it;
    }
  }
  nodes_.erase(toKey);
  for (auto& entry : moved) nodes_[entry.first] = entry.second;
}

void InMemoryFileSystemOps::doRemove(std::u16string const& path, std::string&,
                                     error_code& code) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::u16string key;
  if (fails(resolve(path, false, key), code)) return;
  Node const* node = find(key);
  if (fails(node == nullptr                                        ? ENOENT
            : node->kind == Kind::Folder && !children(key).empty() ? ENOTEMPTY
                                                                   : checkParent(key),
            code)) {
    return;
  }
  nodes_.erase(key);
}

void InMemoryFileSystemOps::doRemoveAll(std::u16string const& path, std::string&,
                                        error_code& code) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::u16string key;
  int error = resolve(path, false, key);
  if (error == ENOENT || error == ENOTDIR) return;
  if (fails(error, code) || find(key) == nullptr) return;
  if (fails(checkParent(key), code)) return;
  for (auto it = nodes_.begin(); it != nodes_.end();) {
    it = it->first == key || isBelow(it->first, key) ? nodes_.erase(it) : std::next(it);
  }
}

#undef OPCVK_LOCKED_NODE
#undef OPCVK_LOCKED_EXISTING

}  // namespace opcvk_test
