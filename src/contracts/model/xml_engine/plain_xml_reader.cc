// Reading small documents into the tree that the parser's road gives, without the parser.  The
// reader takes the forms that writers of these documents use and gives up on the rest: it
// must never accept what the parser refuses, nor give another tree than the parser's.
#include <algorithm>
#include <string_view>
#include <utility>

#include "../strict_xml/strict_xml_text.h"
#include "plain_xml.h"

namespace opc {
namespace model {
namespace detail {
namespace {

namespace sx = opc::model::strict_xml;

constexpr std::u16string_view kXmlnsNamespace = u"http://www.w3.org/2000/xmlns/";
constexpr std::u16string_view kXmlNamespace = u"http://www.w3.org/XML/1998/namespace";

// Documents of this library are a few levels deep; deeper ones are left to the parser, which
// has limits of its own.
constexpr std::size_t kMaxDepth = 32;

bool isNameStart(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isNameChar(unsigned char c) {
  return isNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

// An attribute as written, before namespaces are resolved.
struct RawAttribute {
  std::u16string name;
  std::u16string value;
};

class Reader {
 public:
  Reader(unsigned char const* data, std::size_t size) : at_(data), end_(data + size) {}

  bool document(XmlNode& root) {
    if (!declaration()) return false;
    sx::skipSpaces(at_, end_);
    if (at_ == end_ || *at_ != '<') return false;
    ++at_;
    if (!element(root, 0)) return false;
    sx::skipSpaces(at_, end_);
    return at_ == end_;
  }

 private:
  struct Binding {
    std::u16string prefix;
    std::u16string uri;
  };

  bool declaration() {
    if (!sx::takeText(at_, end_, "<?xml")) return true;
    bool space = skipSpace();
    if (!space || !sx::takeText(at_, end_, "version") || !pseudoValue({"1.0"})) return false;
    space = skipSpace();
    if (space && sx::takeText(at_, end_, "encoding")) {
      if (!pseudoValue({"UTF-8", "utf-8"})) return false;
      space = skipSpace();
    }
    if (space && sx::takeText(at_, end_, "standalone")) {
      if (!pseudoValue({"yes", "no"})) return false;
      skipSpace();
    }
    return sx::takeText(at_, end_, "?>");
  }

  bool pseudoValue(std::initializer_list<std::string_view> allowed) {
    skipSpace();
    if (!sx::takeText(at_, end_, "=")) return false;
    skipSpace();
    if (at_ == end_ || (*at_ != '"' && *at_ != '\'')) return false;
    char const quote = static_cast<char>(*at_++);
    for (std::string_view const value : allowed) {
      unsigned char const* const from = at_;
      if (sx::takeText(at_, end_, value) && sx::takeText(at_, end_, std::string_view(&quote, 1))) {
        return true;
      }
      at_ = from;
    }
    return false;
  }

  bool skipSpace() {
    unsigned char const* const from = at_;
    sx::skipSpaces(at_, end_);
    return at_ != from;
  }

  // A qualified name of ASCII name characters with at most one colon, neither first nor last.
  bool name(std::u16string& out) {
    out.clear();
    if (at_ == end_ || !isNameStart(*at_)) return false;
    bool colon = false;
    while (at_ != end_) {
      unsigned char const c = *at_;
      if (isNameChar(c)) {
        out.push_back(c);
      } else if (c == ':' && !colon && at_ + 1 != end_ && isNameStart(at_[1])) {
        colon = true;
        out.push_back(c);
      } else {
        break;
      }
      ++at_;
    }
    return at_ != end_ && (sx::isSpace(*at_) || *at_ == '>' || *at_ == '/' || *at_ == '=');
  }

  static std::u16string_view prefixOf(std::u16string const& name) {
    std::size_t const colon = name.find(u':');
    return colon == std::u16string::npos ? std::u16string_view()
                                         : std::u16string_view(name).substr(0, colon);
  }

  static std::u16string_view localOf(std::u16string const& name) {
    std::size_t const colon = name.find(u':');
    return colon == std::u16string::npos ? std::u16string_view(name)
                                         : std::u16string_view(name).substr(colon + 1);
  }

  std::u16string const* lookup(std::u16string_view prefix) const {
    if (prefix == u"xml") return &xmlUri_;
    for (auto at = scope_.rbegin(); at != scope_.rend(); ++at) {
      if (at->prefix == prefix) return &at->uri;
    }
    return nullptr;
  }

  // The element after its "<": start tag, content, end tag.
  bool element(XmlNode& node, std::size_t depth) {
    if (depth >= kMaxDepth) return false;
    if (!name(node.name)) return false;
    std::vector<RawAttribute> raw;
    bool empty = false;
    for (;;) {
      bool const space = skipSpace();
      if (at_ == end_) return false;
      if (*at_ == '>') {
        ++at_;
        break;
      }
      if (*at_ == '/') {
        if (!sx::takeText(at_, end_, "/>")) return false;
        empty = true;
        break;
      }
      if (!space) return false;
      RawAttribute& attribute = raw.emplace_back();
      if (!name(attribute.name)) return false;
      bool const taken =
          sx::takeAttributeValue(at_, end_, attribute.value, [this](std::u16string& text) {
            text.push_back(*at_);
            ++at_;
          });
      if (!taken) return false;
    }
    std::size_t const scopeSize = scope_.size();
    if (!startElement(node, raw)) return false;
    if (!empty && !content(node, depth)) return false;
    scope_.resize(scopeSize);
    return true;
  }

  // Declarations first, as the parser binds them before it resolves any name of the tag.
  bool startElement(XmlNode& node, std::vector<RawAttribute>& raw) {
    std::sort(raw.begin(), raw.end(),
              [](RawAttribute const& a, RawAttribute const& b) { return a.name < b.name; });
    for (std::size_t i = 1; i < raw.size(); ++i) {
      if (raw[i - 1].name == raw[i].name) return false;
    }
    for (RawAttribute const& attribute : raw) {
      std::u16string_view const prefix = prefixOf(attribute.name);
      std::u16string_view const local = localOf(attribute.name);
      bool const isDefault = prefix.empty() && local == u"xmlns";
      if (!isDefault && prefix != u"xmlns") continue;
      if (prefix == u"xmlns" && (local == u"xml" || local == u"xmlns" || attribute.value.empty())) {
        return false;
      }
      if (attribute.value == kXmlNamespace || attribute.value == kXmlnsNamespace) return false;
      std::u16string declared = isDefault ? std::u16string() : std::u16string(local);
      scope_.push_back({declared, attribute.value});
      node.namespaceDeclarations.emplace_back(std::move(declared), attribute.value);
    }
    std::u16string_view const prefix = prefixOf(node.name);
    if (prefix == u"xmlns") return false;
    std::u16string const* uri = lookup(prefix);
    if (uri == nullptr) {
      if (!prefix.empty()) return false;
    } else {
      node.namespaceURI = *uri;
    }
    node.localName = localOf(node.name);
    bool namespaced = false;
    std::vector<std::pair<std::u16string_view, std::u16string_view>> expanded;
    for (RawAttribute& attribute : raw) {
      std::u16string_view const attributePrefix = prefixOf(attribute.name);
      if (attributePrefix == u"xmlns" || attribute.name == u"xmlns") continue;
      std::u16string ns;
      if (!attributePrefix.empty()) {
        std::u16string const* bound = lookup(attributePrefix);
        if (bound == nullptr || bound->empty()) return false;
        ns = *bound;
        namespaced = true;
      }
      node.attributes.emplace_back(std::move(attribute.name), std::move(attribute.value));
      node.attributeNamespaces.push_back(std::move(ns));
    }
    // One expanded name twice, through two prefixes of one namespace, is an error.
    for (std::size_t i = 0; i < node.attributes.size(); ++i) {
      if (node.attributeNamespaces[i].empty()) continue;
      for (std::size_t j = i + 1; j < node.attributes.size(); ++j) {
        if (node.attributeNamespaces[i] == node.attributeNamespaces[j] &&
            localOf(node.attributes[i].first) == localOf(node.attributes[j].first)) {
          return false;
        }
      }
    }
    if (!namespaced) node.attributeNamespaces.clear();
    return true;
  }

  // Text and child elements up to the end tag of `node`.
  bool content(XmlNode& node, std::size_t depth) {
    std::u16string run;
    for (;;) {
      if (at_ == end_) return false;
      unsigned char const c = *at_;
      if (c == '<') {
        ++at_;
        if (at_ == end_) return false;
        flush(node, run);
        if (*at_ == '/') {
          ++at_;
          return endTag(node);
        }
        // Comments, processing instructions, CDATA and declarations are the parser's.
        if (*at_ == '!' || *at_ == '?') return false;
        if (!element(node.children.emplace_back(), depth + 1)) return false;
      } else if (c == '&') {
        if (!sx::takeReference(at_, end_, run)) return false;
      } else if (c >= 0x80) {
        if (!sx::takeMultiByte(at_, end_, run)) return false;
      } else if (c == '\r' || (c < 0x20 && c != '\t' && c != '\n')) {
        // A carriage return is a line end that the parser normalises.
        return false;
      } else if (c == '>' && run.size() >= 2 && run[run.size() - 1] == u']' &&
                 run[run.size() - 2] == u']') {
        // "]]>" may not stand in text; a "]]" from references is checked the same way, which
        // only makes the reader give up more often.
        return false;
      } else {
        run.push_back(c);
        ++at_;
      }
    }
  }

  static void flush(XmlNode& node, std::u16string& run) {
    if (run.empty()) return;
    node.text += run;
    if (!node.children.empty()) node.children.back().tail += run;
    run.clear();
  }

  bool endTag(XmlNode const& node) {
    std::u16string closing;
    if (!name(closing) || closing != node.name) return false;
    skipSpace();
    return sx::takeText(at_, end_, ">");
  }

  unsigned char const* at_;
  unsigned char const* end_;
  std::vector<Binding> scope_;
  std::u16string const xmlUri_{kXmlNamespace};
};

}  // namespace

bool readPlainXml(unsigned char const* data, std::size_t size, XmlNode& root) {
  root = XmlNode();
  return Reader(data, size).document(root);
}

// The parser's view of a stream read ahead: the bytes kept, then the rest of the stream.
class ReadAhead::Replay final : public opc::InputStream {
 public:
  explicit Replay(ReadAhead& owner) : owner_(owner) {}
  ~Replay() override = default;

  void open() override {
    if (!owner_.opened_) std::rethrow_exception(owner_.failure_);
  }

  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::vector<unsigned char> const& bytes = owner_.bytes_;
    if (given_ < bytes.size()) {
      std::size_t const n = std::min(count, bytes.size() - given_);
      std::copy_n(bytes.data() + given_, n, buffer);
      given_ += n;
      return n;
    }
    if (owner_.failure_ != nullptr) {
      std::exception_ptr const failure = owner_.failure_;
      owner_.failure_ = nullptr;
      std::rethrow_exception(failure);
    }
    if (done_) return 0;
    return owner_.stream_.read(buffer, count);
  }

  bool isDone() const override {
    if (given_ < owner_.bytes_.size() || owner_.failure_ != nullptr) return false;
    return done_ || owner_.stream_.isDone();
  }

  void close() override { owner_.stream_.close(); }

  // Whether the stream had ended when the bytes were read ahead.
  bool done_ = false;

 private:
  ReadAhead& owner_;
  std::size_t given_ = 0;
};

ReadAhead::ReadAhead(opc::InputStream& stream, std::size_t limit) : stream_(stream) {
  bool done = false;
  std::size_t kept = 0;
  try {
    stream_.open();
    opened_ = true;
    // Read as the parser reads, up to a read that gives nothing.  Small parts take one step;
    // the buffer grows for larger ones.
    std::size_t step = 4096;
    for (;;) {
      bytes_.resize(kept + step);
      std::size_t const got = stream_.read(bytes_.data() + kept, step);
      kept += got;
      if (got == 0) break;
      if (kept > limit) {
        over_ = true;
        break;
      }
      step = std::min<std::size_t>(step * 2, 256 * 1024);
    }
    done = !over_;
  } catch (...) {
    failure_ = std::current_exception();
  }
  bytes_.resize(kept);
  replay_ = std::make_unique<Replay>(*this);
  replay_->done_ = done;
}

ReadAhead::~ReadAhead() = default;

void ReadAhead::close() { stream_.close(); }

opc::InputStream& ReadAhead::replay() { return *replay_; }

}  // namespace detail
}  // namespace model
}  // namespace opc
