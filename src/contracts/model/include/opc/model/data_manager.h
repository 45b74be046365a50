// opc::model::DataManager: the base of the services that keep their data in a package.
#ifndef OPC_MODEL_DATA_MANAGER_H_
#define OPC_MODEL_DATA_MANAGER_H_

#include <string>
#include <vector>

#include <opc/model/export.h>

namespace opc {
namespace model {

class Package;

// A service that reads its data from parts of a package and writes it back when the package
// is saved.  A manager registers with its package when constructed and unregisters when
// destroyed; the package must outlive it.  Loading is lazy: load() runs doLoad() the first
// time it is called; a doLoad() that throws leaves the manager unloaded, so the failure
// surfaces in the operation that asked and the next call tries again.  markAsDirty() makes
// the next Package::save() call doSave().  Nothing is written by a destructor.
//
// Not copyable.  Used by one thread at a time, together with its package.
class OPC_MODEL_EXPORT DataManager {
 public:
  DataManager(DataManager const&) = delete;
  DataManager& operator=(DataManager const&) = delete;

 protected:
  // `autoLoad` true loads at construction; every manager of the library passes false.
  DataManager(Package& package, bool autoLoad);
  virtual ~DataManager();

  void load();
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
  bool loaded_ = false;
  bool dirty_ = false;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_DATA_MANAGER_H_
