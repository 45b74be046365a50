// URI references: syntax checks, percent-encoding, and resolution of a reference against a
// base, including a part name as base, as relationship targets are resolved.
//
// Input: the base, a line feed, then the reference, both as UTF-8 (see textFromBytes).
#include <cstddef>
#include <cstdint>
#include <string>

#include <opc/model/exceptions.h>
#include <opc/model/part_name.h>
#include <opc/model/uri.h>

#include "fuzz_support.h"

namespace {

using opc::model::InvalidPartName;
using opc::model::InvalidURI;
using opc::model::PartName;
using opc::model::URI;
using opcvk_fuzz::check;
using opcvk_fuzz::printable;

bool isUnreserved(char16_t c) {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
         c == u'-' || c == u'.' || c == u'_' || c == u'~';
}

int upperHexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// Decodes the result of encodeComponent, checking its shape on the way: only unreserved
// characters, characters of `keep`, and escapes with upper-case digits.
std::string decodeEncoded(std::u16string const& encoded, std::string const& keep,
                          std::string const& shown) {
  std::string bytes;
  for (std::size_t i = 0; i < encoded.size(); ++i) {
    char16_t const c = encoded[i];
    if (c == u'%' && keep.find('%') == std::string::npos) {
      int const high = i + 1 < encoded.size() ? upperHexValue(encoded[i + 1]) : -1;
      int const low = i + 2 < encoded.size() ? upperHexValue(encoded[i + 2]) : -1;
      check(high >= 0 && low >= 0, "an escape has two upper-case hexadecimal digits", shown);
      bytes += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      check(c < 0x80 && (isUnreserved(c) || keep.find(static_cast<char>(c)) != std::string::npos),
            "encodeComponent leaves only unreserved and kept characters", shown);
      bytes += static_cast<char>(c);
    }
  }
  return bytes;
}

struct Pieces {
  bool hasScheme = false;
  bool hasAuthority = false;
  std::u16string path;
};

// A reference cut as RFC 3986 appendix B does it, written apart from the library's own.
Pieces cut(std::u16string const& text) {
  Pieces pieces;
  std::size_t const end = text.find_first_of(u"/?#");
  std::size_t const colon = text.find(u':');
  std::size_t position = 0;
  if (colon != std::u16string::npos && colon > 0 && (end == std::u16string::npos || colon < end)) {
    pieces.hasScheme = true;
    position = colon + 1;
  }
  if (text.compare(position, 2, u"//") == 0) {
    pieces.hasAuthority = true;
    std::size_t const authorityEnd = text.find_first_of(u"/?#", position + 2);
    position = authorityEnd == std::u16string::npos ? text.size() : authorityEnd;
  }
  std::size_t const pathEnd = text.find_first_of(u"?#", position);
  pieces.path = text.substr(
      position, pathEnd == std::u16string::npos ? std::u16string::npos : pathEnd - position);
  return pieces;
}

bool hasDotSegment(std::u16string const& path) {
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t const slash = path.find(u'/', start);
    std::size_t const end = slash == std::u16string::npos ? path.size() : slash;
    std::u16string const segment = path.substr(start, end - start);
    if (segment == u"." || segment == u"..") return true;
    if (slash == std::u16string::npos) break;
    start = slash + 1;
  }
  return false;
}

void checkOne(std::u16string const& text) {
  std::string const shown = printable(text);
  URI const uri(text);
  check(uri.toString() == text, "a URI keeps its text", shown);
  bool const valid =
      opcvk_fuzz::succeeds<InvalidURI>("ensureValid", shown, [&] { uri.ensureValid(); });
  check(valid == uri.isValid(), "isValid agrees with ensureValid", shown);
  // Without the grammar a ":" may sit anywhere; in a valid reference it ends the scheme when
  // it comes before any "/", "?" or "#".
  if (valid) check(uri.isAbsolute() == cut(text).hasScheme, "isAbsolute means a scheme", shown);

  // Encoding gives valid references that decode to the UTF-8 of the text.
  for (std::string const& keep : {std::string(), std::string("/"), std::string("/:@!$&'()*+,;=")}) {
    std::u16string const encoded = URI::encodeComponent(text, keep);
    std::string const bytes = decodeEncoded(encoded, keep, shown);
    check(bytes == opcvk_fuzz::utf8FromText(text), "encodeComponent decodes to the text", shown);
    if (keep.size() <= 1) {
      check(URI(encoded).isValid(), "an encoded component is a valid reference",
            printable(encoded));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const input(reinterpret_cast<char const*>(data), size);
  auto const [baseBytes, referenceBytes] = opcvk_fuzz::splitAt(input, '\n');
  std::u16string const baseText = opcvk_fuzz::textFromBytes(baseBytes);
  std::u16string const referenceText = opcvk_fuzz::textFromBytes(referenceBytes);
  checkOne(baseText);
  checkOne(referenceText);

  URI const base(baseText);
  URI const reference(referenceText);
  std::string const shown = printable(baseText) + "\" against \"" + printable(referenceText);
  URI result(u"");
  bool const resolved =
      opcvk_fuzz::succeeds<InvalidURI>("resolve", shown, [&] { result = base.resolve(reference); });
  bool const resolvable = base.isValid() && reference.isValid() &&
                          (base.isAbsolute() || (!baseText.empty() && baseText[0] == u'/'));
  check(resolved == resolvable, "resolve fails exactly for invalid or relative bases", shown);
  if (!resolved) return 0;

  std::u16string const target = result.toString();
  std::string const shownTarget = shown + "\" gives \"" + printable(target);
  Pieces const pieces = cut(target);
  check(result.isValid(), "resolution gives a valid reference", shownTarget);
  Pieces const referencePieces = cut(referenceText);
  bool const samePath =
      !referencePieces.hasScheme && !referencePieces.hasAuthority && referencePieces.path.empty();
  if (samePath) {
    // A reference without a path keeps the base's path as it stands (RFC 3986 5.2.2).
    check(pieces.path == cut(baseText).path, "an empty path keeps the base path", shownTarget);
  } else {
    check(!hasDotSegment(pieces.path), "resolution removes dot segments", shownTarget);
  }
  if (!base.isAbsolute() && !reference.isAbsolute()) {
    check(!result.isAbsolute(), "without a scheme the result has none", shownTarget);
    check(!target.empty() && target[0] == u'/', "the result of a path base is a path", shownTarget);
  }
  if (reference.isAbsolute()) {
    check(result.isAbsolute(), "an absolute reference stays absolute", shownTarget);
  }
  // The result resolves to itself, unless its path begins with "//" without an authority,
  // which no text can write unambiguously.
  if (pieces.hasAuthority == (referencePieces.hasAuthority || cut(baseText).hasAuthority) &&
      !hasDotSegment(pieces.path) &&
      !(!pieces.hasAuthority && pieces.path.compare(0, 2, u"//") == 0)) {
    opcvk_fuzz::mustNotThrow("resolve of a result", shownTarget, [&] {
      check(base.resolve(result) == result, "a resolved reference resolves to itself", shownTarget);
    });
  }

  // A relative target against a part name: a part name, or InvalidPartName.
  if (PartName::isValid(baseText) && !reference.isAbsolute()) {
    opcvk_fuzz::succeeds<InvalidPartName>("PartName of a resolved target", shownTarget, [&] {
      PartName const name(result);
      check(PartName::isValid(name.toString()), "a part name made from a URI is valid",
            shownTarget);
    });
  }
  return 0;
}
