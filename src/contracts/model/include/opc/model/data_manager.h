// opc::model::DataManager: the base of the services that keep their data in a package.
#ifndef OPC_MODEL_DATA_MANAGER_H_
#define OPC_MODEL_DATA_MANAGER_H_

#include <memory>
#include <string>
#include <vector>

#include <opc/model/export.h>

namespace opc {
namespace model {

class Package;

namespace detail {
class PackageState;
}  // namespace detail

// A service that reads its data from parts of a package and writes it back when the package
// is saved.  A manager registers with its package when constructed and unregisters when
// destroyed; the package must outlive it.  Loading is lazy: load() runs doLoad() the first
// time it is called; a doLoad() that throws leaves the manager unloaded, so the failure
// surfaces in the operation that asked and the next call tries again.  markAsDirty() makes
// the next Package::save() call doSave().  Nothing is written by a destructor.
//
// The package calls doSave() of its dirty managers in order of registration.  It does not
// call doGetManagedPartNames() or doGetManagedRelationshipTypes(): it keeps and writes every
// part and relationship whoever made it, so that a package saved by a program that does not
// know a manager loses nothing of that manager's data.
//
// Not copyable.  Used by one thread at a time, together with its package.
class OPC_MODEL_EXPORT DataManager {
 public:
  DataManager(DataManager const&) = delete;
  DataManager& operator=(DataManager const&) = delete;

  // The names of the parts the manager owns and the relationship types it owns, as the
  // manager's doGetManagedPartNames() and doGetManagedRelationshipTypes() give them, for a
  // caller that checks a package against its managers.  A manager may load to answer; its
  // exceptions pass unchanged.
  std::vector<std::u16string> getManagedPartNames() const;
  std::vector<std::u16string> getManagedRelationshipTypes() const;

 protected:
  // Registers with `package`, which must be open (else InvalidPackageState) and outlive the
  // manager.  `autoLoad` true makes Package::save() run load() before this manager's
  // doSave(), so that a manager made dirty before it was loaded never saves state it did
  // not read.  (A base constructor cannot load: doLoad() of the derived class does not exist
  // yet.)  Every manager of the library passes false.
  DataManager(Package& package, bool autoLoad);
  // Unregisters from the package, if it is still open.  Writes nothing.
  virtual ~DataManager();

  // Runs doLoad() unless it already ran to its end; its exceptions pass unchanged, and the
  // manager then stays unloaded.
  void load();
  // Makes the next Package::save() call doSave().  The mark is cleared once a save in which
  // doSave() ran has written the package; a save that fails keeps it.
  void markAsDirty();
  Package& getPackage() const;

 private:
  friend class Package;

  // Reads the manager's parts into memory.
  virtual void doLoad() = 0;
  // Writes the manager's state to parts; called by Package::save() when dirty.
  virtual void doSave() = 0;
  // The names of the parts the manager owns: parts the package lists as the manager's.
  virtual std::vector<std::u16string> doGetManagedPartNames() const = 0;
  // The relationship types the manager owns.
  virtual std::vector<std::u16string> doGetManagedRelationshipTypes() const = 0;

  Package& package_;
  // Kept so that a manager that outlives its package by mistake can still unregister safely.
  std::shared_ptr<detail::PackageState> state_;
  bool autoLoad_;
  bool loaded_ = false;
  bool dirty_ = false;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_DATA_MANAGER_H_
