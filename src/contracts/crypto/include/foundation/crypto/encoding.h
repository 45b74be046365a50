// Text forms of bytes: hexadecimal and base64.
#ifndef FOUNDATION_CRYPTO_ENCODING_H_
#define FOUNDATION_CRYPTO_ENCODING_H_

#include <string>

#include <foundation/crypto/export.h>
#include <foundation/crypto/secure_bytes.h>

namespace foundation {
namespace crypto {
namespace utils {

// `data` as hexadecimal text, two lower-case digits per byte, high nibble first ("00ff1a");
// empty for no bytes.  Never raises but std::bad_alloc.  Thread-safe.
FOUNDATION_CRYPTO_EXPORT std::u16string hexEncode(bytes const& data);

// `data` in base64 (RFC 4648, section 4: the standard alphabet with "+" and "/", padded
// with "=" to a multiple of four characters, no line breaks); empty for no bytes.
// Thread-safe.
FOUNDATION_CRYPTO_EXPORT std::u16string base64Encode(bytes const& data);

// The bytes of the base64 `text`, read strictly: exactly what base64Encode writes is
// accepted, so that every text has at most one meaning.  Raises utils::Exception, naming
// what is wrong and where, for a length that is not a multiple of four, any character
// outside the alphabet (white space and line breaks included), "=" anywhere but in the last
// one or two places, and set bits that the padding leaves unused ("QR==" for "QQ==").
// Empty text gives no bytes.  Thread-safe.
FOUNDATION_CRYPTO_EXPORT bytes base64Decode(std::u16string const& text);

}  // namespace utils
}  // namespace crypto
}  // namespace foundation

#endif  // FOUNDATION_CRYPTO_ENCODING_H_
