// coreprops_peer: a package's core properties written and read through CorePropertiesManager,
// so that an independent OPC implementation can check the standard part that it writes.
//
//   coreprops_peer make PACKAGE   creates PACKAGE with the extended properties and every
//                                 standard property that CoreProperties forwards, saves it
//                                 (the manager adds the UUID and the created time), and prints
//                                 the record as read back from the saved package
//   coreprops_peer read PACKAGE   opens PACKAGE for Read and prints its record
//
// Both print {"contentType", "friendlyName", "release", "uuid", "title", "creator",
// "description", "category", "keywords", "revision", "version", "lastModifiedBy", "created",
// "modified"}: texts in UTF-8, keywords as the text of a single keyword, times as
// "YYYY-MM-DDThh:mm:ssZ" (whole seconds, as the other side reads them), absent values as
// null.  Exit code 0 on success, 1 with the message on standard error.
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <nlohmann/json.hpp>

#include <opc/core/string_conversions.h>
#include <opc/model/package.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/core_properties_manager.h>

namespace {

using nlohmann::json;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::CoreProperties;
using opc::vkservices::CorePropertiesManager;

json text(boost::optional<std::u16string> const& value) {
  return value ? json(opc::detail::toUTF8String(*value)) : json();
}

json time(boost::optional<boost::posix_time::ptime> const& value) {
  if (!value) return json();
  std::string const iso = boost::posix_time::to_iso_extended_string(*value);
  return iso.substr(0, 19) + "Z";
}

json dump(CoreProperties const& properties) {
  json keywords;
  if (properties.getKeywords() && properties.getKeywords()->size() == 1) {
    keywords = opc::detail::toUTF8String(properties.getKeywords()->front().first);
  }
  return {{"contentType", opc::detail::toUTF8String(properties.getContentType())},
          {"friendlyName", opc::detail::toUTF8String(properties.getContentTypeFriendlyName())},
          {"release", opc::detail::toUTF8String(properties.getORVANERelease())},
          {"uuid", text(properties.getUUID())},
          {"title", text(properties.getTitle())},
          {"creator", text(properties.getCreatedBy())},
          {"description", text(properties.getDescription())},
          {"category", text(properties.getCategory())},
          {"keywords", keywords},
          {"revision", text(properties.getRevision())},
          {"version", text(properties.getVersion())},
          {"lastModifiedBy", text(properties.getLastModifiedBy())},
          {"created", time(properties.getCreatedTime())},
          {"modified", time(properties.getLastModifiedTime())}};
}

CoreProperties read(std::string const& path) {
  auto package = Package::open(opc::detail::toStringFromUTF8String(path), PackageAccess::Read);
  CorePropertiesManager manager(*package, CorePropertiesManager::NotDeterministic);
  return manager.getCoreProperties();
}

void make(std::string const& path) {
  {
    auto package = Package::open(opc::detail::toStringFromUTF8String(path), PackageAccess::Create);
    CorePropertiesManager manager(*package, CorePropertiesManager::NotDeterministic);
    CoreProperties properties(u"application/vnd.veltrance.interop.test", u"Interop test",
                              CoreProperties::getCurrentORVANERelease());
    properties.setTitle(u"Ti\u00E9tle \u6F22\u5B57 & <x>");
    properties.setCreatedBy(u"J\u00FCrgen");
    properties.setDescription(u"Two\nlines");
    properties.setCategory(u"tests");
    properties.setKeywords({{u"alpha, beta", u""}});
    properties.setRevision(u"7");
    properties.setVersion(u"1.2");
    properties.setLastModifiedBy(u"someone else");
    properties.setLastModifiedTime(boost::posix_time::ptime(
        boost::gregorian::date(2024, 5, 17), boost::posix_time::time_duration(10, 20, 30)));
    manager.setCoreProperties(properties);
    package->save();
  }
  std::cout << dump(read(path)).dump(2) << "\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: coreprops_peer make|read PACKAGE\n";
    return 2;
  }
  try {
    std::string const command = argv[1];
    if (command == "make") {
      make(argv[2]);
    } else if (command == "read") {
      std::cout << dump(read(argv[2])).dump(2) << "\n";
    } else {
      std::cerr << "unknown command: " << command << "\n";
      return 2;
    }
  } catch (std::exception const& e) {
    std::cerr << e.what() << "\n";
    return 1;
  }
  return 0;
}
