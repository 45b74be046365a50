// The release-info part of the extended core properties through its handler, which hands the
// text to ReleaseInfo.  Refusal is an opc::Exception only (InvalidPartContent for the text,
// InvalidCorePropertyValue for a family of the wrong form); a release accepted is complete,
// with a version of at least three dots, and reads back the same once written.
//
// Input: the bytes of the part.
#include <algorithm>

#include <opc/core/exception.h>
#include <opc/model/xml/xerces_retainer.h>

#include "core_properties_part.h"
#include "coreproperties/release_info_xml_handler.h"

using opc::vkservices::CoreProperties;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  // The XML library stays initialised between inputs, as it does in a program that reads
  // more than one part: a release read alone would start and stop it every time.
  static opc::model::XercesRetainer const keepXmlLibrary;
  static opc::vkservices::ReleaseInfoXmlHandler handler;
  CoreProperties record;
  if (!opcvk_fuzz::readPart<opc::Exception>(handler, data, size, record)) return 0;
  std::string const shown = opcvk_fuzz::recordText(record);
  std::string const version = record.getORVANEReleaseInfo().getORVANEVersion();
  opcvk_fuzz::check(!record.getORVANEReleaseInfo().isLegacy(), "a release read is complete", shown);
  opcvk_fuzz::check(std::count(version.begin(), version.end(), '.') >= 3,
                    "a version read has three dots or more", shown);
  opcvk_fuzz::check(CoreProperties::isValidORVANEReleaseInfo(record.getORVANEReleaseInfo()),
                    "a release read has a family of the required form", shown);
  return 0;
}
