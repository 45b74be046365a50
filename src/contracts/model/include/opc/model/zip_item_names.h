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
// - part name -> ZIP item name: drop the leading "/" and write the name in its URI form:
//   the UTF-8 bytes of every non-ASCII character percent-encoded (upper-case hex), ASCII
//   (percent-escapes included) as it is.  So "/docs/\u00e9 x.xml" is not a part name, but
//   "/docs/\u00e9%20x.xml" becomes "docs/%C3%A9%20x.xml".  Item names are then plain ASCII
//   and match, byte for byte, the percent-encoded relationship targets that point at them,
//   which is how other OPC readers look items up.
// - ZIP item name -> part name: the bytes must be well-formed UTF-8; "/" is put in front and
//   the result must be a valid part name.  Nothing is decoded, so raw UTF-8 item names that
//   other writers produce (with the ZIP "language encoding" flag) give part names in their
//   IRI form, and an item we wrote gives back the URI form of the name it was made from:
//   the same part name (names compare as their URI forms), and the same text whenever the
//   name was ASCII.
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
