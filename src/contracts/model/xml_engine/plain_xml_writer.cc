// Writing small documents as the parser's pretty-printing serializer writes them: the XML
// declaration, one element a line indented by two spaces per level, empty elements closed in
// their start tag, and the declaration of an element's own namespace put right after its
// name when it is not in scope yet, before the attributes, which come in the order of their
// names.  What this writer is not sure to write the same way it leaves to the serializer.
#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

#include "../../core/utf8_append.h"
#include "plain_xml.h"

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr std::u16string_view kXmlnsNamespace = u"http://www.w3.org/2000/xmlns/";
constexpr std::u16string_view kXmlNamespace = u"http://www.w3.org/XML/1998/namespace";

// A prefix bound to a namespace, where the writer stands.
struct Binding {
  std::u16string_view prefix;
  std::u16string_view uri;
};

bool isNameStart(char16_t c) {
  return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_';
}

bool isNameChar(char16_t c) {
  return isNameStart(c) || (c >= u'0' && c <= u'9') || c == u'-' || c == u'.';
}

bool isPlainNcName(std::u16string_view name) {
  if (name.empty() || !isNameStart(name.front())) return false;
  return std::all_of(name.begin() + 1, name.end(), isNameChar);
}

// Splits a qualified name of plain parts into prefix and local name; false for another name.
bool splitName(std::u16string_view name, std::u16string_view& prefix, std::u16string_view& local) {
  std::size_t const colon = name.find(u':');
  if (colon == std::u16string_view::npos) {
    prefix = {};
    local = name;
    return isPlainNcName(name);
  }
  prefix = name.substr(0, colon);
  local = name.substr(colon + 1);
  return isPlainNcName(prefix) && isPlainNcName(local);
}

void appendAscii(std::string& out, std::u16string_view text) {
  for (char16_t c : text) out.push_back(static_cast<char>(c));
}

// Appends `text` escaped as the serializer escapes a text (`inAttribute` false) or an
// attribute value; false for a character it may treat otherwise: one that XML cannot carry
// (the serializer reports it), whitespace other than the space (which it may normalise or
// reindent), the C1 controls and the line separators (which it may write as references).
bool appendEscaped(std::string& out, std::u16string_view text, bool inAttribute) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t c = text[i];
    if (c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0x2028 || c == 0xFFFE || c == 0xFFFF) {
      return false;
    }
    if (c >= 0xD800 && c <= 0xDFFF) {
      if (c > 0xDBFF || i + 1 == text.size()) return false;
      std::uint32_t const low = text[i + 1];
      if (low < 0xDC00 || low > 0xDFFF) return false;
      c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
      ++i;
    }
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        if (inAttribute) {
          out.push_back('>');
        } else {
          out += "&gt;";
        }
        break;
      case '"':
        if (inAttribute) {
          out += "&quot;";
        } else {
          out.push_back('"');
        }
        break;
      default:
        opc::detail::appendUtf8(out, c);
    }
  }
  return true;
}

bool allSpaces(std::u16string_view text) {
  return std::all_of(text.begin(), text.end(), [](char16_t c) { return c == u' '; });
}

class Writer {
 public:
  explicit Writer(std::string& out) : out_(out) {}

  bool element(XmlNode const& node, std::size_t depth) {
    // The trees written are a few levels deep; a deeper one is left to the serializer.
    if (depth > 32) return false;
    std::u16string_view prefix;
    std::u16string_view local;
    if (!splitName(node.name, prefix, local)) return false;
    if (!node.text.empty() && !node.children.empty()) return false;
    if (!node.text.empty() && allSpaces(node.text)) return false;
    if (!node.attributeNamespaces.empty() &&
        node.attributeNamespaces.size() != node.attributes.size()) {
      return false;
    }
    std::size_t const scopeSize = scope_.size();
    out_.append(2 * depth, ' ');
    out_.push_back('<');
    appendAscii(out_, node.name);
    if (node.namespaceURI.empty()) {
      // An element without namespace under a default one would need an undeclaration.
      if (!prefix.empty() || lookup(u"") != nullptr) return false;
    } else {
      std::u16string_view const* bound = lookup(prefix);
      if (bound == nullptr || *bound != node.namespaceURI) {
        if (!declare(prefix, node.namespaceURI)) return false;
      }
    }
    if (!attributes(node)) return false;
    if (node.children.empty() && node.text.empty()) {
      out_ += "/>\n";
    } else if (node.children.empty()) {
      out_.push_back('>');
      if (!appendEscaped(out_, node.text, false)) return false;
      closeTag(node);
    } else {
      out_ += ">\n";
      for (XmlNode const& child : node.children) {
        if (!element(child, depth + 1)) return false;
      }
      out_.append(2 * depth, ' ');
      closeTag(node);
    }
    scope_.resize(scopeSize);
    return true;
  }

 private:
  std::u16string_view const* lookup(std::u16string_view prefix) const {
    for (auto at = scope_.rbegin(); at != scope_.rend(); ++at) {
      if (at->prefix == prefix) return &at->uri;
    }
    return nullptr;
  }

  bool declare(std::u16string_view prefix, std::u16string_view uri) {
    out_ += " xmlns";
    if (!prefix.empty()) {
      out_.push_back(':');
      appendAscii(out_, prefix);
    }
    out_ += "=\"";
    if (!appendEscaped(out_, uri, true)) return false;
    out_.push_back('"');
    scope_.push_back({prefix, uri});
    return true;
  }

  // The attributes in the order of their names, as the serializer keeps them.
  bool attributes(XmlNode const& node) {
    std::vector<std::size_t> order(node.attributes.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
      return node.attributes[a].first < node.attributes[b].first;
    });
    for (std::size_t k = 0; k < order.size(); ++k) {
      std::size_t const i = order[k];
      // Two attributes of one name: the later replaces the earlier, a case left alone.
      if (k > 0 && node.attributes[order[k - 1]].first == node.attributes[i].first) return false;
      std::u16string const& name = node.attributes[i].first;
      std::u16string const& value = node.attributes[i].second;
      std::u16string_view const ns = attributeNamespace(node, i);
      std::u16string_view prefix;
      std::u16string_view local;
      if (!splitName(name, prefix, local)) return false;
      if (ns.empty()) {
        if (!prefix.empty()) return false;
      } else if (ns == kXmlnsNamespace) {
        // A prefix declared by hand, for the first time where it stands.
        if (prefix != u"xmlns" || local == u"xml" || local == u"xmlns" || value.empty()) {
          return false;
        }
        if (lookup(local) != nullptr) return false;
        scope_.push_back({local, value});
      } else if (ns == kXmlNamespace) {
        if (prefix != u"xml") return false;
      } else {
        std::u16string_view const* bound = prefix.empty() ? nullptr : lookup(prefix);
        if (bound == nullptr || *bound != ns) return false;
      }
      out_.push_back(' ');
      appendAscii(out_, name);
      out_ += "=\"";
      if (!appendEscaped(out_, value, true)) return false;
      out_.push_back('"');
    }
    return true;
  }

  void closeTag(XmlNode const& node) {
    out_ += "</";
    appendAscii(out_, node.name);
    out_ += ">\n";
  }

  std::string& out_;
  std::vector<Binding> scope_;
};

}  // namespace

bool writePlainXml(XmlNode const& root, bool standalone, std::string& out) {
  if (!standalone) return false;
  out += "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n";
  Writer writer(out);
  return writer.element(root, 0);
}

void writeXmlDocument(XmlNode const& root, bool standalone, opc::OutputStream& stream) {
  std::string text;
  if (writePlainXml(root, standalone, text)) {
    stream.write(reinterpret_cast<unsigned char const*>(text.data()), text.size());
    stream.flush();
    return;
  }
  xmlEngine().write(root, standalone, stream);
}

}  // namespace detail
}  // namespace model
}  // namespace opc
