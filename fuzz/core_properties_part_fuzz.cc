// The core part of the extended core properties through its handler: validated against the
// compiled schema, values through the record's setters.  Refusal is InvalidPartContent only;
// what is accepted holds values of the right forms and reads back the same once written.
//
// Input: the bytes of the part.
#include <opc/model/xml/xml_exceptions.h>

#include "core_properties_part.h"
#include "coreproperties/core_properties_xml_handler.h"

using opc::vkservices::CoreProperties;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static opc::vkservices::CorePropertiesXmlHandler handler;
  CoreProperties record;
  if (!opcvk_fuzz::readPart<opc::model::InvalidPartContent>(handler, data, size, record)) return 0;
  std::string const shown = opcvk_fuzz::recordText(record);
  opcvk_fuzz::check(record.getContentType().empty() ||
                        CoreProperties::isValidContentType(record.getContentType()),
                    "a content type read has the required form", shown);
  opcvk_fuzz::check(
      record.getContentTypeFriendlyName().empty() ||
          CoreProperties::isValidContentTypeFriendlyName(record.getContentTypeFriendlyName()),
      "a friendly name read has no white space at its ends", shown);
  opcvk_fuzz::check(record.getORVANERelease().empty() ||
                        CoreProperties::isValidORVANERelease(record.getORVANERelease()),
                    "a release read has the required form", shown);
  return 0;
}
