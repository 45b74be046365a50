// opc::model::Package: an Open Packaging Conventions package over a ZIP archive.
#ifndef OPC_MODEL_PACKAGE_H_
#define OPC_MODEL_PACKAGE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <opc/model/content_type.h>
#include <opc/model/enumerator.h>
#include <opc/model/export.h>
#include <opc/model/package_options.h>
#include <opc/model/part.h>
#include <opc/model/part_name.h>
#include <opc/model/part_reader.h>
#include <opc/model/relationship_source.h>
#include <opc/model/standard_part_info.h>

namespace opc {
namespace model {

class DataManager;

// An open package: its parts, their content types, and the relationships of the package and
// of each part.  The package is a RelationshipSource for its own relationships ("/").
//
// Opening reads the archive's directory, [Content_Types].xml and nothing else; parts and
// relationships are read when first asked for.  Nothing is written until save(): the
// destructor never writes, and a package open for Read is never written whatever the
// caller does.  Saving writes a complete new archive beside the target
// (".<name>.<8 hex digits>.tmp", with the target's permission bits), flushes it to disk,
// renames it over the target and flushes the folder, so that a crash, a full disk or a
// failure leaves the original intact: the file is always the old package or the whole new
// one.  A save that fails removes its temporary file; one that was killed leaves it behind,
// and the next save of the same package removes it.  Parts that were not changed are copied
// into the new archive without being decompressed.
//
// Writers take turns: a package open for Modify, or for Create over an existing file, holds
// an advisory lock on the file from open until it is destroyed (and a Create that found
// nothing at the path takes it at its first save), in this process or any other.  A second
// writer of the same file waits up to PackageOptions::lockWaitMilliseconds for it and then
// gets PackageLocked, before it has read or written anything, so that no writer ever saves
// over changes it has not seen.  Readers take no lock, are never held up, and always see a
// complete package.  On a file system without locks, writers are not held apart.
//
// Not thread-safe: one thread at a time uses a package, its parts and its streams.  The one
// exception is reading: several threads may call openPartReader() at once, and each read the
// readers it got, while no thread calls any other member of the package or of its parts.
// Different parts, or the same part, may be read so; a package open for Read reads its
// archive by position (pread), so that no reader moves another's place in the file.
class OPC_MODEL_EXPORT Package : public RelationshipSource {
 public:
  // Opens the package at `path`.  Read and Modify need an existing, valid package (throws
  // CouldNotOpenPackage if it cannot be read, InvalidPackage naming the problem if it is not
  // a valid package or exceeds `options.limits`).  Create starts an empty package and does
  // not read what is at `path`.  Modify, and Create over an existing file, first take the
  // writers' lock (see above) and throw PackageLocked if another writer still holds it after
  // `options.lockWaitMilliseconds`:
  //   Could not open package "<path>" for writing: another writer has it open
  static std::unique_ptr<Package> open(std::u16string const& path, PackageAccess access,
                                       PackageOptions const& options = PackageOptions());

  // Opens a package held in memory.  Read and Modify parse `bytes`; Create ignores them.
  // save() of a buffer package writes the archive into memory: see getBuffer().
  static std::unique_ptr<Package> openBuffer(std::vector<unsigned char> bytes, PackageAccess access,
                                             PackageOptions const& options = PackageOptions());

  Package(Package const&) = delete;
  Package& operator=(Package const&) = delete;
  // Closes the package without writing; handles into it become invalid.
  ~Package() override;

  bool isValid() const override;
  bool isOpen() const override;
  bool isReadOnly() const override;
  bool isCreateOnly() const override;
  Package& getPackage() const override;

  // True if a part of that name exists (names compare by PartName equivalence, so without
  // regard to ASCII case).  Relationships parts are not parts here: they are reached
  // through the relationships of their source.
  bool hasPart(PartName const& name) const;
  // True if `name` cannot be used because an existing part's name is a leading run of its
  // segments ("/a" exists and "/a/b" is asked for), or `name` is itself a leading run of an
  // existing part's segments.  `existing` then receives that part's name.
  bool isPartDerivedFromExistingPartName(PartName const& name, std::u16string& existing) const;
  // The part of that name; throws PartNotFound if there is none.  The handle carries the
  // name as the part has it, which may differ in ASCII case from `name`.
  Part getPart(PartName const& name) const;
  // A reader of the content of the part whose name is `name` (compared as PartName does,
  // without regard to ASCII case), which the caller owns; see PartReader.  A text that names
  // a part is not checked again; one that names none is checked as a PartName, so that it
  // raises InvalidPartName if it is no part name, else PartNotFound as getPart does.  Throws
  // InvalidPackageState if the package is closed, and what reading the item's local header
  // raises (InvalidPackage naming the item).  May be called from several threads at once (see
  // the class comment); nothing is kept in the package for the reader.
  std::unique_ptr<PartReader> openPartReader(std::u16string const& name) const;
  // Every part, relationships parts excluded, in archive order then order of creation.
  Enumerator<std::vector<Part>> getParts() const;
  // Calls `visit` with the name, the content size and the content type (Part::getSize and
  // Part::getContentType) of every part, in the order of getParts, and makes neither a handle nor a
  // record for any: the names of a package open for Read come from its archive's directory, checked
  // once when it was opened, so that listing 100,000 parts costs no memory per part.  `visit` must
  // not change the package.
  void visitParts(std::function<void(std::u16string const& name, std::uint64_t size,
                                     ContentType const& type)> const& visit) const;

  // Makes a part with empty content.  Throws PackageNotWritable for a package open for Read,
  // InvalidPartName if the name is taken (ASCII case ignored), derived from an existing
  // name, a relationships part name, lies inside a relationships part ("/_rels/.rels/x"),
  // or ends in a "_rels" segment (the folder of relationships parts), and InvalidPartInfo
  // for an unknown compression type.
  Part createPart(PartName const& name, ContentType const& contentType,
                  interfaces::IPhysicalPartInfo const& info);
  // Removes the part, its content and its relationships part.  Relationships that target
  // it are left alone, as the conventions allow.  Throws PartNotFound if there is none.
  void deletePart(PartName const& name);

  // Runs doSave of every registered data manager that is dirty, in order of registration,
  // then writes the package.  Throws PackageNotWritable for a package open for Read, and
  // CouldNotSavePackage (with the cause) if writing fails; the original stays intact.  A
  // package open for Create that found nothing at its path when it was opened throws
  // PackageLocked ("Could not save package "<path>": another writer has it open") if another
  // writer has made a package there since and still holds it.
  //
  // An exception of a manager's doSave passes unchanged, before anything is written: the
  // file stays as it was, what the managers changed in the model stays changed, and every
  // manager stays dirty.  Output streams left open are closed, so their content is saved.
  // Written: [Content_Types].xml first, then the package's relationships part, then each
  // part followed by its relationships part.  Parts and relationships parts that were not
  // changed are copied without being decompressed.  After a save the package goes on
  // working from what it wrote, and streams opened before it keep reading what they began.
  void save();

  // The archive written by the last save() of a buffer package (empty before the first).
  std::vector<unsigned char> const& getBuffer() const;

 protected:
  void doVerifyRelationship(Relationship const& relationship) const override;

 private:
  friend class DataManager;
  explicit Package(std::shared_ptr<detail::PackageState> state);
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_H_
