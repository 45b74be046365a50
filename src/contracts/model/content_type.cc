#include <algorithm>
#include <string_view>

#include <opc/model/content_type.h>
#include <opc/model/exceptions.h>

#include "text_chars.h"

namespace opc {
namespace model {
namespace {

using Parameters = std::vector<std::pair<std::u16string, std::u16string>>;

// RFC 7230 "tchar".
bool isTokenCharacter(char16_t c) {
  if (detail::isAsciiAlpha(c) || detail::isAsciiDigit(c)) return true;
  return c != 0 && std::u16string_view(u"!#$%&'*+-.^_`|~").find(c) != std::u16string_view::npos;
}

bool isToken(std::u16string const& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

// What a quoted-string may hold, directly or after "\": HTAB, SP, VCHAR and obs-text.
bool isQuotableCharacter(char16_t c) {
  return c == u'\t' || (c >= 0x20 && c <= 0x7E) || (c >= 0x80 && c <= 0xFF);
}

bool isWhite(char16_t c) { return c == u' ' || c == u'\t'; }

Parameters::const_iterator findParameter(Parameters const& parameters, std::u16string const& name) {
  return std::find_if(parameters.begin(), parameters.end(), [&name](auto const& parameter) {
    return detail::asciiCaselessEqual(parameter.first, name);
  });
}

// Reads a content type text from left to right; every failure names the whole text.
class Parser {
 public:
  explicit Parser(std::u16string const& text) : text_(text) {}

  void parse(std::u16string& type, std::u16string& subType, Parameters& parameters) {
    if (text_.empty()) fail("a content type must not be empty");
    if (isWhite(text_.front())) fail("white space is not allowed at the start");
    if (isWhite(text_.back())) fail("white space is not allowed at the end");
    type = readToken();
    if (type.empty()) fail("the type is missing");
    if (atEnd()) fail("\"/\" and the subtype are missing");
    if (text_[position_] != u'/') failOnCharacter("in the type");
    ++position_;
    subType = readToken();
    if (subType.empty()) {
      if (atEnd() || text_[position_] == u';') fail("the subtype is missing");
      failOnCharacter("in the subtype");
    }
    std::string context = "in the subtype";
    while (!atEnd()) {
      bool const skippedWhite = skipWhite();
      if (text_[position_] != u';') {
        if (skippedWhite) fail("white space must be followed by \";\"");
        failOnCharacter(context);
      }
      ++position_;
      skipWhite();
      if (atEnd()) fail("a parameter must follow \";\"");
      std::u16string const name = readToken();
      if (name.empty()) {
        if (text_[position_] == u';') fail("a parameter must follow \";\"");
        failOnCharacter("in a parameter name");
      }
      std::string const described = "parameter " + detail::quotedAscii(name);
      if (atEnd() || text_[position_] == u';') fail(described + " has no value");
      if (text_[position_] != u'=') failOnCharacter("in " + described);
      ++position_;
      std::u16string value;
      if (!atEnd() && text_[position_] == u'"') {
        value = readQuotedValue(described);
        context = "after the quoted value of " + described;
      } else {
        value = readToken();
        if (value.empty()) {
          if (atEnd() || text_[position_] == u';' || isWhite(text_[position_])) {
            fail(described + " has no value");
          }
          failOnCharacter("in the value of " + described);
        }
        context = "in the value of " + described;
      }
      if (findParameter(parameters, name) != parameters.end()) {
        fail(described + " appears more than once");
      }
      parameters.emplace_back(name, value);
    }
  }

 private:
  bool atEnd() const { return position_ >= text_.size(); }

  std::u16string readToken() {
    std::size_t const start = position_;
    while (!atEnd() && isTokenCharacter(text_[position_])) ++position_;
    return text_.substr(start, position_ - start);
  }

  bool skipWhite() {
    std::size_t const start = position_;
    while (!atEnd() && isWhite(text_[position_])) ++position_;
    return position_ != start;
  }

  // Reads from the opening '"' to the closing one, and gives the text between them with
  // the escapes undone.
  std::u16string readQuotedValue(std::string const& described) {
    std::u16string value;
    ++position_;
    while (true) {
      if (atEnd()) fail("the quoted value of " + described + " is not closed");
      char16_t c = text_[position_];
      if (c == u'"') break;
      if (c == u'\\') {
        ++position_;
        if (atEnd()) fail("the quoted value of " + described + " is not closed");
        c = text_[position_];
      }
      if (!isQuotableCharacter(c)) failOnCharacter("in the value of " + described);
      value += c;
      ++position_;
    }
    ++position_;
    return value;
  }

  [[noreturn]] void failOnCharacter(std::string const& where) {
    std::size_t index = position_;
    char32_t const c = detail::nextCodePoint(text_, index);
    fail("character " + detail::describeCharacter(c) + " is not allowed " + where);
  }

  [[noreturn]] void fail(std::string const& reason) {
    throw InvalidContentType("Invalid content type " + detail::quotedAscii(text_) + ": " + reason);
  }

  std::u16string const& text_;
  std::size_t position_ = 0;
};

}  // namespace

ContentType::ContentType(std::u16string const& text) {
  Parser(text).parse(type_, subType_, parameters_);
}

ContentType::ContentType(char16_t const* text)
    : ContentType(text == nullptr ? std::u16string() : std::u16string(text)) {}

ContentType::ContentType(ContentType const& other) = default;
ContentType::ContentType(ContentType&& other) noexcept = default;
ContentType& ContentType::operator=(ContentType const& other) = default;
ContentType& ContentType::operator=(ContentType&& other) noexcept = default;
ContentType::~ContentType() = default;

bool ContentType::operator==(ContentType const& other) const {
  if (!detail::asciiCaselessEqual(type_, other.type_) ||
      !detail::asciiCaselessEqual(subType_, other.subType_) ||
      parameters_.size() != other.parameters_.size()) {
    return false;
  }
  // Names are unique within each side, so that equal counts and every name of this side
  // found with an equal value on the other make the two sets equal.
  for (auto const& parameter : parameters_) {
    auto const match = findParameter(other.parameters_, parameter.first);
    if (match == other.parameters_.end()) return false;
    bool const caseless = detail::asciiCaselessEqual(parameter.first, u"charset");
    if (caseless ? !detail::asciiCaselessEqual(parameter.second, match->second)
                 : parameter.second != match->second) {
      return false;
    }
  }
  return true;
}

bool ContentType::operator!=(ContentType const& other) const { return !(*this == other); }

bool ContentType::isWrittenAs(ContentType const& other) const {
  // Tokens and quoted values are written one way only, so equal fields are equal texts and
  // the other way round.
  return type_ == other.type_ && subType_ == other.subType_ && parameters_ == other.parameters_;
}

std::u16string ContentType::toString() const {
  std::u16string result = type_ + u"/" + subType_;
  for (auto const& [name, value] : parameters_) {
    result += u";" + name + u"=";
    if (isToken(value)) {
      result += value;
      continue;
    }
    result += u'"';
    for (char16_t c : value) {
      if (c == u'"' || c == u'\\') result += u'\\';
      result += c;
    }
    result += u'"';
  }
  return result;
}

std::u16string ContentType::getType() const { return type_; }

std::u16string ContentType::getSubType() const { return subType_; }

std::vector<std::pair<std::u16string, std::u16string>> ContentType::getParameters() const {
  return parameters_;
}

bool ContentType::hasParameter(std::u16string const& name) const {
  return findParameter(parameters_, name) != parameters_.end();
}

std::u16string ContentType::getParameterValue(std::u16string const& name) const {
  auto const found = findParameter(parameters_, name);
  return found == parameters_.end() ? std::u16string() : found->second;
}

void ContentType::addParameter(std::u16string const& name, std::u16string const& value) {
  if (name.empty()) {
    throw InvalidContentType("Invalid parameter name \"\" for content type " +
                             detail::quotedAscii(toString()) + ": a name must not be empty");
  }
  for (std::size_t i = 0; i < name.size();) {
    std::size_t const start = i;
    char32_t const c = detail::nextCodePoint(name, i);
    if (!isTokenCharacter(name[start])) {
      throw InvalidContentType("Invalid parameter name " + detail::quotedAscii(name) +
                               " for content type " + detail::quotedAscii(toString()) +
                               ": character " + detail::describeCharacter(c) + " is not allowed");
    }
  }
  for (std::size_t i = 0; i < value.size();) {
    std::size_t const start = i;
    char32_t const c = detail::nextCodePoint(value, i);
    if (!isQuotableCharacter(value[start])) {
      throw InvalidContentType("Invalid value for parameter " + detail::quotedAscii(name) +
                               " of content type " + detail::quotedAscii(toString()) +
                               ": character " + detail::describeCharacter(c) + " is not allowed");
    }
  }
  auto const found = findParameter(parameters_, name);
  if (found == parameters_.end()) {
    parameters_.emplace_back(name, value);
  } else {
    auto& slot = parameters_[static_cast<std::size_t>(found - parameters_.begin())];
    slot = {name, value};
  }
}

void ContentType::removeParameter(std::u16string const& name) {
  auto const found = findParameter(parameters_, name);
  if (found != parameters_.end()) parameters_.erase(found);
}

}  // namespace model
}  // namespace opc
