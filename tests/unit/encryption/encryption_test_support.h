// Shared by the encryption tests: keys, the message of the whole-message form computed with
// the crypto library alone, content sources over memory, and engines that count or fail.
#ifndef TESTS_UNIT_ENCRYPTION_ENCRYPTION_TEST_SUPPORT_H_
#define TESTS_UNIT_ENCRYPTION_ENCRYPTION_TEST_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <foundation/crypto/aes_encryptor.h>
#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <opc/vkservices/bytes.h>
#include <opc/vkservices/i_decryptor.h>
#include <opc/vkservices/i_encryptor.h>

#include "encryption/iv_generator.h"
#include "unit/content/transform_test_util.h"
#include "unit/crypto/crypto_test_support.h"

namespace opcvk_test {

inline opc::vkservices::bytes keyA() { return fromHex(std::string(64, 'a')); }
inline opc::vkservices::bytes keyB() { return fromHex(std::string(63, 'a') + "b"); }

inline std::string text(opc::vkservices::bytes const& data) {
  return std::string(data.begin(), data.end());
}

// `size` bytes of a simple pattern that no two nearby offsets share.
inline std::string pattern(std::size_t size) {
  std::string out(size, '\0');
  for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<char>((i * 131 + i / 251) & 0xFF);
  return out;
}

// The layout that another implementation writes: IV, then AES-256-GCM of the whole plaintext
// with the tag after it, made with the crypto library directly.
inline std::string inlineIVMessage(opc::vkservices::bytes const& key,
                                   opc::vkservices::bytes const& iv, std::string const& plain) {
  foundation::crypto::CryptoEngine const engine(
      std::make_shared<foundation::crypto::cryptopp::CryptoProvider>());
  auto encryptor = engine.createAES256Encryptor(
      engine.createAES256Key(key), iv, foundation::crypto::utils::AESMode::GCM,
      foundation::crypto::utils::AESPaddingMode::PKCS7,
      foundation::crypto::CryptoEngine::getDefaultCryptoPRNG());
  opc::vkservices::bytes const sealed = encryptor.encrypt(bytesOf(plain));
  return text(iv) + text(sealed);
}

// A source over memory whose record the test keeps.
inline std::unique_ptr<MemorySource> memorySource(
    std::shared_ptr<MemorySourceRecord> const& record) {
  return std::make_unique<MemorySource>(record);
}

inline std::shared_ptr<MemorySourceRecord> memoryRecord(
    std::string content, std::u16string const& type,
    std::size_t chunk = static_cast<std::size_t>(-1)) {
  auto record = std::make_shared<MemorySourceRecord>(std::move(content), chunk);
  record->type = opc::model::ContentType(type);
  return record;
}

// IVs 0x01.., 0x02.., one per call, counted.
class CountingIVGenerator : public opc::vkservices::IVGenerator {
 public:
  CountingIVGenerator() : IVGenerator(16) {}
  opc::vkservices::bytes generate() override {
    ++calls;
    return opc::vkservices::bytes(16, static_cast<std::uint8_t>(calls));
  }
  int calls = 0;
};

// An encryptor of another kind than the library's: it XORs with the first IV byte and
// appends "TAG", so that only the whole-message road can serve it.
class XorEncryptor : public opc::vkservices::IEncryptor {
 public:
  void initialize(std::string const& typeAndMode, opc::vkservices::bytes const& iv) override {
    initialized.push_back(typeAndMode);
    key_ = iv.empty() ? 0 : iv[0];
    if (failWith == 1) throw std::runtime_error("scripted failure");
    if (failWith == 2) throw 42;
  }
  opc::vkservices::bytes encrypt(std::uint8_t const* first, std::uint8_t const* last) override {
    opc::vkservices::bytes out;
    for (; first != last; ++first) out.push_back(static_cast<std::uint8_t>(*first ^ key_));
    out.insert(out.end(), {'T', 'A', 'G'});
    return out;
  }
  std::vector<std::string> initialized;
  int failWith = 0;

 private:
  std::uint8_t key_ = 0;
};

}  // namespace opcvk_test

#endif  // TESTS_UNIT_ENCRYPTION_ENCRYPTION_TEST_SUPPORT_H_
