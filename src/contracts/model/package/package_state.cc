#include "package_state.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <opc/core/local_file_system_ops.h>
#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/zip_item_names.h>

#include "../part_name_rules.h"
#include "../text_chars.h"
#include "content_types.h"
#include "eager_archive.h"
#include "folder_keys.h"
#include "package_lock.h"
#include "part_streams.h"
#include "relationships_xml.h"
#include "shared_spool.h"

namespace opc {
namespace model {
namespace detail {
namespace {

bool isContentTypesItem(std::string_view name) {
  // Looked for among all the items, and writers put it last: no copy of the expected name is
  // made for each.
  std::string_view const expected = kContentTypesItemName;
  if (name.size() != expected.size()) return false;
  for (std::size_t i = 0; i < name.size(); ++i) {
    char const a = name[i];
    char const b = expected[i];
    auto lower = [](char c) {
      return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    };
    if (lower(a) != lower(b)) return false;
  }
  return true;
}

// How a part read from the archive is stored again when it is rewritten: as it was stored,
// with the level for metadata when it is XML, since the archive does not say which level
// made it.
interfaces::CompressionType compressionOf(ZipEntry const& entry, ContentType const& type) {
  if (entry.method == 0) return interfaces::CompressionType::Stored;
  std::u16string const subType = asciiLowered(type.getSubType());
  bool const xml = subType == u"xml" ||
                   (subType.size() > 4 && subType.compare(subType.size() - 4, 4, u"+xml") == 0);
  return xml ? interfaces::CompressionType::DeflateMetadata
             : interfaces::CompressionType::DeflateContent;
}

std::string quotedItem(std::string const& itemName) {
  return quoted(opc::detail::toStringFromUTF8String(itemName, true));
}

// The positions of the "/"s of `key` into `slashes`, in order: a key is gone over once for
// them, and each check that looks for a segment ("_rels", the last one, the folders) takes
// them from here instead of searching the key again.  Sixteen bytes a step: keys of a deep
// tree run to hundreds of bytes in dozens of segments.
void findSlashes(std::string_view key, std::vector<std::uint32_t>& slashes) {
  slashes.clear();
  std::size_t at = 0;
#if defined(__SSE2__)
  __m128i const slash = _mm_set1_epi8('/');
  for (; at + 16 <= key.size(); at += 16) {
    __m128i const here = _mm_loadu_si128(reinterpret_cast<__m128i const*>(key.data() + at));
    unsigned found = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(here, slash)));
    for (; found != 0; found &= found - 1) {
      slashes.push_back(
          static_cast<std::uint32_t>(at + static_cast<unsigned>(__builtin_ctz(found))));
    }
  }
#endif
  for (; at < key.size(); ++at) {
    if (key[at] == '/') slashes.push_back(static_cast<std::uint32_t>(at));
  }
}

// What keeps a name read from the archive from being a part beside the relationships parts,
// the same rules as createPart's: it may not lie inside a relationships part ("/_rels/.rels/x")
// nor take the name of their folder ("/a/_rels"), which would also make one name both a file
// and a folder of the archive.  Checked on the comparison key, where case is folded, whose
// "/"s are `slashes`; `nameText` gives the name's text for the message.  Empty when the name
// is fine.
template <typename NameText>
std::string relationshipsClash(NameText const& nameText, std::string_view key,
                               std::vector<std::uint32_t> const& slashes) {
  static constexpr std::string_view kFolder = "_rels";
  static constexpr std::string_view kExtension = ".rels";
  std::size_t const count = slashes.size();
  // A "_rels" segment with a segment after it that is not the name's last.
  for (std::size_t i = 0; i + 2 < count; ++i) {
    std::size_t const at = slashes[i];
    if (slashes[i + 1] != at + 1 + kFolder.size() ||
        key.compare(at + 1, kFolder.size(), kFolder) != 0) {
      continue;
    }
    std::size_t const begin = slashes[i + 1] + 1;
    std::size_t const end = slashes[i + 2];
    if (end - begin >= kExtension.size() &&
        key.compare(end - kExtension.size(), kExtension.size(), kExtension) == 0) {
      // The key and the name have their slashes in the same places but for percent-encoded
      // bytes, so the prefix is found again by counting slashes.
      std::u16string const name = nameText();
      std::size_t slash = 0;
      for (std::size_t k = 0; k < i + 2; ++k) slash = name.find(u'/', slash + 1);
      return "the part " + quoted(name) + " lies inside the relationships part " +
             quoted(name.substr(0, slash));
    }
  }
  static constexpr std::string_view kLastFolder = "/_rels";
  if (key.size() >= kLastFolder.size() &&
      key.compare(key.size() - kLastFolder.size(), kLastFolder.size(), kLastFolder) == 0) {
    return "the part " + quoted(nameText()) +
           " has the name of a folder of relationships parts (\"_rels\")";
  }
  return std::string();
}

// Whether a segment of the key has the length of "_rels" and begins as it does: only such a
// key can clash with the relationships parts, and few do.
inline bool mayHoldRelsSegment(std::string_view key, std::vector<std::uint32_t> const& slashes) {
  std::size_t const count = slashes.size();
  for (std::size_t i = 0; i < count; ++i) {
    std::size_t const next = i + 1 < count ? slashes[i + 1] : key.size();
    if (next - slashes[i] == 6 && key[slashes[i] + 1] == '_') return true;
  }
  return false;
}

// PartName::isRelationshipName for a name of plain ASCII, told from its key, where the
// letters are in lower case already, and the key's "/"s: "_rels" as the folder of the last
// segment, which ends with ".rels".
bool isRelationshipsKey(std::string_view key, std::vector<std::uint32_t> const& slashes) {
  static constexpr std::string_view kFolder = "_rels";
  static constexpr std::string_view kExtension = ".rels";
  std::size_t const count = slashes.size();
  if (count < 2) return false;
  std::size_t const folderStart = slashes[count - 2] + 1;
  std::size_t const lastSlash = slashes[count - 1];
  std::string_view const folder = key.substr(folderStart, lastSlash - folderStart);
  std::string_view const last = key.substr(lastSlash + 1);
  return folder == kFolder && last.size() >= kExtension.size() &&
         last.substr(last.size() - kExtension.size()) == kExtension;
}

// How many leading characters two keys share, eight bytes at a time while they agree: the
// keys of one folder share most of theirs.
std::size_t sharedLength(std::string_view a, std::string_view b) {
  std::size_t const most = std::min(a.size(), b.size());
  std::size_t common = 0;
#if defined(__SSE2__)
  while (common + 16 <= most) {
    __m128i const mine = _mm_loadu_si128(reinterpret_cast<__m128i const*>(a.data() + common));
    __m128i const theirs = _mm_loadu_si128(reinterpret_cast<__m128i const*>(b.data() + common));
    unsigned const same = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(mine, theirs)));
    if (same != 0xFFFF) return common + static_cast<unsigned>(__builtin_ctz(~same));
    common += 16;
  }
#endif
  while (common + 8 <= most) {
    std::uint64_t mine;
    std::uint64_t theirs;
    std::memcpy(&mine, a.data() + common, sizeof mine);
    std::memcpy(&theirs, b.data() + common, sizeof theirs);
    if (mine != theirs) break;
    common += 8;
  }
  while (common < most && a[common] == b[common]) ++common;
  return common;
}

// Whether the part of key `other` lies below the part of key `key` (PartName::isDerivedFrom).
bool isBelowKey(std::string_view other, std::string_view key) {
  return other.size() > key.size() && other.compare(0, key.size(), key) == 0 &&
         other[key.size()] == '/';
}

// A part read from the archive that is a folder of another, or inside one: `earlier` came
// first in the archive.
[[noreturn]] void throwDerivationConflict(std::string const& context, PartName const& earlier,
                                          std::u16string const& text) {
  throw InvalidPackage(context + ": the parts " + quoted(earlier.toString()) + " and " +
                       quoted(text) +
                       " cannot both exist, since one name is a folder of the other");
}

}  // namespace

std::vector<PartName> properPrefixes(PartName const& name) {
  std::vector<PartName> prefixes;
  std::u16string const text = name.toString();
  for (std::size_t slash = text.find(u'/', 1); slash != std::u16string::npos;
       slash = text.find(u'/', slash + 1)) {
    prefixes.emplace_back(text.substr(0, slash));
  }
  return prefixes;
}

PackageState::PackageState(PackageAccess access, PackageOptions const& options, std::u16string path,
                           bool inMemory)
    : access_(access),
      options_(options),
      path_(std::move(path)),
      inMemory_(inMemory),
      label_(inMemory ? std::string("(in memory)") : quoted(path_)) {}

PackageState::~PackageState() = default;

Package& PackageState::package() const {
  ensureOpen();
  return *package_;
}

void PackageState::ensureOpen() const {
  if (package_ == nullptr) throw InvalidPackageState("The package is closed");
}

void PackageState::ensureWritable(std::string const& what) const {
  ensureOpen();
  if (access_ == PackageAccess::Read) {
    throw PackageNotWritable("Could not " + what + ": the package " + label_ + " is open for Read");
  }
}

void PackageState::close() {
  eager_.reset();
  package_ = nullptr;
  inputStreams_.clear();
  outputStreams_.clear();
  for (auto const& record : parts_) record->deleted = true;
  parts_.clear();
  table_ = PartTable();
  lastRecord_.reset();
  lastRow_ = PartTable::kNone;
  byKey_.clear();
  prefixes_.clear();
  tableFolders_.clear();
  packageRelationships_ = RelationshipSet();
  partRelationships_.clear();
  managers_.clear();
  archive_.reset();
  reopenPending_ = false;
  saved_.reset();
  lock_.reset();
}

void PackageState::lockFile(std::string const& context) {
  lock_ = PackageLock::acquire(opc::detail::toUTF8String(path_), options_.lockWaitMilliseconds,
                               context);
}

void PackageState::load(std::shared_ptr<ZipArchive const> archive) {
  archive_ = std::move(archive);
  ZipArchive const& zip = *archive_;
  std::string const context = "Invalid package " + label_;
  std::size_t const count = zip.size();
  std::size_t typesIndex = 0;
  while (typesIndex < count && !isContentTypesItem(zip.name(typesIndex))) ++typesIndex;
  if (typesIndex == count) {
    throw InvalidPackage(context + ": it has no " + kContentTypesItemName);
  }
  ZipEntry const typesEntry = zip.entry(typesIndex);
  std::string const typesContext = context + ": " + kContentTypesItemName;
  if (typesEntry.uncompressedSize > options_.limits.maxStructurePartSize) {
    throw InvalidPackage(typesContext + ": it is larger than the limit of " +
                         std::to_string(options_.limits.maxStructurePartSize) + " bytes");
  }
  ContentTypeMap types = ContentTypeMap::read(
      [&] { return std::shared_ptr<opc::InputStream>(archive_->openEntry(typesEntry)); },
      static_cast<std::size_t>(typesEntry.uncompressedSize), typesContext);

  if (count >= PartTable::kNone) {
    throw InvalidPackage(context + ": it has too many items");
  }
  table_.reserve(zip, count);
  tableFolders_.bind(zip);
  // Three keys, whose texts trade places by pointer and are never copied: the key of the part
  // added last, beside the key of this one (the leading runs of segments that the two share
  // were found to be no part, and were added to tableFolders_, when that part was), and the
  // key of the item after this one, made one item ahead with its hash so that the slots where
  // it will be looked up are asked for while this one is checked: with tens of thousands of
  // items, a look-up that waited for its slot cost more than the checks of the name.
  std::string keys[3];
  std::string* previousKey = &keys[0];
  std::string* thisKey = &keys[1];
  std::string* nextKey = &keys[2];
  std::uint32_t nextHash = 0;
  std::size_t nextIndex = count;
  std::vector<std::uint32_t> slashes;
  std::vector<std::uint32_t> folderHashes;
  for (std::size_t index = 0; index < count; ++index) {
    if (index == typesIndex) continue;
    std::string_view const view = zip.name(index);
    // Folder entries hold nothing and name no part; some ZIP tools add them.
    if (!view.empty() && view.back() == '/' && zip.uncompressedSize(index) == 0) continue;
    boost::optional<PartName> name;
    // The part's key follows from the item name's bytes once they are known to be UTF-8.
    std::uint32_t hash = nextHash;
    if (nextIndex == index) {
      std::swap(thisKey, nextKey);
    } else {
      keyOfItemName(view, *thisKey);
      hash = PartTable::hashOf(*thisKey);
    }
    std::string& key = *thisKey;
    if (index + 1 < count) {
      nextIndex = index + 1;
      keyOfItemName(zip.name(nextIndex), *nextKey);
      nextHash = PartTable::hashOf(*nextKey);
      table_.prefetch(nextHash);
      tableFolders_.prefetch(nextHash);
    }
    // Plain ASCII in every byte, escapes of other scripts kept as they are: the name is valid
    // as it stands, its text is the bytes widened, and its key holds its extension and its
    // "_rels" folder in lower case, so that no PartName is needed unless a message names it.
    bool const plain = isPlainPartItemName(view);
    if (!plain) {
      try {
        name = partNameFromZipItemName(std::string(view));
      } catch (InvalidPartName const& e) {
        throw InvalidPackage(context + ": " + e.what());
      }
    }
    // The name's text, made only for a message or a relationships part.
    auto const nameText = [&]() -> std::u16string {
      if (!plain) return PartNameAccess::text(*name);
      std::u16string text(view.size() + 1, u'/');
      std::copy(view.begin(), view.end(), text.begin() + 1);
      return text;
    };
    std::uint32_t const same = table_.find(key, hash);
    if (same != PartTable::kNone) {
      throw InvalidPackage(context + ": the items " +
                           quotedItem(std::string(zip.name(table_.rows()[same].entry))) + " and " +
                           quotedItem(std::string(view)) + " name the same part");
    }
    findSlashes(key, slashes);
    auto const row = static_cast<std::uint32_t>(index);
    if (plain ? isRelationshipsKey(key, slashes) : name->isRelationshipName()) {
      if (!name) name = PartNameAccess::make(nameText(), key);
      table_.addItem(key, hash, row, PartTable::kNone);
      boost::optional<PartName> source;
      try {
        source = name->getRelationshipsSourceName();
      } catch (InvalidPartName const& e) {
        throw InvalidPackage(context + ": " + e.what());
      }
      if (source && source->isRelationshipName()) {
        throw InvalidPackage(context + ": the relationships part " + quoted(name->toString()) +
                             " belongs to a relationships part, which cannot have relationships");
      }
      RelationshipSet& set = source ? partRelationships_[*source] : packageRelationships_;
      set.entry = zip.entry(index);
      set.itemName = std::string(view);
      continue;
    }
    if (mayHoldRelsSegment(key, slashes)) {
      std::string const clash = relationshipsClash(nameText, key, slashes);
      if (!clash.empty()) throw InvalidPackage(context + ": " + clash);
    }
    ContentType const* type = plain ? types.findByAsciiKey(key, hash) : types.find(*name);
    if (type == nullptr) {
      throw InvalidPackage(context + ": the part " + quoted(nameText()) + " has no content type");
    }
    // The part may be neither a folder of an earlier part nor inside one: each leading run
    // that this key does not share with the last is looked up as a part, and the key itself
    // among the folders.  The runs' hashes serve again when they are added as folders.
    std::size_t const shared = std::max<std::size_t>(sharedLength(*previousKey, key), 1);
    // The runs that end at or after `shared`: the last ones, found from the end.
    std::size_t firstNew = slashes.size();
    while (firstNew > 0 && slashes[firstNew - 1] >= shared) --firstNew;
    folderHashes.clear();
    for (std::size_t at = firstNew; at < slashes.size(); ++at) {
      std::uint32_t const slash = slashes[at];
      std::string_view const folder(key.data(), slash);
      std::uint32_t const folderHash = PartTable::hashOf(folder);
      std::uint32_t const folderRow = table_.find(folder, folderHash);
      if (folderRow != PartTable::kNone && table_.rows()[folderRow].type != PartTable::kNone) {
        throwDerivationConflict(context, findPartByKey(folder)->name, nameText());
      }
      folderHashes.push_back(folderHash);
    }
    if (tableFolders_.contains(key, hash)) {
      if (auto conflict = findPartBelow(key)) {
        throwDerivationConflict(context, *conflict, nameText());
      }
    }
    table_.addItem(key, hash, row, table_.typeIndex(type));
    for (std::size_t at = firstNew; at < slashes.size(); ++at) {
      tableFolders_.add(std::string_view(key.data(), slashes[at]), folderHashes[at - firstNew],
                        row);
    }
    std::swap(previousKey, thisKey);
  }
  if (access_ == PackageAccess::Read) return;
  // A writer changes, adds and removes parts: each gets its record now, and the table goes.
  PartTable table;
  std::swap(table, table_);
  lastRecord_.reset();
  lastRow_ = PartTable::kNone;
  prefixes_.clear();
  tableFolders_.clear();
  for (PartTable::Row const& row : table.rows()) {
    if (row.type != PartTable::kNone) addPart(makeRecord(row, table));
  }
}

std::shared_ptr<PartRecord> PackageState::makeRecord(PartTable::Row const& row,
                                                     PartTable const& table) const {
  auto origin = std::make_unique<PartRecord::Origin>();
  origin->entry.emplace(archive_->entry(row.entry));
  ZipEntry const& entry = *origin->entry;
  ContentType const& type = table.types()[row.type];
  auto record = std::make_shared<PartRecord>(partNameFromZipItemName(entry.name), sharedType(type),
                                             compressionOf(entry, type));
  record->origin = std::move(origin);
  return record;
}

std::vector<std::shared_ptr<PartRecord>> const& PackageState::parts() const {
  if (parts_.empty() && !table_.empty()) {
    for (PartTable::Row const& row : table_.rows()) {
      if (row.type != PartTable::kNone) parts_.push_back(makeRecord(row, table_));
    }
  }
  return parts_;
}

std::shared_ptr<PartRecord> PackageState::findRecord(PartName const& name) const {
  std::uint32_t const position =
      byKey_.find(name.hash(), [&](std::uint32_t at) { return parts_[at]->name == name; });
  return position == PartIndex::kNone ? nullptr : parts_[position];
}

std::shared_ptr<PartRecord> PackageState::findRecordByKey(std::string_view key) const {
  if (byKey_.empty()) return nullptr;
  // The same value as PartName::hash.
  std::uint32_t const position = byKey_.find(
      PartTable::hashOf(key), [&](std::uint32_t at) { return keyOf(parts_[at]->name) == key; });
  return position == PartIndex::kNone ? nullptr : parts_[position];
}

std::shared_ptr<PartRecord> PackageState::findPart(PartName const& name) const {
  if (std::shared_ptr<PartRecord> record = findRecord(name)) return record;
  if (table_.empty()) return nullptr;
  return findPartByKey(keyOf(name));
}

std::shared_ptr<PartRecord> PackageState::findPartByKey(std::string_view key) const {
  if (std::shared_ptr<PartRecord> record = findRecordByKey(key)) return record;
  std::uint32_t const row = table_.find(key, PartTable::hashOf(key));
  if (row == PartTable::kNone || table_.rows()[row].type == PartTable::kNone) return nullptr;
  // A reader asks for one part several times in a row (the part, then its stream and size):
  // the last record made serves them all.
  if (row != lastRow_) {
    lastRecord_ = makeRecord(table_.rows()[row], table_);
    lastRow_ = row;
  }
  return lastRecord_;
}

std::shared_ptr<PartContent const> PackageState::findContent(std::string const& key,
                                                             ContentType const*& type) const {
  if (std::shared_ptr<PartRecord> record = findRecordByKey(key)) {
    type = record->contentType.get();
    return contentOf(*record);
  }
  std::uint32_t const row = table_.find(key);
  if (row == PartTable::kNone || table_.rows()[row].type == PartTable::kNone) return nullptr;
  PartTable::Row const& r = table_.rows()[row];
  type = &table_.types()[r.type];
  return makeArchiveContent(archive_, archive_->entry(r.entry));
}

std::shared_ptr<PartRecord> PackageState::partForHandle(PartName const& name) const {
  ensureOpen();
  std::shared_ptr<PartRecord> record = findPart(name);
  if (!record) {
    throw InvalidPackageState("The part " + quoted(name.toString()) + " no longer exists");
  }
  return record;
}

std::shared_ptr<PartContent const> PackageState::contentOf(PartRecord const& record) const {
  if (record.content || !record.entry()) return record.content;
  return makeArchiveContent(archive_, *record.entry());
}

boost::optional<PartName> PackageState::findDerivationConflict(PartName const& name) const {
  return findDerivationConflict(keyOf(name), 0);
}

boost::optional<PartName> PackageState::findDerivationConflict(std::string_view key,
                                                               std::size_t known) const {
  // The folders above the name that were found to name no part for an earlier name need no
  // second look: the files of one folder are often made one after another.
  std::size_t from = std::max<std::size_t>(known, 1);
  bool const cached = table_.empty() && key.size() > clearFolder_.size() &&
                      key[clearFolder_.size()] == '/' &&
                      key.compare(0, clearFolder_.size(), clearFolder_) == 0;
  if (cached) from = std::max(from, clearFolder_.size() + 1);
  for (std::size_t slash = key.find('/', from); slash != std::string_view::npos;
       slash = key.find('/', slash + 1)) {
    if (auto record = findPartByKey(key.substr(0, slash))) return record->name;
  }
  if (table_.empty()) clearFolder_.assign(key, 0, key.rfind('/'));
  prefixKey_.assign(key);
  if (prefixes_.count(prefixKey_) != 0 ||
      (!tableFolders_.empty() && tableFolders_.contains(key, PartTable::hashOf(key)))) {
    return findPartBelow(key);
  }
  return boost::none;
}

boost::optional<PartName> PackageState::findPartBelow(std::string_view key) const {
  // Rare: only when there is a conflict does it cost a walk over the parts.
  for (auto const& record : parts_) {
    if (isBelowKey(keyOf(record->name), key)) return record->name;
  }
  for (PartTable::Row const& row : table_.rows()) {
    if (row.type == PartTable::kNone) continue;
    std::string_view const item = archive_->name(row.entry);
    if (isBelowKey(keyOfItemName(item), key)) return partNameFromZipItemName(std::string(item));
  }
  return boost::none;
}

void PackageState::addPart(std::shared_ptr<PartRecord> record) {
  std::string_view const key = keyOf(record->name);
  addPart(std::move(record), key);
}

void PackageState::addPart(std::shared_ptr<PartRecord> record, std::string_view key) {
  // A part that names a folder known to be clear makes it no longer so.
  if (clearFolder_.compare(0, key.size(), key) == 0 &&
      (clearFolder_.size() == key.size() || clearFolder_[key.size()] == '/')) {
    clearFolder_.clear();
  }
  std::string prefix;
  for (std::size_t slash = key.find('/', 1); slash != std::string::npos;
       slash = key.find('/', slash + 1)) {
    prefix.assign(key, 0, slash);
    ++prefixes_[prefix];
  }
  if (parts_.size() >= PartIndex::kNone) {
    throw InvalidPackageState("The package " + label_ + " cannot hold more parts");
  }
  byKey_.add(record->name.hash(), static_cast<std::uint32_t>(parts_.size()));
  parts_.push_back(std::move(record));
}

void PackageState::removePart(PartName const& name) {
  std::size_t const hash = name.hash();
  std::uint32_t const position =
      byKey_.find(hash, [&](std::uint32_t at) { return parts_[at]->name == name; });
  if (position == PartIndex::kNone) return;
  std::shared_ptr<PartRecord> record = parts_[position];
  std::string const key(keyOf(name));
  for (std::size_t slash = key.find('/', 1); slash != std::string::npos;
       slash = key.find('/', slash + 1)) {
    auto const count = prefixes_.find(key.substr(0, slash));
    if (count != prefixes_.end() && --count->second == 0) prefixes_.erase(count);
  }
  byKey_.removeAndClose(hash, position);
  parts_.erase(parts_.begin() + static_cast<std::ptrdiff_t>(position));
  partRelationships_.erase(record->name);
  record->deleted = true;
  record->content.reset();
  record->dropEntry();
}

RelationshipSet& PackageState::relationships(boost::optional<PartName> const& source) {
  ensureOpen();
  if (!source) {
    if (!packageRelationships_.loaded) {
      loadRelationships(packageRelationships_, URI(u"/"),
                        PartName::getPackageRelationshipsPartName());
    }
    return packageRelationships_;
  }
  std::shared_ptr<PartRecord> record = partForHandle(*source);
  RelationshipSet& set = partRelationships_[record->name];
  if (!set.loaded) {
    loadRelationships(set, record->name.getURI(), record->name.getRelationshipsPartName());
  }
  return set;
}

void PackageState::loadRelationships(RelationshipSet& set, URI const& sourceURI,
                                     PartName const& setName) {
  if (set.entry) {
    std::string const context =
        "Invalid package " + label_ + ": the relationships part " + quoted(setName.toString());
    if (set.entry->uncompressedSize > options_.limits.maxStructurePartSize) {
      throw InvalidPackage(context + ": it is larger than the limit of " +
                           std::to_string(options_.limits.maxStructurePartSize) + " bytes");
    }
    ZipEntry const& entry = *set.entry;
    set.relationships = readRelationships(
        [&] { return std::shared_ptr<opc::InputStream>(archive_->openEntry(entry)); },
        static_cast<std::size_t>(entry.uncompressedSize), sourceURI, context);
  }
  set.nextCounter = set.relationships.size() + 1;
  set.loaded = true;
}

PartInputStream& PackageState::newInputStream(std::shared_ptr<PartContent const> content,
                                              PartName const& name) {
  return inputStreams_.emplace_back(std::move(content), name);
}

PartOutputStream& PackageState::newOutputStream(std::shared_ptr<PartRecord> const& record) {
  if (!sharedSpool_) {
    sharedSpool_ = std::make_shared<SharedSpool>(options_.spoolBudget, spoolFolder());
  }
  return outputStreams_.emplace_back(record, options_.spoolThreshold, spoolFolder(), sharedSpool_,
                                     eagerArchive());
}

void PackageState::closeOutputStreams() {
  for (PartOutputStream& stream : outputStreams_) {
    if (!stream.isClosed()) stream.close();
  }
}

std::u16string PackageState::spoolFolder() const {
  if (inMemory_) return std::u16string();
  std::u16string const folder = opc::LocalFileSystemOps::getShared()->getParentPath(path_);
  return folder.empty() ? std::u16string(u".") : folder;
}

std::string_view PackageState::keyOf(PartName const& name) { return PartNameAccess::key(name); }

bool PackageState::isRegistered(DataManager const* manager) const {
  return std::find(managers_.begin(), managers_.end(), manager) != managers_.end();
}

}  // namespace detail
}  // namespace model
}  // namespace opc
