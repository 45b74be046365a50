// The decryption of an encrypted part: whatever its bytes and its content type, under a fixed
// key, reading it either gives the plaintext of a message that authenticates (encrypting that
// plaintext again under the IV in front gives exactly the part's bytes, in the one algorithm
// there is) or raises CouldNotTransformContentData, on every road: whole, two passes, and one
// pass checked at the end (whose bytes before the failure are never reported as done).  The
// content type is checked as the manager checks it: a type that does not parse is the model's
// refusal, and a type without "encryption" is not decrypted at all.
//
// Input: the content type, a line feed, then the part's bytes.  The first byte of the part
// also picks the size below which the content is decrypted whole, and the size of the reads.
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <memory>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include <opc/core/string_conversions.h>
#include <opc/model/content_type.h>
#include <opc/model/exceptions.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/errors.h>

#include "encryption/crypto_decryptor.h"
#include "encryption/crypto_encryptor.h"
#include "encryption/decryption_with_inline_iv_transform.h"
#include "fuzz_support.h"

namespace {

using opc::vkservices::bytes;
using opc::vkservices::CouldNotTransformContentData;
using opc::vkservices::DecryptionWithInlineIVTransform;
using opcvk_fuzz::check;
using opcvk_fuzz::printable;
using Authentication = DecryptionWithInlineIVTransform::Authentication;

bytes key() { return bytes(32, 0x42); }

// The transforms tell a failure on standard output; the engine's output stays readable.
struct NullBuffer : std::streambuf {
  int overflow(int c) override { return c; }
};

// What the transform delivers, read with reads of `size`; `stream` is the stream once there
// is one.
std::string readAll(opc::vkservices::IContentSource& source, std::size_t size,
                    opc::InputStream*& opened) {
  opc::InputStream& stream = source.getInputStream();
  opened = &stream;
  std::string out;
  std::vector<unsigned char> buffer(size);
  stream.open();
  std::size_t emptyReads = 0;
  while (!stream.isDone()) {
    std::size_t const got = stream.read(buffer.data(), buffer.size());
    out.append(reinterpret_cast<char const*>(buffer.data()), got);
    check(got != 0 || ++emptyReads < 1000, "a read before the end gives bytes",
          std::to_string(out.size()));
  }
  stream.close();
  return out;
}

// The stored form of `plain` under the IV in front of `stored`, made independently of the
// decrypting road.
std::string sealedAgain(std::string const& stored, std::string const& plain) {
  opc::vkservices::CryptoEncryptor encryptor(key());
  encryptor.initialize("AES256-GCM", bytes(stored.begin(), stored.begin() + 16));
  auto const* first = reinterpret_cast<std::uint8_t const*>(plain.data());
  bytes const sealed = encryptor.encrypt(first, first + plain.size());
  return stored.substr(0, 16) + std::string(sealed.begin(), sealed.end());
}

std::unique_ptr<opc::vkservices::IContentSource> over(std::istringstream& stream,
                                                      opc::model::ContentType const& type) {
  return std::make_unique<opc::vkservices::StreamContentSource>(stream, type);
}

void decrypt(std::string const& stored, opc::model::ContentType const& type,
             std::string const& typeAndMode, int road, std::size_t limit, std::size_t readSize) {
  std::string const shown = printable(stored.substr(0, 64)) + " as " + typeAndMode;
  std::istringstream first(stored);
  std::istringstream second(stored);
  auto decryptor = std::make_shared<opc::vkservices::CryptoDecryptor>(key());
  std::unique_ptr<DecryptionWithInlineIVTransform> source;
  if (road == 0) {
    source = std::make_unique<DecryptionWithInlineIVTransform>(over(first, type), decryptor,
                                                               typeAndMode);
  } else {
    auto reopen = [&second, &type] { return over(second, type); };
    source = std::make_unique<DecryptionWithInlineIVTransform>(
        over(first, type), decryptor, typeAndMode,
        road == 1 ? Authentication::BeforeFirstByte : Authentication::AtEnd, reopen, limit);
  }
  opc::InputStream* stream = nullptr;
  std::string plain;
  bool const delivered = opcvk_fuzz::succeeds<CouldNotTransformContentData>(
      "decrypt", shown, [&] { plain = readAll(*source, readSize, stream); });
  if (!delivered) {
    check(stream == nullptr || !stream->isDone(), "a failed stream never says it is done", shown);
    return;
  }
  check(typeAndMode == "AES256-GCM", "only the one algorithm decrypts", shown);
  check(stored.size() >= 32 && plain.size() == stored.size() - 32,
        "the plaintext is the part less its IV and tag", shown);
  check(sealedAgain(stored, plain) == stored, "what is delivered authenticates", shown);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static NullBuffer null;
  static std::streambuf* const quiet = std::cout.rdbuf(&null);
  (void)quiet;

  auto const [typeText, stored] =
      opcvk_fuzz::splitAt(std::string(reinterpret_cast<char const*>(data), size), '\n');
  opc::model::ContentType type(u"a/b");
  try {
    type = opc::model::ContentType(opcvk_fuzz::textFromBytes(typeText));
  } catch (opc::model::InvalidContentType const&) {
    return 0;
  }
  if (!type.hasParameter(u"encryption")) return 0;
  std::string const typeAndMode = opc::toASCIIString(type.getParameterValue(u"encryption"));
  std::size_t const pick = stored.empty() ? 0 : static_cast<unsigned char>(stored[0]);
  std::size_t const limit = pick % 97;
  std::size_t const readSize = pick % 13 + 1;
  for (int road = 0; road < 3; ++road) decrypt(stored, type, typeAndMode, road, limit, readSize);
  return 0;
}
