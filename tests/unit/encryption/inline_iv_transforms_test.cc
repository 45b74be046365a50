// EncryptionWithInlineIVTransform and DecryptionWithInlineIVTransform: the stored form of an
// encrypted part, the console lines and failures, and reading in bounded memory without ever
// handing out bytes that did not authenticate.
#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <opc/vkservices/errors.h>

#include "encryption/crypto_decryptor.h"
#include "encryption/crypto_encryptor.h"
#include "encryption/decryption_with_inline_iv_transform.h"
#include "encryption/encryption_with_inline_iv_transform.h"
#include "support/expect_exception.h"
#include "unit/encryption/encryption_test_support.h"

namespace {

using opc::vkservices::bytes;
using opc::vkservices::CouldNotTransformContentData;
using opc::vkservices::CryptoDecryptor;
using opc::vkservices::CryptoEncryptor;
using opc::vkservices::DecryptionWithInlineIVTransform;
using opc::vkservices::EncryptionWithInlineIVTransform;
using opcvk_test::CountingIVGenerator;
using opcvk_test::drain;
using opcvk_test::inlineIVMessage;
using opcvk_test::keyA;
using opcvk_test::keyB;
using opcvk_test::memoryRecord;
using opcvk_test::memorySource;
using opcvk_test::pattern;
using Authentication = DecryptionWithInlineIVTransform::Authentication;

constexpr std::size_t kLimit = DecryptionWithInlineIVTransform::kWholeMessageLimit;
constexpr char kJson[] =
    "Failure when attempting to transform data for content type:"
    "application/json;encryption=AES256-GCM;iv=inline";

bytes firstIV() { return bytes(16, 1); }

std::unique_ptr<EncryptionWithInlineIVTransform> encrypting(
    std::shared_ptr<opcvk_test::MemorySourceRecord> const& record,
    std::shared_ptr<opc::vkservices::IEncryptor> encryptor =
        std::make_shared<CryptoEncryptor>(keyA()),
    std::shared_ptr<CountingIVGenerator> generator = std::make_shared<CountingIVGenerator>(),
    std::string const& name = "AES256-GCM") {
  return std::make_unique<EncryptionWithInlineIVTransform>(
      memorySource(record), std::move(encryptor), name, std::move(generator));
}

// A decrypting transform over `stored`, whose second reading gives `again` (the same bytes
// unless a test changes them in between).
std::unique_ptr<DecryptionWithInlineIVTransform> decrypting(
    std::string const& stored, Authentication authentication = Authentication::BeforeFirstByte,
    bytes const& key = keyA(), std::string const& name = "AES256-GCM",
    std::string const* again = nullptr, int* reopened = nullptr) {
  auto record = memoryRecord(stored, u"application/json;encryption=AES256-GCM;iv=inline");
  std::string const second = again != nullptr ? *again : stored;
  DecryptionWithInlineIVTransform::Reopen reopen = [second, reopened] {
    if (reopened != nullptr) ++*reopened;
    return std::unique_ptr<opc::vkservices::IContentSource>(
        memorySource(memoryRecord(second, u"application/json;encryption=AES256-GCM;iv=inline")));
  };
  return std::make_unique<DecryptionWithInlineIVTransform>(memorySource(record),
                                                           std::make_shared<CryptoDecryptor>(key),
                                                           name, authentication, std::move(reopen));
}

std::string flipped(std::string value, std::size_t bit) {
  value[bit / 8] = static_cast<char>(value[bit / 8] ^ (1 << (bit % 8)));
  return value;
}

// Reads with reads of `size` and keeps what was delivered before a failure.
std::string readUntilFailure(opc::InputStream& stream, std::size_t size, bool& failed) {
  std::string out;
  std::vector<unsigned char> buffer(size);
  failed = false;
  try {
    stream.open();
    while (!stream.isDone()) {
      std::size_t const n = stream.read(buffer.data(), buffer.size());
      out.append(reinterpret_cast<char const*>(buffer.data()), n);
    }
  } catch (CouldNotTransformContentData const&) {
    failed = true;
  }
  return out;
}

class SizesTest : public ::testing::TestWithParam<std::size_t> {};

TEST_P(SizesTest, EncryptedContentIsTheIVThenTheWholeMessage) {
  std::string const plain = pattern(GetParam());
  for (std::size_t chunk : {std::size_t{1000}, std::size_t{65536}, static_cast<std::size_t>(-1)}) {
    if (chunk == 1000 && GetParam() > 100000) continue;
    auto source = encrypting(memoryRecord(plain, u"application/json", chunk));
    EXPECT_EQ(drain(*source), inlineIVMessage(keyA(), firstIV(), plain)) << chunk;
  }
}

TEST_P(SizesTest, DecryptionGivesThePlaintextBackEitherWay) {
  std::string const plain = pattern(GetParam());
  std::string const stored = inlineIVMessage(keyA(), firstIV(), plain);
  for (Authentication authentication : {Authentication::BeforeFirstByte, Authentication::AtEnd}) {
    auto source = decrypting(stored, authentication);
    EXPECT_EQ(drain(*source), plain);
    EXPECT_EQ(opcvk_test::readAll(source->getInputStream(), 1), "") << "read once only";
  }
  // The whole-message road, without a way to read twice.
  auto whole = std::make_unique<DecryptionWithInlineIVTransform>(
      memorySource(memoryRecord(stored, u"a/b;encryption=AES256-GCM")),
      std::make_shared<CryptoDecryptor>(keyA()), "AES256-GCM");
  EXPECT_EQ(drain(*whole), plain);
}

INSTANTIATE_TEST_SUITE_P(AroundPiecesAndTheWholeMessageLimit, SizesTest,
                         ::testing::Values(0, 1, 15, 16, 17, 65536, 65537, 262144 + 3, kLimit - 32,
                                           kLimit - 31, kLimit + 1, 2 * kLimit + 12345));

// Reads of `first` bytes up to `switchAt`, then of 64 KiB.
std::string readInSizes(opc::InputStream& stream, std::size_t first, std::size_t switchAt) {
  std::string out;
  std::vector<unsigned char> buffer(65536);
  stream.open();
  while (!stream.isDone()) {
    std::size_t const size = out.size() < switchAt ? first : buffer.size();
    out.append(reinterpret_cast<char const*>(buffer.data()), stream.read(buffer.data(), size));
  }
  stream.close();
  return out;
}

TEST(InlineIVTransformsTest, ReaderSizesDoNotChangeTheBytes) {
  std::string const plain = pattern(kLimit + 5000);
  std::string const stored = inlineIVMessage(keyA(), firstIV(), plain);
  for (std::size_t size : {1U, 17U, 4096U}) {
    auto source = decrypting(stored);
    EXPECT_EQ(readInSizes(source->getInputStream(), size, 20000), plain) << size;
    auto encrypted = encrypting(memoryRecord(plain, u"a/b", size * 1000 + 1));
    EXPECT_EQ(readInSizes(encrypted->getInputStream(), size, 20000), stored) << size;
  }
}

TEST(InlineIVTransformsTest, TypeGainsEncryptionThenIv) {
  auto source = encrypting(memoryRecord("x", u"application/json"));
  EXPECT_EQ(source->getContentType().toString(),
            u"application/json;encryption=AES256-GCM;iv=inline");
  auto text = encrypting(memoryRecord("x", u"text/plain;charset=utf-8"));
  EXPECT_EQ(text->getContentType().toString(),
            u"text/plain;charset=utf-8;encryption=AES256-GCM;iv=inline");
}

TEST(InlineIVTransformsTest, DecryptionRemovesBothParametersAndKeepsTheOthers) {
  auto record = memoryRecord("", u"text/plain;charset=utf-8;encryption=AES256-GCM;iv=inline;x=y");
  DecryptionWithInlineIVTransform source(memorySource(record),
                                         std::make_shared<CryptoDecryptor>(keyA()), "AES256-GCM");
  EXPECT_EQ(source.getContentType().toString(), u"text/plain;charset=utf-8;x=y");
}

TEST(InlineIVTransformsTest, OneIVIsDrawnPerMessageAndNoneForTheType) {
  auto generator = std::make_shared<CountingIVGenerator>();
  auto encryptor = std::make_shared<opcvk_test::XorEncryptor>();
  auto source = encrypting(memoryRecord("abc", u"a/b"), encryptor, generator);
  source->getContentType();
  EXPECT_EQ(generator->calls, 0);
  source->getInputStream();
  source->getInputStream();
  source->getContentType();
  EXPECT_EQ(generator->calls, 1);
  EXPECT_EQ(encryptor->initialized, std::vector<std::string>{"AES256-GCM"});

  auto streamed =
      encrypting(memoryRecord("abc", u"a/b"), std::make_shared<CryptoEncryptor>(keyA()), generator);
  drain(*streamed);
  streamed->getInputStream();
  EXPECT_EQ(generator->calls, 2);
}

// An encryptor that is not the library's gets the whole content at once.
TEST(InlineIVTransformsTest, OtherEncryptorsGetTheWholeMessage) {
  auto source =
      encrypting(memoryRecord("abc", u"a/b"), std::make_shared<opcvk_test::XorEncryptor>());
  EXPECT_EQ(drain(*source), std::string(16, '\x01') + "\x60\x63\x62TAG");
}

TEST(InlineIVTransformsTest, UnknownAlgorithmFailsEncryptionWithItsLine) {
  for (bool library : {true, false}) {
    std::shared_ptr<opc::vkservices::IEncryptor> encryptor;
    if (library) {
      encryptor = std::make_shared<CryptoEncryptor>(keyA());
    } else {
      auto scripted = std::make_shared<opcvk_test::XorEncryptor>();
      scripted->failWith = 1;
      encryptor = scripted;
    }
    auto source = encrypting(memoryRecord("abc", u"application/json"), encryptor,
                             std::make_shared<CountingIVGenerator>(), "AES128-GCM");
    testing::internal::CaptureStdout();
    EXPECT_THROW_MESSAGE(source->getInputStream(), CouldNotTransformContentData,
                         "Failure when attempting to transform data for content type:"
                         "application/json");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              library
                  ? "An error occurred during encryption:Unsupported encryption type and mode.\n"
                  : "An error occurred during encryption:scripted failure\n");
  }
}

TEST(InlineIVTransformsTest, FailureOfAnotherKindHasTheLineWithoutMessage) {
  auto encryptor = std::make_shared<opcvk_test::XorEncryptor>();
  encryptor->failWith = 2;
  auto source = encrypting(memoryRecord("abc", u"a/b"), encryptor);
  testing::internal::CaptureStdout();
  EXPECT_THROW(source->getInputStream(), CouldNotTransformContentData);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "An error occurred during encryption.\n");
}

// The algorithm is judged when the content is read, not when the source is made.
TEST(InlineIVTransformsTest, UnknownAlgorithmOpensAndFailsAtTheFirstRead) {
  for (std::size_t size : {std::size_t{10}, kLimit + 10}) {
    auto source = decrypting(inlineIVMessage(keyA(), firstIV(), pattern(size)),
                             Authentication::BeforeFirstByte, keyA(), "AES128-GCM");
    EXPECT_EQ(source->getContentType().toString(), u"application/json");
    testing::internal::CaptureStdout();
    EXPECT_THROW_MESSAGE(source->getInputStream(), CouldNotTransformContentData, kJson);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "An error occurred during decryption:Unsupported decryption type and mode.\n");
  }
}

TEST(InlineIVTransformsTest, ContentTooShortForIVAndTagFails) {
  for (std::size_t size : {0U, 1U, 15U, 16U, 31U}) {
    auto source = decrypting(pattern(size));
    testing::internal::CaptureStdout();
    EXPECT_THROW_MESSAGE(source->getInputStream(), CouldNotTransformContentData, kJson) << size;
    std::string const line = testing::internal::GetCapturedStdout();
    EXPECT_EQ(line.rfind("An error occurred during decryption:", 0), 0U) << line;
  }
}

TEST(InlineIVTransformsTest, WrongKeyFailsBeforeAnyByte) {
  for (std::size_t size : {std::size_t{100}, kLimit + 100}) {
    auto source = decrypting(inlineIVMessage(keyA(), firstIV(), pattern(size)),
                             Authentication::BeforeFirstByte, keyB());
    testing::internal::CaptureStdout();
    EXPECT_THROW_MESSAGE(source->getInputStream(), CouldNotTransformContentData, kJson);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "An error occurred during decryption:The data does not authenticate under this key "
              "and IV: it was altered, or the key is wrong.\n");
  }
}

TEST(InlineIVTransformsTest, EverySingleBitFlipOfASmallPartIsDetected) {
  std::string const stored = inlineIVMessage(keyA(), firstIV(), "8 bytes!");
  ASSERT_EQ(stored.size(), 40U);
  testing::internal::CaptureStdout();
  for (std::size_t bit = 0; bit < stored.size() * 8; ++bit) {
    auto source = decrypting(flipped(stored, bit));
    EXPECT_THROW(source->getInputStream(), CouldNotTransformContentData) << bit;
  }
  testing::internal::GetCapturedStdout();
}

TEST(InlineIVTransformsTest, FlipsInLargeContentFailBeforeTheFirstByte) {
  std::string const stored = inlineIVMessage(keyA(), firstIV(), pattern(kLimit + 1000));
  testing::internal::CaptureStdout();
  for (std::size_t byte : {std::size_t{0}, std::size_t{15}, std::size_t{16}, kLimit / 2, kLimit + 1,
                           stored.size() - 17, stored.size() - 16, stored.size() - 1}) {
    int reopened = 0;
    auto source = decrypting(flipped(stored, byte * 8 + 3), Authentication::BeforeFirstByte, keyA(),
                             "AES256-GCM", nullptr, &reopened);
    EXPECT_THROW_MESSAGE(source->getInputStream(), CouldNotTransformContentData, kJson) << byte;
    EXPECT_EQ(reopened, 0) << "no second reading after a failed first";
  }
  testing::internal::GetCapturedStdout();
}

// In one pass the bytes come before the tag: the read that meets the end fails, and the
// stream never says it is done.
TEST(InlineIVTransformsTest, OnePassFailsAtTheEnd) {
  std::string const plain = pattern(kLimit + 1000);
  std::string const stored = inlineIVMessage(keyA(), firstIV(), plain);
  testing::internal::CaptureStdout();
  for (std::size_t byte : {kLimit / 2, stored.size() - 1}) {
    auto source = decrypting(flipped(stored, byte * 8), Authentication::AtEnd);
    bool failed = false;
    std::string const got = readUntilFailure(source->getInputStream(), 65536, failed);
    EXPECT_TRUE(failed) << byte;
    EXPECT_LT(got.size(), plain.size()) << "the last piece is not delivered";
    EXPECT_FALSE(source->getInputStream().isDone());
  }
  testing::internal::GetCapturedStdout();
}

TEST(InlineIVTransformsTest, ContentChangedBetweenThePassesFailsAtTheEnd) {
  std::string const plain = pattern(kLimit + 1000);
  std::string const stored = inlineIVMessage(keyA(), firstIV(), plain);
  std::string const changed = flipped(stored, (kLimit / 2) * 8);
  int reopened = 0;
  auto source = decrypting(stored, Authentication::BeforeFirstByte, keyA(), "AES256-GCM", &changed,
                           &reopened);
  testing::internal::CaptureStdout();
  opc::InputStream& stream = source->getInputStream();
  EXPECT_EQ(reopened, 1);
  bool failed = false;
  std::string const got = readUntilFailure(stream, 65536, failed);
  std::string const line = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(failed);
  EXPECT_LT(got.size(), plain.size());
  EXPECT_EQ(line,
            "An error occurred during decryption:The data does not authenticate under this key "
            "and IV: it was altered, or the key is wrong.\n");
}

TEST(InlineIVTransformsTest, ContentWithAnotherIVTheSecondTimeFailsAtOnce) {
  std::string const stored = inlineIVMessage(keyA(), firstIV(), pattern(kLimit + 1000));
  std::string const changed = inlineIVMessage(keyA(), bytes(16, 2), pattern(kLimit + 1000));
  auto source = decrypting(stored, Authentication::BeforeFirstByte, keyA(), "AES256-GCM", &changed);
  testing::internal::CaptureStdout();
  opc::InputStream& stream = source->getInputStream();
  bool failed = false;
  std::string const got = readUntilFailure(stream, 65536, failed);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "An error occurred during decryption:The encrypted content changed after it was "
            "authenticated.\n");
  EXPECT_TRUE(failed);
  EXPECT_EQ(got, "");
}

TEST(InlineIVTransformsTest, ContentShortenedBetweenThePassesFails) {
  std::string const stored = inlineIVMessage(keyA(), firstIV(), pattern(kLimit + 1000));
  for (std::size_t size : {0U, 10U, 20U, 40U}) {
    std::string const changed = stored.substr(0, size);
    auto source =
        decrypting(stored, Authentication::BeforeFirstByte, keyA(), "AES256-GCM", &changed);
    testing::internal::CaptureStdout();
    bool failed = false;
    readUntilFailure(source->getInputStream(), 65536, failed);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(failed) << size;
  }
}

TEST(InlineIVTransformsTest, FailuresOfTheWrappedStreamPassUnchanged) {
  auto plainRecord = memoryRecord(pattern(200000), u"a/b", 4096);
  plainRecord->stream.failAfter(100000);
  auto source = encrypting(plainRecord);
  EXPECT_THROW_MESSAGE(drain(*source), opc::Exception, "injected read failure");

  for (std::size_t failAt : {std::size_t{1000}, kLimit + 500}) {
    auto record = memoryRecord(inlineIVMessage(keyA(), firstIV(), pattern(kLimit + 1000)),
                               u"a/b;encryption=AES256-GCM");
    record->stream.failAfter(failAt);
    DecryptionWithInlineIVTransform decrypting(
        memorySource(record), std::make_shared<CryptoDecryptor>(keyA()), "AES256-GCM",
        Authentication::BeforeFirstByte, [] { return nullptr; });
    EXPECT_THROW_MESSAGE(decrypting.getInputStream(), opc::Exception, "injected read failure");
    EXPECT_EQ(record->stream.closes, 1) << "the stream a failure left behind is closed";
  }
}

}  // namespace
