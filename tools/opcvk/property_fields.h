// The extended and standard core properties as the tool shows and sets them: one name per
// property, the same in text output, in JSON and in NAME=VALUE assignments.
#ifndef TOOLS_OPCVK_PROPERTY_FIELDS_H_
#define TOOLS_OPCVK_PROPERTY_FIELDS_H_

#include <string>
#include <utility>
#include <vector>

#include <boost/optional.hpp>
#include <nlohmann/json.hpp>

#include <opc/vkservices/core_properties.h>

namespace opcvk {

// Every property in the order shown, with its value as text (UTF-16), or nothing when it is
// absent.  Times are xsd:dateTime in UTC; keywords are "keyword" or "keyword (language)"
// joined with "; ".  The extended ones come first: content-type, friendly-name, release,
// release-version, uuid; then title, subject, creator, description, category, keywords,
// content-status, identifier, language, revision, version, last-modified-by, created,
// modified, last-printed.
std::vector<std::pair<std::string, boost::optional<std::u16string>>> propertyFields(
    opc::vkservices::CoreProperties const& properties);

// The fields as "name: value" lines in the locale's encoding: the extended ones always (empty
// when absent), the standard ones when present.
std::vector<std::string> propertyLines(opc::vkservices::CoreProperties const& properties);

// The fields as one JSON object, in order, UTF-8, absent ones as null.
nlohmann::ordered_json propertyJson(opc::vkservices::CoreProperties const& properties);

// The names that NAME=VALUE may give: content-type, friendly-name, release, uuid, title,
// creator, description, category, keywords (one keyword without language), revision,
// version, last-modified-by, created, modified.
std::vector<std::string> const& settablePropertyNames();

// Checks the form of an assignment on the command line: "" if it is NAME=VALUE with a
// settable name, else what is wrong.
std::string checkPropertyAssignment(std::string const& assignment);

// Applies NAME=VALUE (VALUE in the locale's encoding) through the record's setter, which
// validates it: InvalidCorePropertyValue passes with the library's message.  A time that is
// not xsd:dateTime reaches the setter as not_a_date_time, whose message says the value is
// not valid.  An assignment that checkPropertyAssignment refuses raises ToolError with its
// words.
void applyPropertyAssignment(opc::vkservices::CoreProperties& properties,
                             std::string const& assignment);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_PROPERTY_FIELDS_H_
