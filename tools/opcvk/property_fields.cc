#include "property_fields.h"

#include <algorithm>
#include <utility>

#include <opc/core/string_conversions.h>
#include <opc/core/time_conversions.h>

#include "paths.h"
#include "tool_error.h"

namespace opcvk {
namespace {

using opc::vkservices::CoreProperties;
using Text = boost::optional<std::u16string>;

// The standard properties without a forward in CoreProperties are read from the model's
// record; they are shown, never set.
opc::model::CoreProperties const& standard(CoreProperties const& properties) {
  return properties.opcProps();
}

Text timeText(boost::optional<boost::posix_time::ptime> const& time) {
  if (!time) return boost::none;
  return opc::convertTimeToString(*time);
}

Text keywordsText(boost::optional<CoreProperties::Keywords> const& keywords) {
  if (!keywords) return boost::none;
  std::u16string text;
  for (auto const& [keyword, language] : *keywords) {
    if (!text.empty()) text += u"; ";
    text += keyword;
    if (!language.empty()) text += u" (" + language + u")";
  }
  return text;
}

Text nonEmpty(std::u16string const& text) {
  if (text.empty()) return boost::none;
  return text;
}

struct Setter {
  char const* name;
  void (*apply)(CoreProperties&, std::u16string const&);
};

boost::posix_time::ptime timeOf(std::u16string const& value) {
  return opc::convertStringToTime(value);
}

Setter const kSetters[] = {
    {"content-type", [](CoreProperties& p, std::u16string const& v) { p.setContentType(v); }},
    {"friendly-name",
     [](CoreProperties& p, std::u16string const& v) { p.setContentTypeFriendlyName(v); }},
    {"release", [](CoreProperties& p, std::u16string const& v) { p.setORVANERelease(v); }},
    {"uuid", [](CoreProperties& p, std::u16string const& v) { p.setUUID(v); }},
    {"title", [](CoreProperties& p, std::u16string const& v) { p.setTitle(v); }},
    {"creator", [](CoreProperties& p, std::u16string const& v) { p.setCreatedBy(v); }},
    {"description", [](CoreProperties& p, std::u16string const& v) { p.setDescription(v); }},
    {"category", [](CoreProperties& p, std::u16string const& v) { p.setCategory(v); }},
    {"keywords",
     [](CoreProperties& p, std::u16string const& v) {
       p.setKeywords({{v, u""}});
     }},
    {"revision", [](CoreProperties& p, std::u16string const& v) { p.setRevision(v); }},
    {"version", [](CoreProperties& p, std::u16string const& v) { p.setVersion(v); }},
    {"last-modified-by",
     [](CoreProperties& p, std::u16string const& v) { p.setLastModifiedBy(v); }},
    {"created", [](CoreProperties& p, std::u16string const& v) { p.setCreatedTime(timeOf(v)); }},
    {"modified",
     [](CoreProperties& p, std::u16string const& v) { p.setLastModifiedTime(timeOf(v)); }},
};

Setter const* findSetter(std::string const& name) {
  for (Setter const& setter : kSetters) {
    if (name == setter.name) return &setter;
  }
  return nullptr;
}

// The five extended properties, always shown.
constexpr std::size_t kExtendedCount = 5;

}  // namespace

std::vector<std::pair<std::string, Text>> propertyFields(CoreProperties const& properties) {
  auto const release = properties.getORVANEReleaseInfo();
  Text const version =
      release.isLegacy() ? Text() : Text(opc::toString(release.getORVANEVersion(), true));
  opc::model::CoreProperties const& model = standard(properties);
  return {
      {"content-type", nonEmpty(properties.getContentType())},
      {"friendly-name", nonEmpty(properties.getContentTypeFriendlyName())},
      {"release", nonEmpty(properties.getORVANERelease())},
      {"release-version", version},
      {"uuid", properties.getUUID()},
      {"title", properties.getTitle()},
      {"subject", model.getSubject()},
      {"creator", properties.getCreatedBy()},
      {"description", properties.getDescription()},
      {"category", properties.getCategory()},
      {"keywords", keywordsText(properties.getKeywords())},
      {"content-status", model.getContentStatus()},
      {"identifier", model.getIdentifier()},
      {"language", model.getLanguage()},
      {"revision", properties.getRevision()},
      {"version", properties.getVersion()},
      {"last-modified-by", properties.getLastModifiedBy()},
      {"created", timeText(properties.getCreatedTime())},
      {"modified", timeText(properties.getLastModifiedTime())},
      {"last-printed", timeText(model.getLastPrinted())},
  };
}

std::vector<std::string> propertyLines(CoreProperties const& properties) {
  std::vector<std::string> lines;
  std::size_t index = 0;
  for (auto const& [name, value] : propertyFields(properties)) {
    if (value || index < kExtendedCount) {
      lines.push_back(name + ": " + (value ? displayText(*value) : std::string()));
    }
    ++index;
  }
  return lines;
}

nlohmann::ordered_json propertyJson(CoreProperties const& properties) {
  nlohmann::ordered_json object = nlohmann::ordered_json::object();
  for (auto const& [name, value] : propertyFields(properties)) {
    object[name] = value ? nlohmann::ordered_json(utf8Text(*value)) : nlohmann::ordered_json();
  }
  return object;
}

std::vector<std::string> const& settablePropertyNames() {
  static std::vector<std::string> const names = [] {
    std::vector<std::string> result;
    for (Setter const& setter : kSetters) result.emplace_back(setter.name);
    return result;
  }();
  return names;
}

std::string checkPropertyAssignment(std::string const& assignment) {
  std::size_t const equals = assignment.find('=');
  if (equals == std::string::npos) return "expected NAME=VALUE, got: " + assignment;
  if (findSetter(assignment.substr(0, equals)) != nullptr) return std::string();
  std::string known;
  for (std::string const& name : settablePropertyNames()) {
    known += (known.empty() ? "" : ", ") + name;
  }
  return "unknown property \"" + assignment.substr(0, equals) + "\" (one of: " + known + ")";
}

void applyPropertyAssignment(CoreProperties& properties, std::string const& assignment) {
  std::string const problem = checkPropertyAssignment(assignment);
  if (!problem.empty()) throw ToolError(problem);
  std::size_t const equals = assignment.find('=');
  Setter const* setter = findSetter(assignment.substr(0, equals));
  if (setter != nullptr) setter->apply(properties, fromArgument(assignment.substr(equals + 1)));
}

}  // namespace opcvk
