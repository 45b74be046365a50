// The cipher data part: parsing and validation against the cached grammar, the reader's own
// checks of each entry, and base64.  The reader may refuse a document only with an
// opc::Exception (the model's InvalidPartContent for the document and its entries, the
// model's own for a source that is no URI) or the crypto library's utils::Exception (a hash
// or IV that is not strict base64).  What it accepts is written again and reads back as the
// same entries in the same order.
//
// Input: the bytes of a cipher data document.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include <foundation/crypto/encoding.h>
#include <foundation/crypto/exceptions.h>
#include <opc/core/exception.h>
#include <opc/core/stream_adaptors.h>

#include "cipherdata/cipher_data_xml_handler.h"
#include "fuzz_support.h"

namespace {

using opc::vkservices::CipherDataXmlHandler;
using opc::vkservices::CipherEntry;
using opcvk_fuzz::check;

CipherDataXmlHandler& handler() {
  static CipherDataXmlHandler instance;
  return instance;
}

// Everything of the entries that the document says, as one comparable text.
std::string shapeOf(std::vector<CipherEntry> const& entries) {
  std::u16string shape;
  for (CipherEntry const& entry : entries) {
    auto const selector = entry.getRelationshipSelector();
    shape += selector.getSourceURI().toString() + u'|' +
             static_cast<char16_t>(u'0' + static_cast<int>(selector.getSelectorType())) + u'|' +
             selector.getSelectionCriteria() + u'|' +
             foundation::crypto::utils::base64Encode(entry.getHash()) + u'|' + entry.getSalt() +
             u'|' + foundation::crypto::utils::base64Encode(entry.getIV()) + u'\n';
  }
  return opcvk_fuzz::printable(shape);
}

// Reads `bytes`; false if the reader refused the document as it may.
bool read(std::vector<unsigned char> const& bytes, std::vector<CipherEntry>& entries,
          std::string const& shown) {
  return opcvk_fuzz::succeeds<opc::Exception>("read", shown, [&] {
    try {
      opc::ByteArrayInAdaptor source(bytes);
      handler().read(source, entries);
    } catch (foundation::crypto::utils::Exception const& e) {
      // A documented refusal too; turned into the other one so that one check covers both.
      throw opc::Exception(e.what(), {});
    }
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<unsigned char> const bytes(data, data + size);
  std::string const shown = opcvk_fuzz::printable(std::string(bytes.begin(), bytes.end()));

  std::vector<CipherEntry> entries;
  if (!read(bytes, entries, shown)) return 0;
  check(!entries.empty(), "an accepted document has an entry", shown);

  // What was read came through XML, so XML can carry it again.
  std::vector<unsigned char> written;
  opcvk_fuzz::mustNotThrow("writing what was read", shown, [&] {
    opc::ByteArrayOutAdaptor target(written);
    handler().write(entries, target);
  });

  std::string const shownWritten =
      shown + "\" written as \"" +
      opcvk_fuzz::printable(std::string(written.begin(), written.end()));
  std::vector<CipherEntry> again;
  check(read(written, again, shownWritten), "a written document reads back", shownWritten);
  check(shapeOf(again) == shapeOf(entries), "a written document reads back as the same entries",
        shownWritten + "\"\n*** read:  " + shapeOf(entries) + "\n*** again: " + shapeOf(again));
  return 0;
}
