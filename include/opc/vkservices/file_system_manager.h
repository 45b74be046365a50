// FileSystemManager: the file system of files, folders and symbolic links kept in a package.
#ifndef OPC_VKSERVICES_FILE_SYSTEM_MANAGER_H_
#define OPC_VKSERVICES_FILE_SYSTEM_MANAGER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>

#include <opc/core/file_system_ops.h>
#include <opc/core/file_system_ops_selector.h>
#include <opc/core/output_stream.h>
#include <opc/core/perms.h>
#include <opc/model/content_type.h>
#include <opc/model/data_manager.h>
#include <opc/model/enumerator.h>
#include <opc/model/package.h>
#include <opc/model/part_name.h>
#include <opc/model/uri.h>
#include <opc/vkservices/bytes.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/export.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/iv_mode.h>

namespace opc {

class ConfinedFile;

namespace vkservices {

class FileSystemTree;
class FileSystemManifestXml;
class SharedExtraction;

namespace detail {
class FileSystemManagerAccess;
struct ExtractionSession;
class FileSystemEncryption;
}  // namespace detail

// How content passes into and out of the file system.  Only ApplyTransforms is tested for:
// any other value counts as NoTransforms.
enum class TransformMode : std::int32_t {
  // Content passes unchanged, stored bytes and stored content type as they are.
  NoTransforms = 0,
  // Content passes through the transforms that apply to it (on the way out, decryption of
  // encrypted content).
  ApplyTransforms = 1,
};

// What extraction restores beside the content.  Only RestoreTimeAndPermissions is tested for:
// any other value counts as RestoreNothing.
enum class RestoreMode : std::int32_t {
  // A file gets the time and permissions that the destination file system gives it.
  RestoreNothing = 0,
  // A file gets the entry's last modified time, then its permissions, each where the entry
  // knows it.  Folders and links never get either.
  RestoreTimeAndPermissions = 1,
};

// What extraction does when an output file cannot be opened for writing, the usual case being
// an existing read-only file.  A file that can be opened is overwritten in every mode.  To
// clobber is to set the destination's permissions to 0777 and open it once more.
enum class ReplaceMode : std::int32_t {
  // A failed open is an error.
  ReplaceNever = 0,
  // Clobber if the destination exists; if it does not, a failed open is an error.
  ReplaceExisting = 1,
  // Clobber whether or not the destination exists.  Any value other than 0 and 1 acts so.
  ReplaceAlways = 2,
};

// The data manager of a package file system: a tree of files, folders and symbolic links
// whose manifest is the part "/metadata/filesystemManifest.xml", reached by a package
// relationship.  Each file's bytes lie in a part of their own under "/fsroot"; folders and
// links exist only in the manifest.
//
// Paths are absolute, "/" is the root, components are separated by "/" and compared by
// UTF-16 code unit, case included.  A backslash in a caller's path is read as "/".  Operations
// that create an entry put "/" in front of a relative path; operations that look an entry up
// do not, so that "a/b" is stored as "/a/b" but only found as "/a/b".
//
// Loading is lazy: construction reads nothing, and the first operation that needs the tree
// reads the manifest, so that a failed load surfaces in that operation (and the next one
// tries again).  Every change marks the manager dirty; the package writes the manifest when
// it is saved.  The destructor writes nothing.
//
// Lifetime: the package must stay open for as long as the manager lives.  Entries returned
// are snapshots that own their data and outlive the manager.
//
// Thread safety: none.  One thread at a time, const operations included, since any of them
// may load the tree.
class OPCVK_EXPORT FileSystemManager : public opc::model::DataManager {
 public:
  // Registers with `package` (which must be open, else opc::model::InvalidPackageState) and
  // copies `selector`.  Reads nothing from the package.  Raises
  // opc::model::InvalidXMLSchema if the manifest schemas do not load.
  FileSystemManager(opc::model::Package& package, opc::FileSystemOpsSelector const& selector);
  // Releases everything; writes nothing.
  ~FileSystemManager() override;

  // --- Document strings.  Each loads the tree first; a failed load raises what the load
  // raised (see the class comment and the load section below).

  // The manifest version: "2.0" for a new file system.
  std::u16string getVersion() const;
  // The platform tag the file system was made on: this build's tag for a new one.
  std::u16string getCreatedByPlatform() const;
  // The text encoding the file system was made under: that of the process's global locale
  // for a new one.
  std::u16string getCreatedByEncoding() const;

  // --- Packages of the older generation.  Their manifest is the part
  // "/metadata/filesystemManifestV1.xml" (no version, decimal file modes), and each link's
  // target lies in a part of its own.  The first operation converts such a manifest in
  // memory (the version becomes "2.0", links get their targets from their parts) whatever
  // the flag below says.  Then, in a package open for Modify:
  //  - without the flag, the link parts, the older manifest part and its relationship are
  //    deleted and the manager is marked dirty, so that the next save writes the current
  //    manifest: the package is upgraded;
  //  - with the flag, the link parts are deleted all the same, the older manifest part and
  //    its relationship stay, and the manager is NOT marked dirty (see the warning below).
  // A package open for Read keeps every part; the conversion lives in memory only.

  // Also write the older form of the manifest on every save that writes the manifest, for
  // readers of the older generation, and keep the older part and relationship when such a
  // package is loaded.  False unless set; the library never sets it.  Does not load and
  // does not mark the manager dirty.  Set it before the first operation: the first load
  // decides what happens to the parts of an older package, and a later change undoes
  // nothing.  The older form carries a link's target text as its content, where readers of
  // the older generation look for a part name.
  //
  // WARNING.  With the flag set, loading a package of the older generation open for Modify
  // DELETES THE PARTS THAT HOLD ITS LINK TARGETS BUT DOES NOT MARK THE MANAGER DIRTY.  A
  // caller that then only reads and saves the package writes it with no current manifest
  // and with the older manifest still naming the deleted parts: the next load fails with
  // CouldNotConvertFileSystemManifest, and the links are lost.  Flag or not, the same befalls
  // a package whose current manifest relationship leads to a part of the older manifest's
  // content type: that part keeps naming the deleted link parts.  A caller that may save such a
  // package without changing its file system must make the manager dirty first: change something,
  // or, in a class derived from this one, call markAsDirty() after an operation has loaded the tree
  // (never before the load: a manager marked dirty while unloaded writes its empty tree over the
  // manifest).  The next save then writes the current manifest and, with the flag, the older one.
  void setSaveV1Manifest(bool saveV1Manifest);

  // --- Encryption.  An encrypted file system is encrypted whole: every file's content and
  // the manifest, each under AES-256-GCM as one message with a fresh 16-byte IV stored in
  // front of the ciphertext and the 16-byte tag after it, in a part whose content type
  // carries the parameters "encryption=AES256-GCM" and "iv=inline"; and every file's part
  // is named "/fsroot/" and the hexadecimal HMAC-SHA-256, under the same key, of its
  // percent-encoded path, so that names give no path away.  Encrypted parts are stored,
  // not compressed.  The key is 32 raw bytes (a key derived from a password, for example);
  // the manager keeps it only inside the crypto engines, in buffers wiped when they go.
  // Other managers' parts (core properties, cipher data) are not encrypted.
  //
  // Nothing read from an encrypted part is handed out before its tag verified: content up
  // to a few MiB is decrypted whole in memory; larger content is read twice, once to
  // verify and once to decrypt as the caller reads, in bounded memory, and content that
  // changed between the two readings fails at the end of the second.

  // Switches encryption on.  In a package open for Create, from now on files added with
  // addFile and the manifest are encrypted.  In one open for Modify:
  //  - a plain file system (one whose manifest part is not encrypted) is converted: each
  //    file is read from its plain part, its part deleted, and the content added again
  //    encrypted, under a new part name, with its permissions and time; links and empty
  //    folders stay as they are, in the manifest only.  The manager is marked dirty; the
  //    manifest part is rewritten encrypted at the next save (isEncrypted() tells the old
  //    state until then).  A file goes from part to part as a stream through the package's
  //    spool, never whole in memory.  A failure raises CannotEnableEncryption "Could not
  //    successfully change from a non-encrypted file system to an encrypted file-system";
  //    the files converted by then stay converted, so that only an atomic save of the
  //    package (or none) keeps the package whole;
  //  - an encrypted one is loaded with `key` at once, and a key that does not open its
  //    manifest raises CannotEnableEncryption "Encryption key most likely does not match
  //    the key used to originally encrypt the package"; with the right key, the manager can
  //    read, add and save as usual;
  //  - one with no file system yet is as under Create.
  //
  // `mode` and `ivBytes` say where IVs come from (iv_mode.h): RandomIV with an optional
  // seed (empty, or at least 8 bytes), DeterministicIV with a fixed portion of at least 8
  // bytes.  WARNING: with DeterministicIV the IVs depend on the fixed portion and the order
  // of the messages alone.  A fixed portion reused under one key by two packages (or by two
  // saves of one package) repeats IVs for different content, which breaks GCM: it gives away
  // the XOR of the plaintexts and lets anyone forge messages under that key.  Use it only
  // for output that must be reproducible byte for byte, with a key or fixed portion of its
  // own; otherwise use RandomIV.
  //
  // Raises CannotEnableEncryption "Cannot enable encryption unless package is open for
  // Create or Modify" for a package open for Read; InvalidIVBytesSize "IV fixed portion
  // must be at least 8 bytes" or "IV seed must be at least 8 bytes when it is specified",
  // with nothing changed; foundation::crypto::utils::Exception (a std::runtime_error, not an
  // opc::Exception) for a key that is not 32 bytes.  May be called again; each call replaces
  // the engines it makes.
  void enableEncryption(bytes const& key, IVMode mode, bytes const& ivBytes);
  // Gives a package open for Read the key to read an encrypted file system.  Reads and
  // checks nothing: a wrong key shows at the first operation that loads, as
  // CouldNotTransformContentData, after a line on standard output (see the load section).
  // Raises CannotEnableDecryption "Cannot enable decryption unless package is open for
  // Read" for any other package (a package open for Modify gets its decryptor from
  // enableEncryption), and foundation::crypto::utils::Exception for a key that is not 32
  // bytes.  May be called again; the last key wins.
  void enableDecryption(bytes const& key);
  // Whether the package's manifest part (found by its relationship) is encrypted, by its
  // content type alone: no key is needed, nothing is loaded or decrypted.  False for a
  // package without a file system or with an older one only.
  bool isEncrypted() const;
  // True once encryption is on (enableEncryption succeeded up to its encryptor).  Does not
  // load.
  bool isEncryptionEnabled() const;
  // True once a decryptor is set (enableDecryption, or enableEncryption on an encrypted
  // package open for Modify).  Does not load.
  bool isDecryptionEnabled() const;

  // --- Queries.  The path forms load the tree first and take the path with backslashes
  // read as "/" and nothing else changed.  The entry forms do not load and use the entry's
  // path as it stands.

  // The entry at `path`.  Raises FileSystemEntryNotFound "File system entry does not exist:
  // <path>" if there is none.
  FileSystemEntry getEntry(std::u16string const& path) const;
  // Whether an entry is at `path`.  hasEntry("") is false.
  bool hasEntry(std::u16string const& path) const;
  // The root folder "/".
  FileSystemEntry getRoot() const;
  // The direct children of the entry at `path`, in the order they entered the tree.  Raises
  // FileSystemEntryNotFound as getEntry.  Empty for a file or a link.
  opc::model::Enumerator<std::vector<FileSystemEntry>> getChildren(
      std::u16string const& path) const;
  // The direct children of `entry`; empty if it has none or is no longer in the tree.
  opc::model::Enumerator<std::vector<FileSystemEntry>> getChildren(
      FileSystemEntry const& entry) const;
  // Whether the entry at `path` has children.  Raises FileSystemEntryNotFound as getEntry.
  bool hasChildren(std::u16string const& path) const;
  // Whether `entry` has children; false if it is no longer in the tree.
  bool hasChildren(FileSystemEntry const& entry) const;
  // The folder that holds the entry at `path`.  Raises FileSystemEntryNotFound as getEntry,
  // and FileSystemEntryHasNoParent "File system entry has no parent" for the root.
  FileSystemEntry getParent(std::u16string const& path) const;
  // The folder that holds `entry`.  Raises FileSystemEntryHasNoParent "File system entry has
  // no parent" for the root and for an entry no longer in the tree.
  FileSystemEntry getParent(FileSystemEntry const& entry) const;
  // Whether the entry at `path` has a parent (false for the root only).  Raises
  // FileSystemEntryNotFound as getEntry.
  bool hasParent(std::u16string const& path) const;
  // Whether `entry` has a parent; false for the root and an entry no longer in the tree.
  bool hasParent(FileSystemEntry const& entry) const;
  // Every entry without children (files, links and empty folders, never the root), in
  // ascending UTF-16 order of the full path.
  opc::model::Enumerator<std::vector<FileSystemEntry>> getAllLeafs() const;

  // --- Create, delete and read.  Creating loads the tree first, puts "/" in front of a
  // relative path, reads backslashes as "/", makes every missing parent folder, and marks the
  // manager dirty.  Each raises FileSystemEntryAlreadyExists "File system entry already
  // exists: <path>" if the path is taken, the root and existing folders included.

  // Makes an empty file: a new part of `contentType` under "/fsroot", named after the path
  // (a taken or otherwise unusable name gets a numbered suffix), compressed as content.
  // With encryption on, the part is named by the digest of the path and stored; the bytes
  // written to it are NOT encrypted: only addFile encrypts.  `permissions` 65535 and
  // `lastModifiedTime` not_a_date_time mean unknown.  Write the bytes through
  // getFileOutputStream.  A path that gives no valid part name raises the model's
  // opc::model::InvalidPartName, and nothing changes.
  FileSystemEntry createFile(std::u16string const& path, opc::model::ContentType const& contentType,
                             opc::Perms::Perms_tag permissions,
                             boost::posix_time::ptime const& lastModifiedTime);
  // Makes a folder without permissions or time.
  FileSystemEntry createFolder(std::u16string const& path);
  // Makes a symbolic link to `target`, which is text only: it is never looked up or
  // followed, and stays relative if it is.  Backslashes in it are read as "/".
  FileSystemEntry createLink(std::u16string const& path, std::u16string const& target);

  // Removes the file `entry` from the tree and its part from the package.  Raises
  // FileSystemEntryMustBeFile "File system entry must be a file" for any other kind, before
  // anything changes; FileSystemEntryNotFound if it is no longer in the tree.
  void deleteFile(FileSystemEntry const& entry);
  // Removes the folder `entry` and everything in it, children before their parent, with the
  // parts of its files.  Raises FileSystemEntryMustBeFolder "File system entry must be a
  // folder" for any other kind; FileSystemEntryNotFound if it is no longer in the tree;
  // FileSystemEntryHasNoParent "File system entry has no parent" for the root, which stays.
  void deleteFolder(FileSystemEntry const& entry);
  // Removes the link `entry`.  Raises FileSystemEntryMustBeLink "File system entry must be a
  // link" for any other kind; FileSystemEntryNotFound if it is no longer in the tree.
  void deleteLink(FileSystemEntry const& entry);

  // The output stream of the part of the file `entry`: what is written replaces the part's
  // bytes.  Valid as long as the package is open; owned by the package.  Does not mark the
  // manager dirty.  Raises FileSystemEntryMustBeFile "File system entry must be a file" for
  // another kind, and the model's opc::model::PartNotFound if the part has gone.
  opc::OutputStream& getFileOutputStream(FileSystemEntry const& entry);
  // A new source over the content of the file `entry`, owned by the caller, valid while the
  // package is open.  With NoTransforms: the stored bytes and the stored content type
  // (ciphertext, with its IV in front, for an encrypted file; no key needed).  With
  // ApplyTransforms, encrypted content is decrypted and its type loses the parameters
  // "encryption" and "iv"; the bytes are authenticated before the first one is delivered.
  // Decryption happens on the source's first getInputStream(), which raises
  // CouldNotTransformContentData if the content does not decrypt (a wrong key, altered
  // content, an unknown algorithm), after a line on standard output; content that changes
  // while it is read fails at the read that would deliver its end.  Raises
  // CouldNotDecryptContent "Content is encrypted but enableDecryption() has not been called
  // yet" for encrypted content without a decryptor, and FileSystemEntryMustBeFile "File
  // system entry must be a file" for another kind.
  std::unique_ptr<IContentSource> getFileContentSource(FileSystemEntry const& entry,
                                                       TransformMode mode);
  // The target text of the link `entry`.  Raises FileSystemEntryMustBeLink "File system
  // entry must be a symbolic link" for another kind.
  std::u16string getLinkTarget(FileSystemEntry const& entry) const;

  // --- Add from a real file system.  The file system is the one the selector picks for the
  // source path; real paths are used as given.  Stops at the first error: what was added
  // before stays, and the manager is dirty.  Two add operations on one manager must not
  // overlap.

  // Adds the file `sourceFileName` at the package path `path` with the permissions and the
  // last modified time it has on disk.  With ApplyTransforms a text/plain file is recoded to
  // UTF-8 (UDEToUTF8Transform) and gets that transform's content type; anything else is
  // stored as it is.  With encryption on, the content is then encrypted as it is copied, in
  // bounded memory, and stored (see the encryption section).  Raises FileSystemEntryAlreadyExists
  // before touching the file if the path is taken; CouldNotGetPermissions /
  // CouldNotGetLastModifiedTime if the disk does not give them; the source's own errors if it
  // cannot be read.
  FileSystemEntry addFile(std::u16string const& sourceFileName, std::u16string const& path,
                          TransformMode mode);
  // Adds the content of `source` at `path` with the given permissions and time (unknown
  // values make unset fields).  Raises FileSystemEntryAlreadyExists if the path is taken.
  FileSystemEntry addFile(std::unique_ptr<IContentSource> source, std::u16string const& path,
                          opc::Perms::Perms_tag permissions, boost::posix_time::ptime time);
  // Adds every regular file and symbolic link below the folder `sourceRoot`, at the same
  // relative paths, in the order the file system lists them.  Folders are never added as
  // such: empty folders are passed over, and the others come into being as parents.  A link
  // keeps a relative target as text; an absolute target under the root becomes a package
  // path, and one outside it raises CouldNotMakeRelativeToSourceRoot.  Raises
  // CouldNotGetSourceFilesAndLinks if the folder cannot be listed.
  void addAll(std::u16string const& sourceRoot, TransformMode mode);
  // As addAll for the package paths of `list` only, each read at `sourceRoot` followed by the
  // path.  An item that is a folder or missing is passed over in silence.
  void addList(std::u16string const& sourceRoot, std::vector<std::u16string> const& list,
               TransformMode mode);

  // --- Extraction to a real file system below the folder `destination`, which is made if
  // missing.  The file system is the one the selector picks for it.  No transaction: what was
  // extracted before a failure stays.  Nothing is ever written outside `destination`: an
  // entry whose path would leave it, or would pass through a symbolic link found inside it,
  // is refused with the error class of its kind (CouldNotCreateFile, CouldNotCreateFolder,
  // CouldNotCreateLink), naming the entry.  A link whose target text points outside is made,
  // as archivers do; nothing is written through it.
  //
  // Below the destination everything goes through the opc::ConfinedDestination that the file
  // system gives for it.  On the local disk each folder is opened once and files, folders,
  // links, times and permissions are made relative to it, so another process that changes the
  // destination meanwhile cannot redirect a write; the folders opened are kept for the next
  // call to the same destination, which goes on with them after one look-up confirms that
  // their names still lead to them, and are closed when the manager is destroyed or extracts
  // elsewhere.
  //
  // An encrypted file (with ApplyTransforms) is decrypted into a temporary file beside its
  // place, which takes the place by a rename only once the whole content is written and its
  // tag verified: a file that does not decrypt raises CouldNotTransformContentData and leaves
  // neither a file nor a temporary one, and what stood at the path stays as it was.  What
  // stands there meets the same refusals and replace modes as on the plain road.

  // Extracts every leaf (files, links, empty folders) in ascending path order; the folders
  // above them are made on the way and get neither time nor permissions.  SharedExtraction
  // (shared_extraction.h) does the same with threads that the caller starts.
  void extractAll(std::u16string const& destination, RestoreMode restoreMode,
                  TransformMode transformMode, ReplaceMode replaceMode);
  // Extracts the one entry (a folder alone, without what lies below it), making its parents.
  void extractEntry(std::u16string const& destination, FileSystemEntry const& entry,
                    RestoreMode restoreMode, TransformMode transformMode, ReplaceMode replaceMode);

 protected:
  // The file system that add operations read from; valid once one of them has chosen it.
  virtual opc::FileSystemOps& getSourceFSImpl() const;
  // The file system that extract operations write to; valid once one of them has chosen it.
  virtual opc::FileSystemOps& getDestFSImpl() const;

 private:
  friend class detail::FileSystemManagerAccess;
  friend class SharedExtraction;

  // --- Load and save, called by the package model.
  // Reads the manifest into a new tree; a part of the older manifest's content type is
  // converted.  An encrypted manifest is decrypted with the decryptor.  Raises
  // CouldNotDecryptContent "Manifest is encrypted but enableDecryption() has not been called
  // yet" for an encrypted manifest without one, CouldNotTransformContentData for one that
  // does not decrypt (a wrong key), opc::model::InvalidPartContent for a manifest that does
  // not parse, and CouldNotConvertFileSystemManifest "Error converting
  // from V1 manifest to current format: <cause>" if an older manifest cannot be converted
  // (a link part that is missing, empty, or longer than a link target can be).
  void doLoad() override;
  // Writes the manifest part, creating it and its relationship if needed (encrypted when
  // encryption is on, made again when its type changes), and with setSaveV1Manifest(true)
  // the older manifest too, never encrypted.
  void doSave() override;
  // The manifest part names and the part names of all files.  Loads the tree.
  std::vector<std::u16string> doGetManagedPartNames() const override;
  // The manifest relationship types.  Does not load.
  std::vector<std::u16string> doGetManagedRelationshipTypes() const override;

  // Loads the tree if needed and deals with the parts of an older manifest once.
  void ensureLoaded() const;

  // Whether the manifest part is there and not encrypted.
  bool isNonEncrypted() const;
  // The content type of the part that the first manifest relationship leads to, if any.
  boost::optional<opc::model::ContentType> getManifestContentType() const;
  // Re-adds every file of a plain file system encrypted; links and folders stay.
  void convertToEncrypted();
  FileSystemEntry makeEntry(FileSystemNode const& node) const;

  // The older form of the manifest.  Writes it into the part its relationship leads to,
  // or a new "/metadata/filesystemManifestV1.xml" with its relationship; never encrypted.
  void doSaveV1();
  // Turns a tree read from the older form into the current one: each link gets the target
  // text held by the part its content names, and, unless the package is read-only, those
  // parts are deleted once all are read (but not a part that a file or a manifest
  // relationship names too).  The version becomes "2.0".  Raises what reading a part
  // raises, and CouldNotConvertFileSystemManifest for an empty or overlong target.
  void convertVersion1ToCurrentVersion();
  // After a conversion, in a package that can be written: deletes the part of the first
  // older manifest relationship and that relationship, and marks the manager dirty.
  void cleanupOldPartsAndRelationships();

  static opc::model::URI getPartURI();
  static opc::model::URI getPartURIV1();
  static opc::model::ContentType getPartContentType();
  static opc::model::ContentType getPartContentTypeV1();
  static std::u16string getRelationshipType();
  static std::u16string getRelationshipTypeV1();

  // Paths.
  std::u16string normalizeFileName(std::u16string const& name) const;
  std::u16string normalizeLinkTarget(std::u16string const& target) const;
  std::u16string normalizePath(std::u16string const& path) const;

  opc::model::Enumerator<std::vector<FileSystemEntry>> getChildrenInternal(
      std::u16string const& path) const;
  FileSystemEntry getParentInternal(std::u16string const& path) const;
  bool hasChildrenInternal(std::u16string const& path) const;
  bool hasParentInternal(std::u16string const& path) const;
  void throwIfAlreadyExists(std::u16string const& path) const;
  void throwIfNotFound(std::u16string const& path) const;

  // The part name for a new file at the normalised `path`, free in the package now.
  opc::model::PartName makeUniquePartName(std::u16string const& path) const;
  // Makes the part of a new file at the normalised `path`, under the name makeUniquePartName
  // gives.
  opc::model::Part createUniquePart(std::u16string const& path,
                                    opc::model::ContentType const& contentType,
                                    opc::interfaces::IPhysicalPartInfo const& info);

  // Makes the part and the node of a new file, which `node` receives, and gives the part.
  opc::model::Part createFilePart(std::u16string const& path,
                                  opc::model::ContentType const& contentType,
                                  opc::Perms::Perms_tag permissions,
                                  boost::posix_time::ptime const& lastModifiedTime,
                                  FileSystemNode& node);
  // Makes the part and the node of a new file.
  FileSystemEntry createFileInternal(std::u16string const& path,
                                     opc::model::ContentType const& contentType,
                                     opc::Perms::Perms_tag permissions,
                                     boost::posix_time::ptime const& lastModifiedTime);
  FileSystemEntry createLinkInternal(std::u16string const& path, std::u16string const& target);
  // Removes the node of `entry`, raising FileSystemEntryNotFound if it is not in the tree.
  void removeEntryNode(FileSystemEntry const& entry);

  // Add from disk.
  FileSystemEntry addFileInternal(std::unique_ptr<IContentSource> source,
                                  std::u16string const& path, opc::Perms::Perms_tag permissions,
                                  boost::posix_time::ptime time);
  // Adds the file or link at `fullPath` (below `root`) at `packagePath`; anything else is
  // passed over.
  void addFileOrLink(std::u16string const& root, std::u16string const& fullPath,
                     std::u16string const& packagePath, TransformMode mode);
  // `fullPath` without the leading `root` and without the "/" that may then begin it.
  // Raises CouldNotMakeRelativeToSourceRoot if `fullPath` does not begin with `root`.
  std::u16string makeRelativePath(std::u16string const& root, std::u16string const& fullPath) const;

  // When the plaintext of a file reaches whoever reads it: at once (a reader that hands it
  // on), or only after the read that delivers the last byte (a writer into a place that it
  // publishes once the content is whole).
  enum class Publication { Immediate, AfterLastRead };
  // getFileContentSource, with encrypted content read as `publication` allows: after the
  // last read, in one pass whose last read checks the tag; at once, authenticated first.
  std::unique_ptr<IContentSource> getFileContentSourceInternal(FileSystemEntry const& entry,
                                                               TransformMode mode,
                                                               Publication publication);
  // Whether the part of the file `entry` is encrypted, by its content type.
  bool isEncryptedContent(FileSystemEntry const& entry) const;

  // Extraction.
  void extractEntryInternal(std::u16string const& destination, FileSystemEntry const& entry,
                            RestoreMode restoreMode, TransformMode transformMode,
                            ReplaceMode replaceMode);
  void extractFileInternal(std::u16string const& destination, FileSystemEntry const& entry,
                           RestoreMode restoreMode, TransformMode transformMode,
                           ReplaceMode replaceMode);
  // An encrypted file, through a temporary file beside its place that takes the place only
  // once the content is whole and its tag verified.
  void extractFileThroughTemporary(std::u16string const& destination, FileSystemEntry const& entry,
                                   RestoreMode restoreMode, ReplaceMode replaceMode);
  void extractFolderInternal(std::u16string const& destination, FileSystemEntry const& entry);
  void extractLinkInternal(std::u16string const& destination, FileSystemEntry const& entry);
  void ensureDestinationRootExists(std::u16string const& destination) const;
  // The confined destination for `destination` on getDestFSImpl(): the one of the last
  // extraction while it is unchanged, else a new one after ensureDestinationRootExists.
  opc::ConfinedDestination& enterDestination(std::u16string const& destination);
  // Makes the folders above the entry at `pathName` and returns the entry's real path.
  std::u16string ensureDestinationParentExists(std::u16string const& destination,
                                               std::u16string const& pathName) const;

  // Set by a load that converted an older manifest, until its parts have been dealt with.
  mutable bool pendingV1Cleanup_;
  opc::FileSystemOpsSelector fileSystemOpsSelector_;
  opc::FileSystemOps* sourceFS_;
  opc::FileSystemOps* destFS_;
  std::unique_ptr<FileSystemTree> tree_;
  std::unique_ptr<FileSystemManifestXml> manifestXml_;
  bool saveV1Manifest_;
  // The algorithm names, and the engines once encryption or decryption is enabled.
  std::unique_ptr<detail::FileSystemEncryption> encryption_;
  // The destination of the last extraction, kept between calls.
  std::unique_ptr<detail::ExtractionSession> extraction_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_FILE_SYSTEM_MANAGER_H_
