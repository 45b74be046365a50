// The table of core properties, shared by the reader and the writer so that they cannot
// disagree on a name.
#include "core_properties_schema.h"

namespace opc {
namespace model {
namespace detail {

char16_t const kCorePropertiesNamespace[] =
    u"http://schemas.openxmlformats.org/package/2006/metadata/core-properties";
char16_t const kDublinCoreNamespace[] = u"http://purl.org/dc/elements/1.1/";
char16_t const kDublinCoreTermsNamespace[] = u"http://purl.org/dc/terms/";
char16_t const kSchemaInstanceNamespace[] = u"http://www.w3.org/2001/XMLSchema-instance";
char16_t const kMarkupCompatibilityNamespace[] =
    u"http://schemas.openxmlformats.org/markup-compatibility/2006";
char16_t const kXmlNamespace[] = u"http://www.w3.org/XML/1998/namespace";
char16_t const kXmlnsNamespace[] = u"http://www.w3.org/2000/xmlns/";

namespace {

using CP = CoreProperties;

PropertyInfo textProperty(char16_t const* ns, char16_t const* prefix, char16_t const* name,
                          boost::optional<std::u16string> (CP::*get)() const,
                          void (CP::*set)(std::u16string const&)) {
  return PropertyInfo{ns, prefix, name, PropertyKind::Text, get, set, nullptr, nullptr, false};
}

PropertyInfo timeProperty(char16_t const* ns, char16_t const* prefix, char16_t const* name,
                          boost::optional<boost::posix_time::ptime> (CP::*get)() const,
                          void (CP::*set)(boost::posix_time::ptime), bool typed) {
  return PropertyInfo{ns, prefix, name, PropertyKind::Time, nullptr, nullptr, get, set, typed};
}

}  // namespace

PropertyInfo const kProperties[] = {
    textProperty(kCorePropertiesNamespace, u"cp", u"category", &CP::getCategory, &CP::setCategory),
    textProperty(kCorePropertiesNamespace, u"cp", u"contentStatus", &CP::getContentStatus,
                 &CP::setContentStatus),
    textProperty(kCorePropertiesNamespace, u"cp", u"contentType", &CP::getContentType,
                 &CP::setContentType),
    timeProperty(kDublinCoreTermsNamespace, u"dcterms", u"created", &CP::getCreated,
                 &CP::setCreated, true),
    textProperty(kDublinCoreNamespace, u"dc", u"creator", &CP::getCreator, &CP::setCreator),
    textProperty(kDublinCoreNamespace, u"dc", u"description", &CP::getDescription,
                 &CP::setDescription),
    textProperty(kDublinCoreNamespace, u"dc", u"identifier", &CP::getIdentifier,
                 &CP::setIdentifier),
    PropertyInfo{kCorePropertiesNamespace, u"cp", u"keywords", PropertyKind::Keywords, nullptr,
                 nullptr, nullptr, nullptr, false},
    textProperty(kDublinCoreNamespace, u"dc", u"language", &CP::getLanguage, &CP::setLanguage),
    textProperty(kCorePropertiesNamespace, u"cp", u"lastModifiedBy", &CP::getLastModifiedBy,
                 &CP::setLastModifiedBy),
    timeProperty(kCorePropertiesNamespace, u"cp", u"lastPrinted", &CP::getLastPrinted,
                 &CP::setLastPrinted, false),
    timeProperty(kDublinCoreTermsNamespace, u"dcterms", u"modified", &CP::getModified,
                 &CP::setModified, true),
    textProperty(kCorePropertiesNamespace, u"cp", u"revision", &CP::getRevision, &CP::setRevision),
    textProperty(kDublinCoreNamespace, u"dc", u"subject", &CP::getSubject, &CP::setSubject),
    textProperty(kDublinCoreNamespace, u"dc", u"title", &CP::getTitle, &CP::setTitle),
    textProperty(kCorePropertiesNamespace, u"cp", u"version", &CP::getVersion, &CP::setVersion),
};

std::size_t const kPropertyCount = sizeof(kProperties) / sizeof(kProperties[0]);

std::u16string displayName(char16_t const* namespaceURI, char16_t const* localName) {
  std::u16string const ns = namespaceURI == nullptr ? u"" : namespaceURI;
  std::u16string const local = localName == nullptr ? u"" : localName;
  if (ns.empty()) return local;
  if (ns == kCorePropertiesNamespace) return u"cp:" + local;
  if (ns == kDublinCoreNamespace) return u"dc:" + local;
  if (ns == kDublinCoreTermsNamespace) return u"dcterms:" + local;
  if (ns == kSchemaInstanceNamespace) return u"xsi:" + local;
  if (ns == kMarkupCompatibilityNamespace) return u"mc:" + local;
  if (ns == kXmlNamespace) return u"xml:" + local;
  return u"{" + ns + u"}" + local;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
