#include "filesystem/manifest_fast_reader.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "contracts/model/strict_xml/strict_xml_text.h"
#include "filesystem/file_system_manifest_xml_names.h"
#include "filesystem/file_system_manifest_xml_words.h"

namespace opc {
namespace vkservices {
namespace detail {
namespace {

constexpr std::u16string_view kNamespace(kManifestNamespace.c_str(), kManifestNamespace.size());
constexpr std::u16string_view kXmlns = u"xmlns";

// The attributes that the reader knows, by element.  A name that is not in the list makes it
// give up, which is how the strict grammars' "no other attribute" is kept.
constexpr std::u16string_view kRootNames[] = {kXmlns, kCreatedByEncoding, kCreatedByPlatform,
                                              kVersion};
constexpr std::u16string_view kEntryNames[] = {kName, kContent, kType, kPermissions, kDate};

// The attributes in the order in which the writer puts them, by name, as indices into the lists
// above: the reader tries the one that comes next in this order before it reads a name and
// looks it up.  Any order is read; this one is read fastest.
constexpr std::uint8_t kRootOrder[] = {0, 1, 2, 3};
constexpr std::uint8_t kEntryOrder[] = {1, 4, 0, 3, 2};

// The most that one read of a stream asks for after the first: a stream may take the size of a
// read as the size of a buffer of its own.
constexpr std::size_t kStep = 256 * 1024;

// The bytes that stand for themselves in an attribute value: printable ASCII but for the
// references' "&", the "<" that XML forbids there, and the quotes.
struct PlainBytes {
  bool of[256];
  constexpr PlainBytes() : of() {
    for (int c = 0x20; c < 0x80; ++c) of[c] = c != '&' && c != '<' && c != '"' && c != '\'';
  }
};
constexpr PlainBytes kPlain;

// The ASCII letters, of which attribute names are made.
struct LetterBytes {
  bool of[256];
  constexpr LetterBytes() : of() {
    for (int c = 'a'; c <= 'z'; ++c) of[c] = of[c - 'a' + 'A'] = true;
  }
};
constexpr LetterBytes kLetter;

// The units that decodeValue may store beyond those of the value it decodes.
constexpr std::size_t kValueSpill = 16;

// The characters of the bytes of an attribute value from `at` to `close` (the quote that ends
// it, before `end`, the end of the bytes at hand), references replaced, written from `to`,
// which is moved past them; false on a byte that is not a character, a reference that the
// reader does not take, a control character or "<".  `to` has room for a unit per byte of the
// value and kValueSpill more: no character takes more units than bytes.
//
// One pass: sixteen bytes at a time are widened and stored whole, and the pass moves on past
// those that stand for themselves, stopping only at a byte that needs a closer look.  Names of
// other scripts mix short ASCII runs with characters of two or three bytes, so the step goes
// on from each such character without a call or a second scan of the run after it.
bool decodeValue(unsigned char const* at, unsigned char const* close, unsigned char const* end,
                 char16_t*& to) {
  char16_t* out = to;
  while (at != close) {
#if defined(__SSE2__)
    if (end - at >= 16) {
      __m128i const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(at));
      __m128i const zero = _mm_setzero_si128();
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi8(bytes, zero));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8), _mm_unpackhi_epi8(bytes, zero));
      // Compared as signed bytes, those from 0x80 up are below 0x20 as the controls are.
      __m128i const special = _mm_or_si128(_mm_cmplt_epi8(bytes, _mm_set1_epi8(0x20)),
                                           _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('&')),
                                                        _mm_cmpeq_epi8(bytes, _mm_set1_epi8('<'))));
      unsigned stops = static_cast<unsigned>(_mm_movemask_epi8(special));
      std::size_t const left = static_cast<std::size_t>(close - at);
      if (left < 16) stops |= ~0u << left;
      if (stops == 0) {
        at += 16;
        out += 16;
        continue;
      }
      std::size_t const run = static_cast<std::size_t>(__builtin_ctz(stops));
      at += run;
      out += run;
      if (at == close) break;
    } else
#endif
    {
      while (at != close && kPlain.of[*at]) *out++ = *at++;
      if (at == close) break;
      // The quote of the other kind stands for itself too.
      if (*at == '"' || *at == '\'') {
        *out++ = *at++;
        continue;
      }
    }
    unsigned char const c = *at;
    if (c >= 0x80) {
      // The characters of a word of another script come one after another: decoded here in
      // turn, without a block of sixteen bytes looked at for each.
      do {
        std::uint32_t const character = model::strict_xml::multiByteCharacter(at, close);
        if (character == model::strict_xml::kNoCharacter) return false;
        out = model::strict_xml::putCodePoint(out, character);
      } while (at != close && *at >= 0x80);
      continue;
    }
    std::uint32_t character = model::strict_xml::kNoCharacter;
    if (c == '&') {
      character = model::strict_xml::referenceCharacter(at, close);
    }
    // A control character or "<" is no character here either.
    if (character == model::strict_xml::kNoCharacter) return false;
    out = model::strict_xml::putCodePoint(out, character);
  }
  to = out;
  return true;
}

bool isSpace(unsigned char c) { return c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0D; }
bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

// Whether the ASCII bytes of `bytes` spell `name`.
bool spells(std::string_view bytes, std::u16string_view name) {
  if (bytes.size() != name.size()) return false;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (static_cast<char16_t>(bytes[i]) != name[i]) return false;
  }
  return true;
}

// The value of `count` decimal digits of `text` from `at`, or -1 if one is not a digit.
int digits(std::u16string_view text, std::size_t at, std::size_t count) {
  int value = 0;
  for (std::size_t i = at; i < at + count; ++i) {
    if (!isDigit(text[i])) return -1;
    value = value * 10 + (text[i] - u'0');
  }
  return value;
}

int daysInMonth(int year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool const leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : kDays[month - 1];
}

// Whether `text` is a dateTime of the form "YYYY-MM-DDThh:mm:ss", then optionally a fraction
// of up to twelve digits and a "Z": a strict part of the lexical space of xsd:dateTime, with no
// time zone offset (which the parser moves to UTC, and so across years) and no "24:00:00".
bool isPlainDateTime(std::u16string_view text) {
  if (text.size() < 19 || text[4] != u'-' || text[7] != u'-' || text[10] != u'T' ||
      text[13] != u':' || text[16] != u':') {
    return false;
  }
  int const year = digits(text, 0, 4);
  int const month = digits(text, 5, 2);
  int const day = digits(text, 8, 2);
  int const hour = digits(text, 11, 2);
  int const minute = digits(text, 14, 2);
  int const second = digits(text, 17, 2);
  if (year < 1 || month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month) ||
      hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59) {
    return false;
  }
  std::size_t at = 19;
  if (at < text.size() && text[at] == u'.') {
    std::size_t const first = ++at;
    while (at < text.size() && isDigit(text[at])) ++at;
    if (at == first || at - first > 12) return false;
  }
  if (at < text.size() && text[at] == u'Z') ++at;
  return at == text.size();
}

// Whether `text` is "digits" or "digits.digits", of a length that no decimal parser minds.
bool isPlainDecimal(std::u16string_view text) {
  if (text.empty() || text.size() > 32) return false;
  std::size_t at = 0;
  while (at < text.size() && isDigit(text[at])) ++at;
  if (at == 0) return false;
  if (at == text.size()) return true;
  if (text[at] != u'.') return false;
  std::size_t const fraction = ++at;
  while (at < text.size() && isDigit(text[at])) ++at;
  return at > fraction && at == text.size();
}

}  // namespace

// A cursor over the bytes of one document, all in memory or a window of them from a stream.
// Every operation that fails leaves the reader to give up, so none of them needs to restore the
// position; an operation that meets the end of the window fails as at the end of the document,
// which is why the reader reads an element again from its start after a refill (refillFrom)
// before it gives up on it.
class ManifestFastReader::Scan {
 public:
  Scan(unsigned char const* data, std::size_t size) : at_(data), end_(data + size) {}
  Scan(opc::InputStream& source, unsigned char* window, std::size_t size, std::size_t& consumed)
      : at_(window),
        end_(window),
        source_(&source),
        window_(window),
        windowSize_(size),
        consumed_(&consumed) {}

  // Whether no byte of the document is left, in memory or in the source.
  bool atEnd() const { return at_ == end_ && !more(); }

  // Makes at least half a window lie ahead, or the rest of the document: the bytes ahead move
  // to the front and the source fills the rest.  An exception of the source passes through.
  void refill() {
    if (!more() || static_cast<std::size_t>(end_ - at_) >= windowSize_ / 2) return;
    fillFrom(at_);
  }

  // Where the cursor stands.
  unsigned char const* position() const { return at_; }

  // Makes the bytes from `start` (at or before the cursor, in the window) lie at the front of
  // the window with the source's next bytes after them, the cursor at `start` again: for an
  // element that met the end of the window, to be read again whole.  Only the bytes of that one
  // element move, not half a window before every element.  False, changing nothing, when no
  // byte could come in: the source is done, or the element began at the front of a window that
  // it fills.  An exception of the source passes through.
  bool refillFrom(unsigned char const* start) {
    if (!more() || start == window_) return false;
    fillFrom(start);
    return true;
  }

  // Skips whitespace, refilling as it runs out; whether there was any.
  bool skipAllSpace() {
    bool any = false;
    for (;;) {
      any = skipSpace() || any;
      if (at_ != end_ || !more()) return any;
      refill();
    }
  }

  // Skips whitespace; whether there was any.
  bool skipSpace() {
    unsigned char const* const from = at_;
    while (at_ != end_ && isSpace(*at_)) ++at_;
    return at_ != from;
  }

  // Consumes `text` if the input goes on with it.
  bool take(std::string_view text) {
    if (static_cast<std::size_t>(end_ - at_) < text.size()) return false;
    // Byte by byte: the texts are a few bytes long and known where this is inlined, which a
    // call of memcmp for each of them is not.
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (at_[i] != static_cast<unsigned char>(text[i])) return false;
    }
    at_ += text.size();
    return true;
  }

  // Whether the input goes on with a byte that may follow an element's name.
  bool atNameEnd() const { return at_ != end_ && (isSpace(*at_) || *at_ == '>' || *at_ == '/'); }

  // The XML declaration, if the document begins with one.
  bool declaration() {
    if (!take("<?xml")) return true;
    if (!skipSpace() || !pseudoAttribute("version", {"1.0"})) return false;
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

  // Consumes `name` if the input goes on with it and then with no further letter: the name
  // that attributeName() would give.
  bool takeName(std::u16string_view name) {
    std::size_t const size = name.size();
    if (static_cast<std::size_t>(end_ - at_) < size) return false;
    for (std::size_t i = 0; i < size; ++i) {
      if (at_[i] != name[i]) return false;
    }
    if (static_cast<std::size_t>(end_ - at_) > size && kLetter.of[at_[size]]) return false;
    at_ += size;
    return true;
  }

  // A name of ASCII letters, up to "=" or whitespace.
  std::string_view attributeName() {
    unsigned char const* const from = at_;
    while (at_ != end_ && kLetter.of[*at_]) ++at_;
    return std::string_view(reinterpret_cast<char const*>(from), at_ - from);
  }

  // "=", a quoted value, its references replaced, into the first `length` units of `buffer`,
  // which only grows.  False, for the reader to give up, on a value that is not closed within
  // the bytes at hand or that decodeValue does not take.
  bool attributeValue(std::u16string& buffer, std::size_t& length) {
    skipSpace();
    if (!take("=")) return false;
    skipSpace();
    if (at_ == end_ || (*at_ != '"' && *at_ != '\'')) return false;
    unsigned char const quote = *at_++;
    // The value ends at the first quote of its kind: no character of several bytes holds the
    // byte, and no reference either, so the end is found before anything is decoded.
    auto const* const close = static_cast<unsigned char const*>(
        std::memchr(at_, quote, static_cast<std::size_t>(end_ - at_)));
    if (close == nullptr) return false;
    std::size_t const room = static_cast<std::size_t>(close - at_) + kValueSpill;
    if (buffer.size() < room) buffer.resize(std::max(buffer.size() * 2, room));
    char16_t* const first = &buffer[0];
    char16_t* to = first;
    if (!decodeValue(at_, close, end_, to)) return false;
    at_ = close + 1;
    length = static_cast<std::size_t>(to - first);
    return true;
  }

 private:
  bool pseudoAttribute(std::string_view name, std::initializer_list<std::string_view> allowed) {
    return take(name) && pseudoValue(allowed);
  }

  bool pseudoValue(std::initializer_list<std::string_view> allowed) {
    skipSpace();
    if (!take("=")) return false;
    skipSpace();
    for (char const quote : {'"', '\''}) {
      for (std::string_view const value : allowed) {
        unsigned char const* const from = at_;
        if (take(std::string(1, quote) + std::string(value) + quote)) return true;
        at_ = from;
      }
    }
    return false;
  }

  // Moves the bytes from `from` to the end of the window to its front, the cursor to their
  // first, and fills the rest of the window from the source as far as it goes.
  void fillFrom(unsigned char const* from) {
    std::size_t size = static_cast<std::size_t>(end_ - from);
    std::memmove(window_, from, size);
    at_ = window_;
    end_ = window_ + size;
    // One read for the whole room first: a stream that inflates a small item whole does it
    // straight into a buffer that can take all of it.
    std::size_t want = windowSize_ - size;
    while (size < windowSize_ && !source_->isDone()) {
      std::size_t const count = source_->read(window_ + size, std::min(want, windowSize_ - size));
      size += count;
      *consumed_ += count;
      end_ = window_ + size;
      want = kStep;
    }
  }

  // Whether the source has bytes that are not in the window yet.
  bool more() const { return source_ != nullptr && !source_->isDone(); }

  unsigned char const* at_;
  unsigned char const* end_;
  // Null when the document is in memory.
  opc::InputStream* source_ = nullptr;
  unsigned char* window_ = nullptr;
  std::size_t windowSize_ = 0;
  std::size_t* consumed_ = nullptr;
};

ManifestFastReader::ManifestFastReader(std::size_t window)
    : window_(std::max(window, kMinimumWindow)) {}
ManifestFastReader::~ManifestFastReader() = default;

bool ManifestFastReader::read(unsigned char const* data, std::size_t size,
                              opc::model::XmlStreamHandler& handler) {
  Scan scan(data, size);
  return readDocument(scan, handler);
}

bool ManifestFastReader::read(opc::InputStream& source, opc::model::XmlStreamHandler& handler) {
  consumed_ = 0;
  // Allocated, not initialised: only the bytes that the source gives are ever touched.
  if (!buffer_) buffer_.reset(new unsigned char[window_]);
  Scan scan(source, buffer_.get(), window_, consumed_);
  return readDocument(scan, handler);
}

bool ManifestFastReader::readDocument(Scan& scan, opc::model::XmlStreamHandler& handler) {
  refusal_ = nullptr;
  scan.refill();
  // The declaration, if any, stands at the very first byte: no byte order mark, no space.
  if (!scan.declaration()) return false;
  scan.skipAllSpace();
  scan.refill();
  if (!scan.take("<fileEntries") || !scan.atNameEnd()) return false;
  unsigned present = 0;
  bool empty = false;
  if (!startTag(scan, kRootNames, kRootOrder, std::size(kRootNames), present, empty)) return false;
  // All four, the namespace the default one and exactly the current one, and a version that
  // no reading of xsd:decimal could refuse or print otherwise.
  if (present != 0xF || values_[0] != kNamespace || !isPlainDecimal(values_[3])) return false;
  emitStart(kFileEntries, 0, handler);
  if (!empty) {
    for (;;) {
      scan.skipAllSpace();
      // An element that meets the end of the window is read again from its start after a
      // refill, so that one of up to a window is read whole; nothing of it reached the handler.
      unsigned char const* const start = scan.position();
      bool last = false;
      if (!element(scan, handler, last)) {
        if (!scan.refillFrom(start) || !element(scan, handler, last)) return false;
      }
      if (last) break;
    }
  }
  emitEnd(0, handler);
  scan.skipAllSpace();
  return scan.atEnd();
}

bool ManifestFastReader::element(Scan& scan, opc::model::XmlStreamHandler& handler, bool& last) {
  if (scan.take("</fileEntries")) {
    scan.skipSpace();
    last = true;
    return scan.take(">");
  }
  return scan.take("<fileEntry") && scan.atNameEnd() && entry(scan, handler);
}

bool ManifestFastReader::startTag(Scan& scan, std::u16string_view const* names,
                                  std::uint8_t const* order, std::size_t count, unsigned& present,
                                  bool& empty) {
  present = 0;
  attributes_.clear();
  // The place in `order` of the name tried first: the one after the name that came last.
  std::size_t expected = 0;
  for (;;) {
    bool const space = scan.skipSpace();
    if (scan.take("/>")) {
      empty = true;
      return true;
    }
    if (scan.take(">")) {
      empty = false;
      return true;
    }
    // Attributes are set apart by whitespace.
    if (!space) return false;
    std::size_t index = expected < count ? order[expected] : count;
    if (index == count || !scan.takeName(names[index])) {
      std::string_view const name = scan.attributeName();
      if (name.empty()) return false;
      index = 0;
      while (index < count && !spells(name, names[index])) ++index;
    }
    if (index == count || (present & (1u << index)) != 0) return false;
    for (expected = 0; expected < count && order[expected] != index; ++expected) {
    }
    ++expected;
    std::size_t length = 0;
    if (!scan.attributeValue(buffers_[index], length)) return false;
    // The view is stored field by field, never read back or copied whole: a load of sixteen
    // bytes just stored as two halves waits for both stores to land, at every attribute.
    std::u16string_view const value(buffers_[index].data(), length);
    values_[index] = value;
    present |= 1u << index;
    opc::model::XmlStreamAttribute& attribute = attributes_.emplace_back();
    attribute.name = names[index];
    attribute.value = value;
  }
}

bool ManifestFastReader::entry(Scan& scan, opc::model::XmlStreamHandler& handler) {
  unsigned present = 0;
  bool empty = false;
  if (!startTag(scan, kEntryNames, kEntryOrder, std::size(kEntryNames), present, empty))
    return false;
  // name, content and type are required; the type is one of the three words as they stand.
  std::u16string_view const type = values_[2];
  if ((present & 0x7) != 0x7 || (type != kFile && type != kSymLink && type != kFolder)) {
    return false;
  }
  std::u16string_view const date = values_[4];
  if ((present & 0x10) != 0 && !date.empty() && !isPlainDateTime(date)) return false;
  if (!empty) {
    // The element's text is allowed and never used; only whitespace is taken here.
    scan.skipSpace();
    if (!scan.take("</fileEntry")) return false;
    scan.skipSpace();
    if (!scan.take(">")) return false;
  }
  // Told once the element is read whole: one that meets the end of the window is read again.
  emitStart(kFileEntry, 1, handler);
  emitEnd(1, handler);
  return true;
}

void ManifestFastReader::emitStart(std::u16string_view localName, std::size_t depth,
                                   opc::model::XmlStreamHandler& handler) {
  if (refusal_) return;
  opc::model::XmlStreamElement element;
  element.namespaceURI = kNamespace;
  element.localName = localName;
  element.depth = depth;
  element.attributes = &attributes_;
  try {
    handler.startElement(element);
  } catch (...) {
    refusal_ = std::current_exception();
  }
}

void ManifestFastReader::emitEnd(std::size_t depth, opc::model::XmlStreamHandler& handler) {
  if (refusal_) return;
  try {
    handler.endElement(depth);
  } catch (...) {
    refusal_ = std::current_exception();
  }
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
