// The manifests of a package file system as the package's relationships show them: the
// current one, and the older (V1) one that packages of the older generation hold, alone or
// beside the current one for older readers.
#ifndef TOOLS_OPCVK_MANIFESTS_H_
#define TOOLS_OPCVK_MANIFESTS_H_

#include <string>
#include <vector>

#include <opc/model/package.h>

namespace opcvk {

struct HeldManifests {
  // A relationship of the current manifest's type.
  bool current = false;
  // A relationship of the older manifest's type.
  bool v1 = false;
  // The part that the library reads (through the current relationship if there is one)
  // has the older manifest's content type, so that loading converts it.
  bool readInOlderForm = false;

  // "current" and "v1", for those held.
  std::vector<std::string> names() const;
};

// Reads relationships and the content type of one part; reads no content.  An unusable
// relationship target counts as held all the same: loading will report it.
HeldManifests heldManifests(opc::model::Package const& package);

// Removes every relationship of the older manifest's type, and the part each one leads to
// when that part has the older manifest's content type and is not also the current
// manifest.  For a package that keeps its current manifest and is upgraded: its older
// manifest would no longer say what the package holds.
void removeOlderManifest(opc::model::Package& package);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_MANIFESTS_H_
