#include "plain_elements.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <new>
#include <utility>

#include "../strict_xml/strict_xml_text.h"

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr std::u16string_view kXmlns = u"xmlns";

// The most that one read of a stream asks for after the first: a stream may take the size of a
// read as the size of a buffer of its own.
constexpr std::size_t kStep = 256 * 1024;

bool isSpace(unsigned char c) { return c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0D; }

bool isLetter(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// Whether the ASCII bytes of `bytes` spell `name`.
bool spells(std::string_view bytes, std::u16string_view name) {
  if (bytes.size() != name.size()) return false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (static_cast<char16_t>(static_cast<unsigned char>(bytes[i])) != name[i]) return false;
  }
  return true;
}

// A cursor over the bytes of one document.  Every operation that fails makes the reader give
// up, so none of them needs to restore the position.
class Scan {
 public:
  Scan(unsigned char const* data, std::size_t size) : at_(data), end_(data + size) {}

  bool atEnd() const { return at_ == end_; }

  // Skips whitespace; whether there was any.
  bool skipSpace() {
    unsigned char const* const from = at_;
    while (at_ != end_ && isSpace(*at_)) ++at_;
    return at_ != from;
  }

  // Consumes `text` if the input goes on with it.
  bool take(std::string_view text) {
    if (static_cast<std::size_t>(end_ - at_) < text.size()) return false;
    if (!std::equal(text.begin(), text.end(), at_,
                    [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; })) {
      return false;
    }
    at_ += text.size();
    return true;
  }

  // Whether the input goes on with a byte that may follow a name in a tag.
  bool atNameEnd() const { return at_ != end_ && (isSpace(*at_) || *at_ == '>' || *at_ == '/'); }

  // A name of ASCII letters (the names of every shape are made of them): an element's or an
  // attribute's, up to whatever follows it.
  std::string_view letters() {
    unsigned char const* const from = at_;
    while (at_ != end_ && isLetter(*at_)) ++at_;
    return std::string_view(reinterpret_cast<char const*>(from), at_ - from);
  }

  // The XML declaration, if the document begins with one.
  bool declaration() {
    if (!take("<?xml")) return true;
    if (!skipSpace() || !take("version") || !pseudoValue({"1.0"})) return false;
    bool space = skipSpace();
    if (space && take("encoding")) {
      if (!pseudoValue({"UTF-8", "utf-8"})) return false;
      space = skipSpace();
    }
    if (space && take("standalone")) {
      if (!pseudoValue({"yes", "no"})) return false;
      skipSpace();
    }
    return take("?>");
  }

  // "=", a quoted value, its references replaced, into `out`.
  bool attributeValue(std::u16string& out) {
    return model::strict_xml::takeAttributeValue(at_, end_, out, [this](std::u16string& text) {
      text.push_back(*at_);
      ++at_;
    });
  }

 private:
  bool pseudoValue(std::initializer_list<std::string_view> allowed) {
    skipSpace();
    if (!take("=")) return false;
    skipSpace();
    if (at_ == end_ || (*at_ != '"' && *at_ != '\'')) return false;
    char const quote = static_cast<char>(*at_++);
    for (std::string_view const value : allowed) {
      unsigned char const* const from = at_;
      if (take(value) && take(std::string_view(&quote, 1))) return true;
      at_ = from;
    }
    return false;
  }

  unsigned char const* at_;
  unsigned char const* end_;
};

// The index of the kind whose name `name` spells, or kindCount.
std::size_t kindOf(PlainDocumentShape const& shape, std::string_view name) {
  std::size_t kind = 0;
  while (kind < shape.kindCount && !spells(name, shape.kinds[kind].name)) ++kind;
  return kind;
}

// The root's start tag from behind its name: the default namespace's declaration alone.
// Whether the root is empty comes in `empty`.
bool rootTag(Scan& scan, PlainDocumentShape const& shape, bool& empty) {
  std::u16string value;
  bool declared = false;
  for (;;) {
    bool const space = scan.skipSpace();
    if (scan.take("/>")) {
      empty = true;
      return declared;
    }
    if (scan.take(">")) {
      empty = false;
      return declared;
    }
    if (!space || declared || !spells(scan.letters(), kXmlns) || !scan.attributeValue(value) ||
        value != shape.ns) {
      return false;
    }
    declared = true;
  }
}

// A child's empty element from behind its name: the kind's attributes, each at most once, and
// "/>".
bool childTag(Scan& scan, PlainElementKind const& kind, PlainElement& element) {
  for (;;) {
    bool const space = scan.skipSpace();
    if (scan.take("/>")) return true;
    if (!space) return false;
    std::string_view const name = scan.letters();
    std::size_t at = 0;
    while (at < kMaxPlainAttributes &&
           (kind.attributes[at].empty() || !spells(name, kind.attributes[at]))) {
      ++at;
    }
    if (at == kMaxPlainAttributes || element.values[at]) return false;
    element.values[at].emplace();
    if (!scan.attributeValue(*element.values[at])) return false;
  }
}

}  // namespace

bool readPlainElements(unsigned char const* data, std::size_t size, PlainDocumentShape const& shape,
                       std::vector<PlainElement>& elements) {
  elements.clear();
  Scan scan(data, size);
  // The declaration, if any, stands at the very first byte: no byte order mark, no space.
  if (!scan.declaration()) return false;
  scan.skipSpace();
  if (!scan.take("<") || !spells(scan.letters(), shape.root) || !scan.atNameEnd()) return false;
  bool empty = false;
  if (!rootTag(scan, shape, empty)) return false;
  if (!empty) {
    for (;;) {
      scan.skipSpace();
      if (scan.take("</")) {
        if (!spells(scan.letters(), shape.root)) return false;
        scan.skipSpace();
        if (!scan.take(">")) return false;
        break;
      }
      if (!scan.take("<")) return false;
      std::size_t const kind = kindOf(shape, scan.letters());
      if (kind == shape.kindCount || !scan.atNameEnd()) return false;
      elements.emplace_back();
      elements.back().kind = kind;
      if (!childTag(scan, shape.kinds[kind], elements.back())) return false;
    }
  }
  scan.skipSpace();
  if (!scan.atEnd()) return false;
  // Kind by kind, as plainElementsOf() finds them.
  std::stable_sort(elements.begin(), elements.end(),
                   [](PlainElement const& a, PlainElement const& b) { return a.kind < b.kind; });
  return true;
}

bool readPlainElements(opc::InputStream& stream, std::size_t sizeHint,
                       PlainDocumentShape const& shape, std::vector<PlainElement>& elements) {
  std::unique_ptr<unsigned char[]> held;
  std::size_t size = 0;
  try {
    stream.open();
    // One read for the whole room first: a stream that inflates a small item whole does it
    // straight into a buffer that can take all of it.  Allocated, not initialised: only the
    // bytes that the stream gives are touched.
    std::size_t room = sizeHint + 1;
    held.reset(new unsigned char[room]);
    std::size_t want = room;
    while (!stream.isDone()) {
      if (size == room) {
        std::size_t const larger = room + std::max(room, kStep);
        std::unique_ptr<unsigned char[]> grown(new unsigned char[larger]);
        std::copy_n(held.get(), size, grown.get());
        held = std::move(grown);
        room = larger;
      }
      size += stream.read(held.get() + size, std::min(want, room - size));
      want = kStep;
    }
  } catch (std::bad_alloc const&) {
    throw;
  } catch (...) {
    // The parser reads the document from a new stream and tells the failure as it meets it.
    try {
      stream.close();
    } catch (...) {
      // The second reading tells what matters.
    }
    return false;
  }
  if (!readPlainElements(held.get(), size, shape, elements)) {
    try {
      stream.close();
    } catch (...) {
      // The second reading tells what matters.
    }
    return false;
  }
  stream.close();
  return true;
}

std::vector<PlainElement> plainElementsOf(XmlNode const& root, PlainDocumentShape const& shape) {
  std::vector<PlainElement> elements;
  for (std::size_t kind = 0; kind < shape.kindCount; ++kind) {
    std::u16string const name(shape.kinds[kind].name);
    for (XmlNode const* child : getElements(&root, name)) {
      PlainElement element;
      element.kind = kind;
      for (std::size_t at = 0; at < kMaxPlainAttributes; ++at) {
        std::u16string_view const attribute = shape.kinds[kind].attributes[at];
        if (attribute.empty()) continue;
        std::u16string value;
        if (getElementAttribute(child, std::u16string(attribute), value)) {
          element.values[at] = std::move(value);
        }
      }
      elements.push_back(std::move(element));
    }
  }
  return elements;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
