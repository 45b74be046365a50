// Content types: parsing, the canonical text and its round trip, parameter access, and
// adding and removing parameters.
//
// Input: the content type as UTF-8 (see textFromBytes); after a line feed, optionally a
// parameter name, "=", and a value to add to it.
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <opc/model/content_type.h>
#include <opc/model/exceptions.h>

#include "fuzz_support.h"

namespace {

using opc::model::ContentType;
using opc::model::InvalidContentType;
using opcvk_fuzz::check;
using opcvk_fuzz::printable;

bool equalNoCase(std::u16string const& a, std::u16string const& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    auto lower = [](char16_t c) {
      return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c;
    };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

// The text a content type writes must parse back to an equal one and be its own canonical
// form.
void checkRoundTrip(ContentType const& type, std::string const& shown) {
  std::u16string const text = type.toString();
  std::string const shownText = shown + "\" written as \"" + printable(text);
  opcvk_fuzz::mustNotThrow("ContentType(toString())", shownText, [&] {
    ContentType const again(text);
    check(again == type && !(again != type), "toString parses back equal", shownText);
    check(again.toString() == text, "toString is canonical", shownText);
    check(again.getParameters() == type.getParameters(), "parameters survive in order", shownText);
  });
}

void checkParameters(ContentType const& type, std::string const& shown) {
  check(!type.getType().empty() && !type.getSubType().empty(), "type and subtype are not empty",
        shown);
  auto const parameters = type.getParameters();
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    check(type.hasParameter(parameters[i].first), "every listed parameter is there", shown);
    for (std::size_t k = 0; k < i; ++k) {
      check(!equalNoCase(parameters[i].first, parameters[k].first), "a parameter name appears once",
            shown);
    }
    // Only the first of equal names could be found, and there is one: its value.
    check(type.getParameterValue(parameters[i].first) == parameters[i].second,
          "getParameterValue gives the listed value", shown);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const input(reinterpret_cast<char const*>(data), size);
  auto const [typeBytes, parameterBytes] = opcvk_fuzz::splitAt(input, '\n');
  std::u16string const text = opcvk_fuzz::textFromBytes(typeBytes);
  std::string const shown = printable(text);

  ContentType type(u"a/b");
  if (!opcvk_fuzz::succeeds<InvalidContentType>("ContentType", shown,
                                                [&] { type = ContentType(text); })) {
    return 0;
  }
  ContentType const copy(type);
  check(copy == type, "a copy is equal", shown);
  checkParameters(type, shown);
  checkRoundTrip(type, shown);

  if (parameterBytes.empty()) return 0;
  auto const [nameBytes, valueBytes] = opcvk_fuzz::splitAt(parameterBytes, '=');
  std::u16string const name = opcvk_fuzz::textFromBytes(nameBytes);
  std::u16string const value = opcvk_fuzz::textFromBytes(valueBytes);
  std::string const shownAdd =
      shown + "\" adding \"" + printable(name) + "\"=\"" + printable(value);
  std::u16string const before = type.toString();
  std::size_t const countBefore = type.getParameters().size();
  bool const hadIt = type.hasParameter(name);
  if (opcvk_fuzz::succeeds<InvalidContentType>("addParameter", shownAdd,
                                               [&] { type.addParameter(name, value); })) {
    check(type.hasParameter(name) && type.getParameterValue(name) == value,
          "an added parameter is there with its value", shownAdd);
    check(type.getParameters().size() == countBefore + (hadIt ? 0 : 1),
          "adding replaces or appends one parameter", shownAdd);
    checkParameters(type, shownAdd);
    checkRoundTrip(type, shownAdd);
    type.removeParameter(name);
    check(!type.hasParameter(name), "a removed parameter is gone", shownAdd);
    check(type.getParameters().size() == countBefore - (hadIt ? 1 : 0),
          "removing takes one parameter away", shownAdd);
    checkRoundTrip(type, shownAdd);
  } else {
    check(type.toString() == before && type == copy, "a refused parameter changes nothing",
          shownAdd);
  }
  return 0;
}
