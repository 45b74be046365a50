// What a Package and every handle into it share: the parts, their relationships, the open
// streams, the registered data managers and the archive that unchanged parts come from.
// Internal to libopcmodel: nothing here is exported.
#ifndef OPC_MODEL_PACKAGE_PACKAGE_STATE_H_
#define OPC_MODEL_PACKAGE_PACKAGE_STATE_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <boost/optional.hpp>

#include <opc/model/content_type.h>
#include <opc/model/package_options.h>
#include <opc/model/part_name.h>
#include <opc/model/relationship.h>
#include <opc/model/standard_part_info.h>

#include "../zip/zip_archive.h"
#include "content_type_pool.h"
#include "folder_keys.h"
#include "part_content.h"
#include "part_index.h"
#include "part_streams.h"
#include "part_table.h"

namespace opc {
namespace model {

class DataManager;
class Package;

namespace detail {

class EagerArchive;
class PackageLock;
class SharedSpool;

struct PartRecord {
  PartRecord(PartName partName, ContentType type, interfaces::CompressionType compressionType)
      : PartRecord(std::move(partName), std::make_shared<ContentType const>(std::move(type)),
                   compressionType) {}
  PartRecord(PartName partName, std::shared_ptr<ContentType const> type,
             interfaces::CompressionType compressionType)
      : name(std::move(partName)), contentType(std::move(type)), compression(compressionType) {}

  // A package of many parts holds one record per part: the small fields go last, together,
  // so that no padding makes every record take a larger block.
  PartName name;
  // Never null; parts of the same type may share one (see ContentTypePool).
  std::shared_ptr<ContentType const> contentType;
  // What was written to the part; null while `entry` (below) holds its content, which
  // PackageState::contentOf makes when asked for.
  std::shared_ptr<PartContent const> content;
  // Where a part read from an archive came from; null for a part made here (until a save
  // points it at the saved file).  One block for both, since the records of a large new
  // package have neither: the record then takes 56 bytes, which with the count of its
  // shared_ptr malloc serves from its 80-byte bins.
  struct Origin {
    // The name of the archive item the part was read from, which saving keeps: readers find
    // items by the targets that point at them, and other writers spell those targets (and
    // so their item names) in UTF-8 rather than percent-encoded.  Empty for a part made
    // here, which is stored under toZipItemName of its name, and while `entry` holds the
    // name (it takes it when the entry goes), so that a part read from an archive holds its
    // name once.
    std::string itemName;
    // The archive item whose bytes are the content as they stand, copied raw at save; none
    // once the content was written.
    boost::optional<ZipEntry const> entry;
  };

  // The item of `entry`, or null.
  ZipEntry const* entry() const { return origin && origin->entry ? &*origin->entry : nullptr; }
  // The item name kept from the archive (see Origin::itemName), or null.
  std::string const* itemName() const {
    if (!origin) return nullptr;
    if (!origin->itemName.empty()) return &origin->itemName;
    return origin->entry ? &origin->entry->name : nullptr;
  }
  void setEntry(ZipEntry const& entry) {
    if (!origin) origin = std::make_unique<Origin>();
    origin->entry.emplace(entry);
  }
  void dropEntry() {
    if (!origin) return;
    if (origin->itemName.empty() && origin->entry) {
      origin->itemName = origin->entry->name;
    }
    origin->entry = boost::none;
    if (origin->itemName.empty()) origin.reset();
  }

  std::unique_ptr<Origin> origin;
  interfaces::CompressionType compression;
  bool deleted = false;
  // The last save wrote the content as it stands, and `entry` is to be found in the saved
  // file when it is next needed (see PackageState::reopenSaved).  Cleared with `entry`.
  bool entryPending = false;
};

static_assert(sizeof(void*) != 8 || sizeof(PartRecord) <= 56,
              "PartRecord outgrows malloc's 80-byte bins");

// The relationships of one source.  They are read from the archive when first asked for;
// a set that was never read, or read and never changed, is copied raw at save.
struct RelationshipSet {
  boost::optional<ZipEntry> entry;
  // As PartRecord::itemName (empty rather than null), for the relationships part.
  std::string itemName;
  bool loaded = false;
  bool changed = false;
  // As PartRecord::entryPending.
  bool entryPending = false;
  std::vector<Relationship> relationships;
  // Where the search for a new id starts: above every id this set ever gave, so that the id
  // of a deleted relationship is not given again.
  std::uint64_t nextCounter = 1;
};

class PackageState {
 public:
  PackageState(PackageAccess access, PackageOptions const& options, std::u16string path,
               bool inMemory);
  ~PackageState();
  PackageState(PackageState const&) = delete;
  PackageState& operator=(PackageState const&) = delete;

  PackageAccess access() const { return access_; }
  PackageOptions const& options() const { return options_; }
  bool inMemory() const { return inMemory_; }
  std::u16string const& path() const { return path_; }
  // "Invalid package <label>: ..." names the package this way.
  std::string const& label() const { return label_; }

  bool isOpen() const { return package_ != nullptr; }
  void attach(Package* package) { package_ = package; }
  // Throws InvalidPackageState if the package is closed.
  Package& package() const;
  void ensureOpen() const;
  // Throws PackageNotWritable ("Could not <what>: ...") for a package open for Read.
  void ensureWritable(std::string const& what) const;
  // Drops everything: the package is gone.  Streams are destroyed, handles turn invalid, and
  // the lock of the file is released.
  void close();

  // Takes the lock of the package's file for a writer (see PackageLock::acquire), before the
  // file is read; `context` begins the message of PackageLocked.
  void lockFile(std::string const& context);

  // Reads the parts and content types of the archive; see Package::open.
  void load(std::shared_ptr<ZipArchive const> archive);

  // The part, or null.  In a package open for Read the record is made from the part table
  // (see PartTable) when asked for; only the last one made is kept.
  std::shared_ptr<PartRecord> findPart(PartName const& name) const;
  // The part; throws InvalidPackageState (for a handle) naming the part if it is gone.
  std::shared_ptr<PartRecord> partForHandle(PartName const& name) const;
  // The content of a live part: what was written to it, or the archive item it was read
  // from, made on each call so that the parts of a large archive that nobody reads cost
  // no content each.
  std::shared_ptr<PartContent const> contentOf(PartRecord const& record) const;
  // The content and type of the part whose comparison key is `key`, or null.  Changes
  // nothing, so that several threads may ask at once while nobody changes the package.
  std::shared_ptr<PartContent const> findContent(std::string const& key,
                                                 ContentType const*& type) const;
  // Every part, in the order of the archive, then those made since.  In a package open for
  // Read the records are made at the first call.
  std::vector<std::shared_ptr<PartRecord>> const& parts() const;
  // As Package::visitParts (see package_part_visit.cc).
  void visitParts(std::function<void(std::u16string const& name, std::uint64_t size,
                                     ContentType const& type)> const& visit) const;
  // The existing part whose name is a leading run of the segments of `name` or the other way
  // round, if any.
  boost::optional<PartName> findDerivationConflict(PartName const& name) const;
  void addPart(std::shared_ptr<PartRecord> record);
  void removePart(PartName const& name);
  // `type` as an object that parts of the same type share (see ContentTypePool).
  std::shared_ptr<ContentType const> sharedType(ContentType const& type) const {
    return types_.intern(type);
  }
  // The content of a part just made: empty.  Contents never change, so one serves every new
  // part of the package, which spares two allocations a part.
  std::shared_ptr<PartContent const> const& emptyContent() const {
    if (!emptyContent_) emptyContent_ = makeMemoryContent(std::vector<unsigned char>());
    return emptyContent_;
  }

  // The relationships of "/" (none) or a part, read on first use.  Throws
  // InvalidPackageState if the part does not exist, InvalidPackage if its relationships
  // part cannot be read.
  RelationshipSet& relationships(boost::optional<PartName> const& source);
  // The sets of every source, the package's under none; for save.
  RelationshipSet& packageRelationships() { return packageRelationships_; }
  std::map<PartName, RelationshipSet>& partRelationships() { return partRelationships_; }

  PartInputStream& newInputStream(std::shared_ptr<PartContent const> content, PartName const& name);
  PartOutputStream& newOutputStream(std::shared_ptr<PartRecord> const& record);
  // Commits every output stream left open; see Part::getOutputStream.
  void closeOutputStreams();
  // Where spool files go: the package's folder, or the temporary folder.
  std::u16string spoolFolder() const;

  std::vector<DataManager*>& managers() { return managers_; }
  bool isRegistered(DataManager const* manager) const;

  std::shared_ptr<std::vector<unsigned char> const> const& savedBuffer() const { return saved_; }
  // Writes the archive (see Package::save, after the managers have run).
  void writeArchive();

 private:
  void loadRelationships(RelationshipSet& set, URI const& sourceURI, PartName const& setName);
  // The string that equal names share: what PartName compares.
  static std::string_view keyOf(PartName const& name);
  std::shared_ptr<PartRecord> findPartByKey(std::string_view key) const;
  // The record of byKey_ with this name, or with this key; null if none.
  std::shared_ptr<PartRecord> findRecord(PartName const& name) const;
  std::shared_ptr<PartRecord> findRecordByKey(std::string_view key) const;
  // As findDerivationConflict(name) for the name whose key is `key`, but the leading runs of
  // `key` that end before `known` are known to be no part.
  boost::optional<PartName> findDerivationConflict(std::string_view key, std::size_t known) const;
  // A part whose name lies below the part of key `key`, if any: a walk over every part.
  boost::optional<PartName> findPartBelow(std::string_view key) const;
  void addPart(std::shared_ptr<PartRecord> record, std::string_view key);
  void adoptArchive(std::shared_ptr<ZipArchive const> archive);
  // The record of a row of table_.
  std::shared_ptr<PartRecord> makeRecord(PartTable::Row const& row, PartTable const& table) const;
  // The archive that new content goes into before the save, or null (see package_save.cc).
  std::shared_ptr<EagerArchive> eagerArchive();
  // Opens the file the last save wrote and makes it the source of what did not change since
  // (see package_save.cc); nothing if it was done already.
  void reopenSaved();

  PackageAccess access_;
  PackageOptions options_;
  std::u16string path_;
  bool inMemory_;
  std::string label_;
  Package* package_ = nullptr;

  std::shared_ptr<ZipArchive const> archive_;
  std::shared_ptr<std::vector<unsigned char> const> saved_;

  // The parts read from the archive while they have no record: until the end of load() for
  // a writer, for as long as the package is open for a reader.
  PartTable table_;
  // For a reader, the record last made from table_ and its row.
  mutable std::shared_ptr<PartRecord> lastRecord_;
  mutable std::uint32_t lastRow_ = PartTable::kNone;
  // For a reader, filled by the first call of parts().
  mutable std::vector<std::shared_ptr<PartRecord>> parts_;
  // Both maps hold comparison keys (see keyOf), not names: the key of a leading run of
  // segments is the same leading run of the key, so that the runs of a name cost a substring
  // each rather than the validation of a new PartName.
  // The positions in parts_ of the records added (all of a writer's) by the hash of their key
  // (PartName::hash): the name, key included, is held once, by its record; names of equal
  // hashes are told apart by their records.
  PartIndex byKey_;
  // For every proper leading run of segments of a part's name, how many parts have it, so
  // that a part "/a" cannot be made beside "/a/b" without a walk over all parts.
  // Filed under the part table's seeded hash: the keys may come from a package.
  std::unordered_map<std::string, std::size_t, PartKeyHash> prefixes_;
  // The same for the parts of table_, without counts, since they are never removed: filled by
  // load() and kept for a reader.
  FolderKeys tableFolders_;
  // A folder of part names ("/a/b" for "/a/b/c.xml") none of whose leading runs of segments,
  // itself included, names a part: looked for once for the many parts made in one folder.
  // Used only without table_; emptied by addPart when the folder stops being clear.
  mutable std::string clearFolder_;
  // The room in which a key is looked up in prefixes_, which takes only a std::string: kept,
  // so that the look-up made for every part that a package holds costs no allocation.
  mutable std::string prefixKey_;
  mutable ContentTypePool types_;
  mutable std::shared_ptr<PartContent const> emptyContent_;

  RelationshipSet packageRelationships_;
  std::map<PartName, RelationshipSet> partRelationships_;

  // Every stream given out, in place: a caller holds its stream by reference until the package
  // goes, and a package of many parts keeps as many, so none costs a block of its own.
  std::deque<PartInputStream> inputStreams_;
  std::deque<PartOutputStream> outputStreams_;
  std::shared_ptr<SharedSpool> sharedSpool_;
  std::vector<DataManager*> managers_;
  // Held by a writer of a file from open (or its first save, for a Create that found nothing
  // at the path) to close; null for readers, buffers and file systems without locks.
  std::unique_ptr<PackageLock> lock_;
  std::shared_ptr<EagerArchive> eager_;
  // A save through eager_ leaves the reopening of its file to the next use that needs it:
  // a package closed at once after its save (the common case) never pays for it.
  bool reopenPending_ = false;
};

// The leading runs of segments of a name, shortest first, the name itself excluded.
std::vector<PartName> properPrefixes(PartName const& name);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_PACKAGE_STATE_H_
