#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include <opc/model/exceptions.h>
#include <opc/model/part_name.h>

#include "package/part_table.h"
#include "part_name_rules.h"
#include "text_chars.h"
#include "uri_parts.h"

namespace opc {
namespace model {
namespace {

constexpr char16_t kRelationshipsFolder[] = u"_rels";
constexpr char16_t kRelationshipsExtension[] = u".rels";
constexpr std::size_t kRelationshipsExtensionLength = 5;
constexpr std::size_t kRelationshipsFolderLength = 5;

// Whether text[at, at + length) equals the lower-case ASCII `lower` without regard to ASCII
// case; in place, since every new part asks it of its name.
template <typename Char>
bool caselessEqualAt(std::basic_string_view<Char> text, std::size_t at, char16_t const* lower,
                     std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    if (detail::asciiLower(static_cast<char16_t>(text[at + i])) != lower[i]) return false;
  }
  return true;
}

[[noreturn]] void throwInvalidPartName(std::u16string const& text, std::string const& reason) {
  throw InvalidPartName("Invalid part name " + detail::quoted(text) + ": " + reason);
}

std::u16string validated(std::u16string const& name) {
  if (auto error = detail::findPartNameError(name)) throwInvalidPartName(name, *error);
  return name;
}

// The path of a relationship target, made absolute against the package root.
std::u16string pathOfTarget(URI const& uri) {
  std::u16string const text = uri.toString();
  if (text.empty()) throwInvalidPartName(text, "a part name must not be empty");
  detail::UriParts const parts = detail::splitUri(text);
  if (parts.scheme) throwInvalidPartName(text, "a part name must not have a scheme");
  if (parts.authority) throwInvalidPartName(text, "a part name must not have an authority");
  if (parts.query) throwInvalidPartName(text, "a part name must not have a query");
  if (parts.fragment) throwInvalidPartName(text, "a part name must not have a fragment");
  std::u16string const path = detail::removeDotSegments(
      !parts.path.empty() && parts.path[0] == u'/' ? parts.path : u"/" + parts.path);
  if (auto error = detail::findPartNameError(path)) throwInvalidPartName(text, *error);
  return path;
}

// Where the last two segments of a name start: the index after the second-to-last "/"
// and after the last "/".  A name of one segment has no second-to-last segment.
struct LastSegments {
  std::size_t folderStart;
  std::size_t lastStart;
  bool hasFolder;
};

template <typename Char>
LastSegments findLastSegments(std::basic_string_view<Char> name) {
  std::size_t const lastSlash = name.rfind(Char('/'));
  LastSegments result{0, lastSlash + 1, lastSlash > 0};
  if (result.hasFolder) result.folderStart = name.rfind(Char('/'), lastSlash - 1) + 1;
  return result;
}

template <typename Char>
bool isRelationshipText(std::basic_string_view<Char> name) {
  LastSegments const segments = findLastSegments(name);
  if (!segments.hasFolder) return false;
  std::size_t const folderLength = segments.lastStart - 1 - segments.folderStart;
  std::size_t const lastLength = name.size() - segments.lastStart;
  return folderLength == kRelationshipsFolderLength &&
         caselessEqualAt(name, segments.folderStart, kRelationshipsFolder,
                         kRelationshipsFolderLength) &&
         lastLength >= kRelationshipsExtensionLength &&
         caselessEqualAt(name, name.size() - kRelationshipsExtensionLength, kRelationshipsExtension,
                         kRelationshipsExtensionLength);
}

}  // namespace

// The block of a name: its counters, then the text, then the key and a terminating zero.  A
// name of ASCII only (nearly all) keeps its text in bytes, and none at all when it is its own
// key (no capital letter): the block then holds the name once instead of three times over.
struct PartName::Rep {
  enum class Form : std::uint8_t {
    Wide,    // the text in UTF-16
    Narrow,  // the text in ASCII bytes
    Key,     // the text is the key
  };

  std::atomic<std::uint32_t> references;
  std::uint32_t textLength;
  std::uint32_t keyLength;
  Form form;

  char16_t const* wide() const { return reinterpret_cast<char16_t const*>(this + 1); }
  char const* narrow() const { return reinterpret_cast<char const*>(this + 1); }
  char* key() {
    char* const after = reinterpret_cast<char*>(this + 1);
    switch (form) {
      case Form::Wide:
        return after + textLength * sizeof(char16_t);
      case Form::Narrow:
        return after + textLength;
      case Form::Key:
        break;
    }
    return after;
  }
  std::string_view keyView() { return std::string_view(key(), keyLength); }
  std::string_view asciiView() {
    if (form == Form::Wide) return std::string_view();
    return std::string_view(form == Form::Narrow ? narrow() : key(), textLength);
  }

  std::u16string toText() {
    if (form == Form::Wide) return std::u16string(wide(), textLength);
    char const* const bytes = form == Form::Narrow ? narrow() : key();
    return std::u16string(bytes, bytes + textLength);
  }
  bool isRelationshipName() {
    if (form == Form::Wide) return isRelationshipText(std::u16string_view(wide(), textLength));
    char const* const bytes = form == Form::Narrow ? narrow() : key();
    return isRelationshipText(std::string_view(bytes, textLength));
  }

  static Form formOf(std::u16string_view text, std::string_view key) {
    // Loops without an exit on the way, which the compiler turns into a few wide steps: the
    // names of a deep tree are hundreds of characters long.
    char16_t seen = 0;
    for (char16_t const c : text) seen |= c;
    if (seen >= 0x80) return Form::Wide;
    if (text.size() != key.size()) return Form::Narrow;
    unsigned differ = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      differ |= static_cast<unsigned char>(static_cast<char>(text[i]) ^ key[i]);
    }
    return differ == 0 ? Form::Key : Form::Narrow;
  }

  static Rep* make(std::u16string_view text, std::string_view key) {
    static_assert(sizeof(Rep) % alignof(char16_t) == 0, "the text follows the counters");
    Form const form = formOf(text, key);
    std::size_t const textBytes = form == Form::Wide     ? text.size() * sizeof(char16_t)
                                  : form == Form::Narrow ? text.size()
                                                         : 0;
    Rep* rep = static_cast<Rep*>(::operator new(sizeof(Rep) + textBytes + key.size() + 1));
    new (&rep->references) std::atomic<std::uint32_t>(1);
    rep->textLength = static_cast<std::uint32_t>(text.size());
    rep->keyLength = static_cast<std::uint32_t>(key.size());
    rep->form = form;
    char* const after = reinterpret_cast<char*>(rep + 1);
    if (form == Form::Wide && !text.empty()) std::memcpy(after, text.data(), textBytes);
    if (form == Form::Narrow) std::copy(text.begin(), text.end(), after);
    if (!key.empty()) std::memcpy(rep->key(), key.data(), key.size());
    rep->key()[key.size()] = '\0';
    return rep;
  }
  static Rep* share(Rep* rep) {
    if (rep) rep->references.fetch_add(1, std::memory_order_relaxed);
    return rep;
  }
  static void release(Rep* rep) {
    if (rep && rep->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      rep->references.~atomic();
      ::operator delete(rep);
    }
  }
};

PartName::PartName(std::u16string const& name) : rep_(nullptr) {
  std::u16string const text = validated(name);
  rep_ = Rep::make(text, detail::makePartNameKey(text));
}

PartName::PartName(URI const& uri) : rep_(nullptr) {
  std::u16string const text = pathOfTarget(uri);
  rep_ = Rep::make(text, detail::makePartNameKey(text));
}

PartName::PartName(std::u16string const& name, std::string const& key)
    : rep_(Rep::make(name, key)) {}

PartName::PartName(std::u16string_view name, std::string_view key) : rep_(Rep::make(name, key)) {}

PartName::PartName(PartName const& other) : rep_(Rep::share(other.rep_)) {}

PartName::PartName(PartName&& other) noexcept : rep_(other.rep_) { other.rep_ = nullptr; }

PartName& PartName::operator=(PartName const& other) {
  Rep* const shared = Rep::share(other.rep_);
  Rep::release(rep_);
  rep_ = shared;
  return *this;
}

PartName& PartName::operator=(PartName&& other) noexcept {
  if (this != &other) {
    Rep::release(rep_);
    rep_ = other.rep_;
    other.rep_ = nullptr;
  }
  return *this;
}

PartName::~PartName() { Rep::release(rep_); }

std::string_view PartName::key() const { return rep_ ? rep_->keyView() : std::string_view(); }

std::string_view PartName::asciiText() const {
  return rep_ ? rep_->asciiView() : std::string_view();
}

bool PartName::isValid(std::u16string const& name) {
  return !detail::findPartNameError(name).has_value();
}

std::u16string PartName::toString() const { return rep_ ? rep_->toText() : std::u16string(); }

URI PartName::getURI() const { return URI(toString()); }

bool PartName::isRelationshipName() const { return rep_ && rep_->isRelationshipName(); }

PartName PartName::getRelationshipsPartName() const {
  std::u16string const full = toString();
  if (isRelationshipName()) {
    throw InvalidPartName("Invalid source part name " + detail::quoted(full) +
                          ": a relationships part cannot have relationships");
  }
  LastSegments const segments = findLastSegments(std::u16string_view(full));
  // Adding a "_rels" segment and the ".rels" extension keeps every rule of the grammar, so
  // the result needs no second validation.
  std::u16string const name = full.substr(0, segments.lastStart) + kRelationshipsFolder + u"/" +
                              full.substr(segments.lastStart) + kRelationshipsExtension;
  return PartName(name, detail::makePartNameKey(name));
}

PartName PartName::getPackageRelationshipsPartName() { return PartName(u"/_rels/.rels"); }

boost::optional<PartName> PartName::getRelationshipsSourceName() const {
  std::u16string const full = toString();
  if (!isRelationshipName()) {
    throw InvalidPartName("Invalid relationships part name " + detail::quoted(full) +
                          ": it must lie in a \"_rels\" folder and end with \".rels\"");
  }
  LastSegments const segments = findLastSegments(std::u16string_view(full));
  std::u16string const source = full.substr(0, segments.folderStart) +
                                full.substr(segments.lastStart, full.size() - segments.lastStart -
                                                                    kRelationshipsExtensionLength);
  if (source == u"/") return boost::none;
  if (!isValid(source)) {
    throw InvalidPartName("Invalid relationships part name " + detail::quoted(full) +
                          ": its source " + detail::quoted(source) + " is not a valid part name");
  }
  return PartName(source, detail::makePartNameKey(source));
}

bool PartName::isDerivedFrom(PartName const& other) const {
  std::string_view const key = this->key();
  std::string_view const base = other.key();
  return key.size() > base.size() && key.compare(0, base.size(), base) == 0 &&
         key[base.size()] == '/';
}

bool PartName::operator==(PartName const& other) const {
  return rep_ == other.rep_ || key() == other.key();
}

bool PartName::operator!=(PartName const& other) const { return !(*this == other); }

bool PartName::operator<(PartName const& other) const { return key() < other.key(); }

// The part table's hash of the key: names come from packages and folders that anyone may
// write, and the standard string hash, with its fixed constants, would let them be chosen to
// collide; the table's is seeded for the process.
std::size_t PartName::hash() const { return detail::PartTable::hashOf(key()); }

}  // namespace model
}  // namespace opc
