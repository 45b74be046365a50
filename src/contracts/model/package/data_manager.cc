#include <algorithm>

#include <opc/model/data_manager.h>
#include <opc/model/package.h>

#include "package_state.h"

namespace opc {
namespace model {

DataManager::DataManager(Package& package, bool autoLoad)
    : package_(package), state_(package.sharedState()), autoLoad_(autoLoad) {
  state_->ensureOpen();
  state_->managers().push_back(this);
}

DataManager::~DataManager() {
  auto& managers = state_->managers();
  managers.erase(std::remove(managers.begin(), managers.end(), this), managers.end());
}

void DataManager::load() {
  if (loaded_) return;
  doLoad();
  loaded_ = true;
}

void DataManager::markAsDirty() { dirty_ = true; }

Package& DataManager::getPackage() const { return package_; }

std::vector<std::u16string> DataManager::getManagedPartNames() const {
  return doGetManagedPartNames();
}

std::vector<std::u16string> DataManager::getManagedRelationshipTypes() const {
  return doGetManagedRelationshipTypes();
}

}  // namespace model
}  // namespace opc
