// The names of the core properties part: its namespaces and the element of each property.
// Internal to libopcmodel.
#ifndef OPC_MODEL_CORE_PROPERTIES_CORE_PROPERTIES_SCHEMA_H_
#define OPC_MODEL_CORE_PROPERTIES_CORE_PROPERTIES_SCHEMA_H_

#include <cstddef>
#include <string>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>

#include <opc/model/core_properties.h>

namespace opc {
namespace model {
namespace detail {

extern char16_t const kCorePropertiesNamespace[];
extern char16_t const kDublinCoreNamespace[];
extern char16_t const kDublinCoreTermsNamespace[];
extern char16_t const kSchemaInstanceNamespace[];
extern char16_t const kMarkupCompatibilityNamespace[];
extern char16_t const kXmlNamespace[];
extern char16_t const kXmlnsNamespace[];

enum class PropertyKind { Text, Time, Keywords };

// One property: where it lives in the XML and how it is reached in CoreProperties.  Only
// the accessors of its kind are set.
struct PropertyInfo {
  char16_t const* namespaceURI;
  char16_t const* prefix;
  char16_t const* localName;
  PropertyKind kind;
  boost::optional<std::u16string> (CoreProperties::*getText)() const;
  void (CoreProperties::*setText)(std::u16string const&);
  boost::optional<boost::posix_time::ptime> (CoreProperties::*getTime)() const;
  void (CoreProperties::*setTime)(boost::posix_time::ptime);
  // dcterms:created and dcterms:modified carry xsi:type="dcterms:W3CDTF".
  bool typedAsW3cdtf;
};

// Every property, in the order the writer puts them (by local name).
extern PropertyInfo const kProperties[];
extern std::size_t const kPropertyCount;

// "prefix:local" for the namespaces of core properties and markup compatibility, "local"
// for no namespace, "{namespace}local" otherwise: how messages name an element.
std::u16string displayName(char16_t const* namespaceURI, char16_t const* localName);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_CORE_PROPERTIES_CORE_PROPERTIES_SCHEMA_H_
