// ZIP item names as they come from an archive: which of them name parts, and the way back
// from a part name to an item name: its URI form, plain ASCII, naming the same part.
//
// Input: the raw bytes of an item name, as an archive's directory would give them.
#include <cstddef>
#include <cstdint>
#include <string>

#include <boost/optional.hpp>

#include <opc/model/exceptions.h>
#include <opc/model/part_name.h>
#include <opc/model/zip_item_names.h>

#include "fuzz_support.h"

namespace {

using opc::model::InvalidPartName;
using opc::model::PartName;
using opcvk_fuzz::check;
using opcvk_fuzz::printable;

std::u16string decodeWellFormed(std::string const& bytes) {
  std::u16string text;
  for (std::size_t i = 0; i < bytes.size();) {
    std::size_t const length = opcvk_fuzz::utf8SequenceLength(bytes, i);
    opcvk_fuzz::appendUTF16(text, opcvk_fuzz::decodeSequence(bytes, i, length));
    i += length;
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const item(reinterpret_cast<char const*>(data), size);
  std::string const shown = printable(item);

  boost::optional<PartName> name;
  bool const mapped = opcvk_fuzz::succeeds<InvalidPartName>("partNameFromZipItemName", shown, [&] {
    name.emplace(opc::model::partNameFromZipItemName(item));
  });
  bool const wellFormed = opcvk_fuzz::isWellFormedUTF8(item);
  if (!wellFormed) {
    check(!mapped, "an item name that is not UTF-8 names no part", shown);
    return 0;
  }
  std::u16string const expected = u"/" + decodeWellFormed(item);
  check(mapped == PartName::isValid(expected),
        "an item names a part exactly when \"/\" and its text make a valid part name", shown);
  if (!mapped) return 0;

  check(name->toString() == expected, "the part name is \"/\" and the decoded item name", shown);
  opcvk_fuzz::mustNotThrow("toZipItemName", shown, [&] {
    std::string const written = opc::model::toZipItemName(*name);
    bool ascii = true;
    for (char byte : written) ascii = ascii && static_cast<unsigned char>(byte) < 0x80;
    check(ascii, "a part's item name is plain ASCII", shown);
    bool itemIsAscii = true;
    for (char byte : item) itemIsAscii = itemIsAscii && static_cast<unsigned char>(byte) < 0x80;
    if (itemIsAscii)
      check(written == item, "an ASCII item name maps back to the same bytes", shown);
    check(opc::model::partNameFromZipItemName(written) == *name,
          "the item name written for a part names the same part", shown);
  });
  return 0;
}
