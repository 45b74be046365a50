// What the fuzz targets of the three core properties parts share: the part's bytes given to a
// handler's reader, which may refuse them only with the model's InvalidPartContent (or, where
// the target allows it, another opc::Exception); a record it accepts is written and read again
// by the same handler to the same values.
#ifndef FUZZ_CORE_PROPERTIES_PART_H_
#define FUZZ_CORE_PROPERTIES_PART_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <opc/core/stream_adaptors.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/core_properties.h>

#include "fuzz_support.h"

namespace opcvk_fuzz {

// The values that a part's handler reads and writes, as one text to compare.
inline std::string recordText(opc::vkservices::CoreProperties const& record) {
  return utf8FromText(record.getContentType()) + "|" +
         utf8FromText(record.getContentTypeFriendlyName()) + "|" +
         record.getORVANEReleaseInfo().getVersionInfo() + "|" +
         (record.getUUID() ? utf8FromText(*record.getUUID()) : std::string("(none)"));
}

// Reads `data` with `handler` into a new record; returns false if the reader refused it with
// `Allowed`, and checks that a record it accepted survives writing and reading again.
template <class Allowed, class Handler>
bool readPart(Handler& handler, std::uint8_t const* data, std::size_t size,
              opc::vkservices::CoreProperties& record) {
  std::vector<unsigned char> const bytes(data, data + size);
  std::string const shown = printable(std::string(bytes.begin(), bytes.end()));
  bool const accepted = succeeds<Allowed>("read", shown, [&] {
    opc::ByteArrayInAdaptor in(bytes);
    handler.read(in, record);
  });
  if (!accepted) return false;
  std::vector<unsigned char> written;
  mustNotThrow("write of an accepted record", shown, [&] {
    opc::ByteArrayOutAdaptor out(written);
    handler.write(record, out);
  });
  opc::vkservices::CoreProperties again;
  std::string const shownWritten =
      shown + "\" written as \"" + printable(std::string(written.begin(), written.end()));
  mustNotThrow("read of a written record", shownWritten, [&] {
    opc::ByteArrayInAdaptor in(written);
    handler.read(in, again);
  });
  check(recordText(again) == recordText(record), "a written record reads back the same",
        shownWritten);
  return true;
}

}  // namespace opcvk_fuzz

#endif  // FUZZ_CORE_PROPERTIES_PART_H_
