// The mapping between part names and the names of the items of the ZIP archive that holds
// a package.
#ifndef OPC_MODEL_ZIP_ITEM_NAMES_H_
#define OPC_MODEL_ZIP_ITEM_NAMES_H_

#include <string>

#include <opc/model/export.h>
#include <opc/model/part_name.h>

namespace opc {
namespace model {

// The rule, both ways:
// - part name -> ZIP item name: drop the leading "/" and write the rest in UTF-8.  Non-ASCII
//   characters become their UTF-8 bytes; percent-escapes stay as they are, three ASCII
//   characters.  So "/docs/é%20x.xml" becomes the bytes "docs/\xC3\xA9%20x.xml".
// - ZIP item name -> part name: the bytes must be well-formed UTF-8; "/" is put in front
//   and the result must be a valid part name.  Nothing is decoded or re-encoded, so an
//   item name made from a part name maps back to the same text.
// An item name with non-ASCII bytes must be stored with the ZIP "language encoding" flag
// (general purpose bit 11) set, which says that it is UTF-8; that is the ZIP layer's task.
// Since part names are compared without regard to ASCII case while item names are not,
// two items whose names map to equivalent part names cannot both be parts of one package.

// Never throws for a valid PartName.
OPC_MODEL_EXPORT std::string toZipItemName(PartName const& name);

// Throws InvalidPartName if the item name is not well-formed UTF-8 or does not map to a
// valid part name.  Items that are not parts, such as "[Content_Types].xml" or folder
// entries ("a/"), are refused this way; the caller decides what to do with them.
OPC_MODEL_EXPORT PartName partNameFromZipItemName(std::string const& itemName);

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ITEM_NAMES_H_
