// Strict base64: whatever the text, decoding either gives bytes whose encoding is exactly
// that text (so no two texts mean the same bytes), or raises utils::Exception, and nothing
// else.  The same input read as bytes encodes to text of the right length and alphabet that
// decodes back to it.
#include <cstddef>
#include <cstdint>
#include <string>

#include <foundation/crypto/encoding.h>
#include <foundation/crypto/exceptions.h>

#include "fuzz_support.h"

namespace {

using foundation::crypto::bytes;
using foundation::crypto::utils::base64Decode;
using foundation::crypto::utils::base64Encode;
using opcvk_fuzz::check;
using opcvk_fuzz::printable;

bool isBase64Character(char16_t c) {
  return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9') ||
         c == u'+' || c == u'/' || c == u'=';
}

void checkDecoding(std::u16string const& text) {
  std::string const shown = printable(text);
  bytes decoded;
  bool const accepted = opcvk_fuzz::succeeds<foundation::crypto::utils::Exception>(
      "base64Decode", shown, [&] { decoded = base64Decode(text); });
  if (!accepted) return;
  check(base64Encode(decoded) == text, "accepted text is the one encoding of its bytes", shown);
  std::size_t padding = 0;
  while (padding < text.size() && text[text.size() - 1 - padding] == u'=') ++padding;
  check(padding <= 2 && decoded.size() == text.size() / 4 * 3 - padding,
        "three bytes per four characters, less one per padding character", shown);
}

void checkEncoding(std::string const& input) {
  bytes const data(input.begin(), input.end());
  std::u16string text;
  opcvk_fuzz::mustNotThrow("base64Encode", printable(input), [&] { text = base64Encode(data); });
  check(text.size() == (data.size() + 2) / 3 * 4, "four characters per three bytes, padded",
        printable(input));
  for (char16_t c : text) check(isBase64Character(c), "only the alphabet", printable(text));
  bytes back;
  opcvk_fuzz::mustNotThrow("base64Decode", printable(text), [&] { back = base64Decode(text); });
  check(back == data, "encoding then decoding gives the bytes back", printable(input));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const input(reinterpret_cast<char const*>(data), size);
  checkDecoding(opcvk_fuzz::textFromBytes(input));
  checkEncoding(input);
  return 0;
}
