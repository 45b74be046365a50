#include "uri_parts.h"

#include "text_chars.h"

namespace opc {
namespace model {
namespace detail {
namespace {

bool isValidScheme(std::u16string const& text) {
  if (text.empty() || !isAsciiAlpha(text[0])) return false;
  for (char16_t c : text) {
    if (!isAsciiAlpha(c) && !isAsciiDigit(c) && c != u'+' && c != u'-' && c != u'.') return false;
  }
  return true;
}

// RFC 3987 "iprivate": private-use characters, which an IRI allows in its query only.
bool isPrivateUse(char32_t c) {
  return (c >= 0xE000 && c <= 0xF8FF) || (c >= 0xF0000 && c <= 0xFFFFD) ||
         (c >= 0x100000 && c <= 0x10FFFD);
}

enum class Component { kAuthority, kPath, kQuery, kFragment };

bool isAllowedIn(Component component, char32_t c) {
  if (isUnreserved(c) || isSubDelim(c) || isUcsChar(c) || c == ':' || c == '@') return true;
  switch (component) {
    case Component::kAuthority:
      return c == '[' || c == ']';
    case Component::kPath:
      return c == '/';
    case Component::kQuery:
      return c == '/' || c == '?' || isPrivateUse(c);
    case Component::kFragment:
      return c == '/' || c == '?';
  }
  return false;
}

std::optional<std::string> findComponentError(Component component, std::u16string const& text) {
  std::size_t i = 0;
  while (i < text.size()) {
    if (text[i] == u'%') {
      if (i + 2 >= text.size() || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2])) {
        return std::string("\"%\" must be followed by two hexadecimal digits");
      }
      i += 3;
      continue;
    }
    char32_t const c = nextCodePoint(text, i);
    if (!isAllowedIn(component, c)) {
      return "character " + describeCharacter(c) + " is not allowed";
    }
  }
  return std::nullopt;
}

}  // namespace

UriParts splitUri(std::u16string const& text) {
  UriParts parts;
  std::size_t position = 0;
  std::size_t const colon = text.find_first_of(u":/?#");
  if (colon != std::u16string::npos && text[colon] == u':' &&
      isValidScheme(text.substr(0, colon))) {
    parts.scheme = text.substr(0, colon);
    position = colon + 1;
  }
  if (text.compare(position, 2, u"//") == 0) {
    std::size_t const end = text.find_first_of(u"/?#", position + 2);
    std::size_t const stop = end == std::u16string::npos ? text.size() : end;
    parts.authority = text.substr(position + 2, stop - position - 2);
    position = stop;
  }
  std::size_t const pathEnd = text.find_first_of(u"?#", position);
  std::size_t const pathStop = pathEnd == std::u16string::npos ? text.size() : pathEnd;
  parts.path = text.substr(position, pathStop - position);
  position = pathStop;
  if (position < text.size() && text[position] == u'?') {
    std::size_t const hash = text.find(u'#', position);
    std::size_t const stop = hash == std::u16string::npos ? text.size() : hash;
    parts.query = text.substr(position + 1, stop - position - 1);
    position = stop;
  }
  if (position < text.size()) parts.fragment = text.substr(position + 1);
  return parts;
}

std::u16string joinUri(UriParts const& parts) {
  std::u16string result;
  if (parts.scheme) result += *parts.scheme + u":";
  if (parts.authority) result += u"//" + *parts.authority;
  result += parts.path;
  if (parts.query) result += u"?" + *parts.query;
  if (parts.fragment) result += u"#" + *parts.fragment;
  return result;
}

std::u16string removeDotSegments(std::u16string const& path) {
  std::u16string input(path);
  std::u16string output;
  auto dropLastOutputSegment = [&output] {
    std::size_t const slash = output.rfind(u'/');
    output.erase(slash == std::u16string::npos ? 0 : slash);
  };
  while (!input.empty()) {
    if (input.compare(0, 3, u"../") == 0) {
      input.erase(0, 3);
    } else if (input.compare(0, 2, u"./") == 0) {
      input.erase(0, 2);
    } else if (input.compare(0, 3, u"/./") == 0) {
      input.erase(0, 2);
    } else if (input == u"/.") {
      input = u"/";
    } else if (input.compare(0, 4, u"/../") == 0) {
      input.erase(0, 3);
      dropLastOutputSegment();
    } else if (input == u"/..") {
      input = u"/";
      dropLastOutputSegment();
    } else if (input == u"." || input == u"..") {
      input.clear();
    } else {
      std::size_t const next = input.find(u'/', 1);
      std::size_t const stop = next == std::u16string::npos ? input.size() : next;
      output += input.substr(0, stop);
      input.erase(0, stop);
    }
  }
  return output;
}

std::optional<std::string> findUriSyntaxError(std::u16string const& text) {
  UriParts const parts = splitUri(text);
  if (!parts.scheme) {
    // Without a valid scheme, a ":" in the first segment would make the reference read as
    // one; RFC 3986 forbids it there.
    std::size_t const stop = text.find_first_of(u"/?#");
    std::size_t const colon = text.find(u':');
    if (colon != std::u16string::npos && (stop == std::u16string::npos || colon < stop)) {
      return detail::quoted(text.substr(0, colon)) + " before \":\" is not a valid scheme";
    }
  }
  if (parts.authority) {
    if (auto error = findComponentError(Component::kAuthority, *parts.authority)) return error;
  }
  if (auto error = findComponentError(Component::kPath, parts.path)) return error;
  if (parts.query) {
    if (auto error = findComponentError(Component::kQuery, *parts.query)) return error;
  }
  if (parts.fragment) {
    if (auto error = findComponentError(Component::kFragment, *parts.fragment)) return error;
  }
  return std::nullopt;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
