// Package::visitParts: the parts' names, sizes and types without a handle or record for any.
#include <algorithm>
#include <string>
#include <string_view>

#include <opc/core/string_conversions.h>
#include <opc/model/package.h>

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
  // is the one makeRecord gives (partNameFromZipItemName), whose check the item's name passed
  // when the archive was read, and the size is that of the item's content.
  if (parts_.empty() && !table_.empty()) {
    std::u16string name;
    for (PartTable::Row const& row : table_.rows()) {
      if (row.type == PartTable::kNone) continue;
      std::string_view const item = archive_->name(row.entry);
      name.assign(1, u'/');
      bool const ascii = std::all_of(item.begin(), item.end(),
                                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
      if (ascii) {
        name.append(item.begin(), item.end());
      } else {
        name += opc::detail::toStringFromUTF8String(std::string(item), true);
      }
      visit(name, archive_->uncompressedSize(row.entry), table_.types()[row.type]);
    }
    return;
  }
  for (std::shared_ptr<PartRecord> const& record : parts()) {
    visit(record->name.toString(), record->content->size(), *record->contentType);
  }
}

}  // namespace detail
}  // namespace model
}  // namespace opc
