// Package::visitParts: the parts' names, sizes and types without a handle or record for any.
#include <string>

#include <opc/model/package.h>

#include "../part_name_rules.h"
#include "package_state.h"

namespace opc {
namespace model {

void Package::visitParts(std::function<void(std::u16string const& name, std::uint64_t size,
                                            ContentType const& type)> const& visit) const {
  state().ensureOpen();
  state().visitParts(visit);
}

namespace detail {

void PackageState::visitParts(std::function<void(std::u16string const& name, std::uint64_t size,
                                                 ContentType const& type)> const& visit) const {
  // A reader whose records were never made: the rows hold what the records would.  The name
  // is the text makeRecord gives (partNameFromZipItemName), whose check the item's name passed
  // when the archive was read, and the size is that of the item's content.
  if (parts_.empty() && !table_.empty()) {
    std::u16string name;
    for (PartTable::Row const& row : table_.rows()) {
      if (row.type == PartTable::kNone) continue;
      assignPartNameTextOfItem(name, archive_->name(row.entry));
      visit(name, archive_->uncompressedSize(row.entry), table_.types()[row.type]);
    }
    return;
  }
  for (std::shared_ptr<PartRecord> const& record : parts()) {
    // An item's size is in its entry: no content need be made to tell it.
    ZipEntry const* const entry = record->entry();
    std::uint64_t const size = record->content    ? record->content->size()
                               : entry != nullptr ? entry->uncompressedSize
                                                  : 0;
    visit(record->name.toString(), size, *record->contentType);
  }
}

}  // namespace detail
}  // namespace model
}  // namespace opc
