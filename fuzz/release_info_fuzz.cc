// ReleaseInfo's reader of its own XML text.  Refusal is InvalidReleaseInfo only; a record
// accepted writes a text that reads back to an equal record.
//
// Input: the bytes of the text.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include <foundation/release_info/invalid_release_info.h>
#include <foundation/release_info/release_info.h>
#include <opc/model/xml/xerces_retainer.h>

#include "fuzz_support.h"

using foundation::release_info::InvalidReleaseInfo;
using foundation::release_info::ReleaseInfo;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  // The XML library stays initialised between inputs, as it does in a program that reads
  // more than one record: a record read alone would start and stop it every time.
  static opc::model::XercesRetainer const keepXmlLibrary;
  std::string const text(reinterpret_cast<char const*>(data), size);
  std::string const shown = opcvk_fuzz::printable(text);
  ReleaseInfo record("");
  if (!opcvk_fuzz::succeeds<InvalidReleaseInfo>("ReleaseInfo(std::istream&)", shown, [&] {
        std::istringstream in(text);
        record = ReleaseInfo(in);
      })) {
    return 0;
  }
  opcvk_fuzz::check(record.isLegacy() == record.getORVANEVersion().empty(),
                    "a record is legacy exactly when it has no version", shown);
  std::string written;
  opcvk_fuzz::mustNotThrow("getVersionInfo of an accepted record", shown,
                           [&] { written = record.getVersionInfo(); });
  opcvk_fuzz::mustNotThrow("reading a written record", opcvk_fuzz::printable(written), [&] {
    std::istringstream in(written);
    opcvk_fuzz::check(ReleaseInfo(in) == record, "a written record reads back equal",
                      opcvk_fuzz::printable(written));
  });
  return 0;
}
