#include "coreproperties/release_info_xml_handler.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include <foundation/release_info/release_info.h>
#include <opc/core/exception.h>
#include <opc/core/stream_helper.h>
#include <opc/model/xml/xml_exceptions.h>

namespace opc {
namespace vkservices {
namespace {

using foundation::release_info::ReleaseInfo;

// The whole part up to one byte more than ReleaseInfo reads: enough for it to refuse an
// oversized text, without holding a hostile part of any size in memory.
std::string readBounded(opc::InputStream& stream) {
  std::size_t const limit = ReleaseInfo::kMaxVersionInfoSize + 1;
  std::string text;
  std::vector<unsigned char> buffer(4096);
  stream.open();
  try {
    while (text.size() < limit && !stream.isDone()) {
      std::size_t const got =
          stream.read(buffer.data(), std::min(buffer.size(), limit - text.size()));
      text.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(got));
    }
  } catch (...) {
    stream.close();
    throw;
  }
  stream.close();
  return text;
}

}  // namespace

void ReleaseInfoXmlHandler::read(opc::InputStream& stream, CoreProperties& properties) {
  std::string const text = readBounded(stream);
  try {
    std::istringstream input(text);
    ReleaseInfo const release(input);
    std::string const version = release.getORVANEVersion();
    if (version.empty() || std::count(version.begin(), version.end(), '.') < 3) {
      throw opc::model::InvalidPartContent("ReleaseInfo is invalid");
    }
    properties.setORVANEReleaseInfo(release);
  } catch (opc::Exception const&) {
    throw;
  } catch (...) {
    // ReleaseInfo's own failures are of a library outside the opc family.
    throw opc::model::InvalidPartContent("Could not construct a ReleaseInfo from the given XML");
  }
}

void ReleaseInfoXmlHandler::write(CoreProperties const& properties, opc::OutputStream& stream) {
  std::istringstream input(properties.getORVANEReleaseInfo().getVersionInfo());
  opc::StreamHelper::copyStreamToStream(input, stream);
}

}  // namespace vkservices
}  // namespace opc
