// The extension part of the extended core properties through its handler: any well-formed
// document with the right document element, the UUID through setUUID.  Refusal is
// InvalidPartContent only; a UUID accepted has the 8-4-4-4-12 form, and a record accepted
// reads back the same once written.
//
// Input: the bytes of the part.
#include <opc/model/xml/xml_exceptions.h>

#include "core_properties_part.h"
#include "coreproperties/extension_xml_handler.h"

using opc::vkservices::CoreProperties;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static opc::vkservices::ExtensionXmlHandler handler;
  CoreProperties record;
  if (!opcvk_fuzz::readPart<opc::model::InvalidPartContent>(handler, data, size, record)) return 0;
  opcvk_fuzz::check(!record.getUUID() || CoreProperties::isValidUUID(*record.getUUID()),
                    "a UUID read has the required form", opcvk_fuzz::recordText(record));
  return 0;
}
