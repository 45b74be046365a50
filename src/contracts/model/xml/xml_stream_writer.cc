#include <algorithm>

#include <opc/model/xml/xml_exceptions.h>
#include <opc/model/xml/xml_stream_writer.h>

namespace opc {
namespace model {
namespace {

constexpr std::size_t kFlushSize = 64 * 1024;
constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\" ?>\n";

[[noreturn]] void failCharacter() {
  throw InvalidXMLDocument("XML error: invalid or illegal XML character");
}

[[noreturn]] void failOrder(char const* mistake) {
  throw InvalidXMLDocument(std::string("XML error: ") + mistake);
}

// Writes the UTF-8 bytes of `c` at `at` and returns the end.
char* put(char* at, char32_t c) {
  if (c < 0x80) {
    *at++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *at++ = static_cast<char>(0xC0 | (c >> 6));
    *at++ = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *at++ = static_cast<char>(0xE0 | (c >> 12));
    *at++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *at++ = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *at++ = static_cast<char>(0xF0 | (c >> 18));
    *at++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *at++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *at++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  return at;
}

char* put(char* at, char const* text) {
  while (*text != '\0') *at++ = *text++;
  return at;
}

// Appends `text` to `out` in UTF-8.  With `escape`, the characters that would end or change
// an attribute value become references, as the tree serializer writes them.  Refuses what
// XML 1.0 cannot hold, so that no document is written that no parser reads back.
void encode(std::u16string_view text, std::string& out, bool escape) {
  std::size_t const start = out.size();
  std::size_t const size = text.size();
  // Most text (every path of a manifest, nearly) is printable ASCII that needs no reference:
  // one byte per code unit, room made for exactly those bytes rather than for the worst case
  // (which costs as many zeroed bytes again five times over, for every attribute).  The units
  // are copied and judged in one pass without a branch per unit; text that is not plain is
  // written again below.
  out.resize(start + size);
  char* const plain = &out[start];
  unsigned const escapes = escape ? 1u : 0u;
  unsigned other = 0;
  for (std::size_t i = 0; i < size; ++i) {
    char16_t const c = text[i];
    plain[i] = static_cast<char>(c);
    unsigned const markup = static_cast<unsigned>(c == u'&') | static_cast<unsigned>(c == u'<') |
                            static_cast<unsigned>(c == u'"');
    other |=
        static_cast<unsigned>(c < 0x20) | static_cast<unsigned>(c >= 0x80) | (escapes & markup);
  }
  if (other == 0) return;
  // No code unit takes more than six bytes ("&quot;"; a surrogate pair takes four for two).
  out.resize(start + 6 * size);
  char* at = &out[start];
  for (std::size_t i = 0; i < size; ++i) {
    char16_t const c = text[i];
    if (c >= 0x20 && c < 0x80) {
      if (escape && c == u'&') {
        at = put(at, "&amp;");
      } else if (escape && c == u'<') {
        at = put(at, "&lt;");
      } else if (escape && c == u'"') {
        at = put(at, "&quot;");
      } else {
        *at++ = static_cast<char>(c);
      }
    } else if (c < 0x20) {
      if (c == u'\t') {
        at = put(at, escape ? "&#x9;" : "\t");
      } else if (c == u'\n') {
        at = put(at, escape ? "&#xA;" : "\n");
      } else if (c == u'\r') {
        at = put(at, escape ? "&#xD;" : "\r");
      } else {
        failCharacter();
      }
    } else if (c >= 0xD800 && c <= 0xDBFF) {
      if (i + 1 == size || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF) failCharacter();
      char32_t const high = c - 0xD800u;
      char32_t const low = text[++i] - 0xDC00u;
      at = put(at, 0x10000 + (high << 10) + low);
    } else if ((c >= 0xDC00 && c <= 0xDFFF) || c == 0xFFFE || c == 0xFFFF) {
      failCharacter();
    } else {
      at = put(at, c);
    }
  }
  out.resize(static_cast<std::size_t>(at - out.data()));
}

// A name is written as it stands, so it must not be able to break the markup around it.  The
// test is looser than the grammar of XML names: every name the library writes passes it, and
// nothing that passes it can end a tag or an attribute.
void checkName(std::u16string_view name) {
  if (name.empty()) failCharacter();
  for (char16_t const c : name) {
    bool const markup = c <= 0x20 || c == u'<' || c == u'>' || c == u'&' || c == u'"' ||
                        c == u'\'' || c == u'=' || c == u'/' || c == 0x7F;
    if (markup) failCharacter();
  }
}

}  // namespace

XmlStreamWriter::XmlStreamWriter(opc::OutputStream& target)
    : target_(target),
      depth_(0),
      startTagPending_(false),
      documentStarted_(false),
      documentElementEnded_(false) {
  out_.reserve(kFlushSize + 4096);
}

XmlStreamWriter::~XmlStreamWriter() = default;

void XmlStreamWriter::startDocument() {
  if (documentStarted_) failOrder("the document was started already");
  documentStarted_ = true;
  out_ += kDeclaration;
}

void XmlStreamWriter::startElement(std::u16string_view namespaceURI, std::u16string_view name) {
  if (!documentStarted_) failOrder("an element was started before the document");
  if (documentElementEnded_) failOrder("a document has only one document element");
  checkName(name);
  if (startTagPending_) closeStartTag(true);
  if (depth_ != 0) lineBreak(depth_);
  out_.push_back('<');
  encode(name, out_, false);
  std::u16string_view const inScope =
      depth_ == 0 ? std::u16string_view() : std::u16string_view(open_[depth_ - 1].namespaceURI);
  if (namespaceURI != inScope) {
    out_ += " xmlns=\"";
    encode(namespaceURI, out_, true);
    out_.push_back('"');
  }
  // Frames are kept when elements end, so that their strings are reused without allocating.
  if (depth_ == open_.size()) open_.emplace_back();
  open_[depth_].name.assign(name);
  open_[depth_].namespaceURI.assign(namespaceURI);
  ++depth_;
  startTagPending_ = true;
  attributes_.clear();
  attributeNames_.clear();
  attributeValues_.clear();
}

void XmlStreamWriter::attribute(std::u16string_view name, std::u16string_view value) {
  if (!startTagPending_) failOrder("an attribute was set outside a start tag");
  checkName(name);
  Attribute added{attributeNames_.size(), 0, attributeValues_.size(), 0};
  attributeNames_.append(name);
  added.nameEnd = attributeNames_.size();
  encode(value, attributeValues_, true);
  added.valueEnd = attributeValues_.size();
  for (Attribute& existing : attributes_) {
    std::u16string_view const existingName(attributeNames_.data() + existing.nameBegin,
                                           existing.nameEnd - existing.nameBegin);
    if (existingName == name) {
      // The earlier bytes stay in the buffers unused until the next element.
      existing = added;
      return;
    }
  }
  attributes_.push_back(added);
}

void XmlStreamWriter::endElement() {
  if (depth_ == 0) failOrder("an element was ended that was not started");
  if (startTagPending_) {
    closeStartTag(false);
  } else {
    lineBreak(depth_ - 1);
    out_ += "</";
    encode(open_[depth_ - 1].name, out_, false);
    out_.push_back('>');
  }
  --depth_;
  if (depth_ == 0) {
    documentElementEnded_ = true;
    out_.push_back('\n');
  }
  flushIfFull();
}

void XmlStreamWriter::endDocument() {
  if (!documentElementEnded_) failOrder("the document ended before its document element");
  target_.write(reinterpret_cast<unsigned char const*>(out_.data()), out_.size());
  out_.clear();
  target_.flush();
}

void XmlStreamWriter::closeStartTag(bool hasChildren) {
  auto nameOf = [this](std::size_t index) {
    Attribute const& a = attributes_[index];
    return std::u16string_view(attributeNames_.data() + a.nameBegin, a.nameEnd - a.nameBegin);
  };
  // Elements of one kind come one after another with the same attributes set in the same
  // order (every entry of a manifest): the order sorted for the previous start tag serves
  // again when the names and their places are the same, which costs a comparison of the
  // names rather than a sort.
  bool const sameNames =
      attributeNames_ == orderedNames_ && attributes_.size() == orderedPlaces_.size() &&
      std::equal(attributes_.begin(), attributes_.end(), orderedPlaces_.begin(),
                 [](Attribute const& a, std::pair<std::size_t, std::size_t> const& place) {
                   return a.nameBegin == place.first && a.nameEnd == place.second;
                 });
  if (!sameNames) {
    order_.resize(attributes_.size());
    for (std::size_t i = 0; i < order_.size(); ++i) order_[i] = i;
    std::sort(order_.begin(), order_.end(),
              [&](std::size_t a, std::size_t b) { return nameOf(a) < nameOf(b); });
    orderedNames_ = attributeNames_;
    orderedPlaces_.clear();
    for (Attribute const& a : attributes_) orderedPlaces_.emplace_back(a.nameBegin, a.nameEnd);
  }
  for (std::size_t const index : order_) {
    Attribute const& a = attributes_[index];
    out_.push_back(' ');
    encode(nameOf(index), out_, false);
    out_ += "=\"";
    out_.append(attributeValues_, a.valueBegin, a.valueEnd - a.valueBegin);
    out_.push_back('"');
  }
  out_ += hasChildren ? ">" : "/>";
  startTagPending_ = false;
}

void XmlStreamWriter::lineBreak(std::size_t depth) {
  out_.push_back('\n');
  out_.append(2 * depth, ' ');
}

void XmlStreamWriter::flushIfFull() {
  if (out_.size() < kFlushSize) return;
  target_.write(reinterpret_cast<unsigned char const*>(out_.data()), out_.size());
  out_.clear();
}

}  // namespace model
}  // namespace opc
