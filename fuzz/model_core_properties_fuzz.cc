// The standard core properties part as the package model reads it: any bytes are refused with
// InvalidPartContent or read, and what is read is written without failure and reads back as
// the same record.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <opc/core/stream_adaptors.h>
#include <opc/model/core_properties.h>
#include <opc/model/xml/xerces_retainer.h>
#include <opc/model/xml/xml_exceptions.h>

#include "fuzz_support.h"

using opc::model::CoreProperties;
using opc::model::CorePropertiesXml;
using opc::model::InvalidPartContent;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  // The XML library stays initialised between inputs, as it does in the tool.
  static opc::model::XercesRetainer const keepXmlLibrary;
  std::vector<unsigned char> const bytes(data, data + size);
  std::string const shown = opcvk_fuzz::printable(std::string(bytes.begin(), bytes.end()));
  CoreProperties record;
  if (!opcvk_fuzz::succeeds<InvalidPartContent>("CorePropertiesXml::read", shown, [&] {
        opc::ByteArrayInAdaptor in(bytes);
        record = CorePropertiesXml::read(in);
      })) {
    return 0;
  }
  std::vector<unsigned char> written;
  opcvk_fuzz::mustNotThrow("CorePropertiesXml::write of a record read", shown, [&] {
    opc::ByteArrayOutAdaptor out(written);
    CorePropertiesXml::write(record, out);
  });
  std::string const shownWritten =
      opcvk_fuzz::printable(std::string(written.begin(), written.end()));
  opcvk_fuzz::mustNotThrow("CorePropertiesXml::read of a record written", shownWritten, [&] {
    opc::ByteArrayInAdaptor in(written);
    opcvk_fuzz::check(CorePropertiesXml::read(in) == record, "a written record reads back equal",
                      shown + "\n*** written: " + shownWritten);
  });
  return 0;
}
