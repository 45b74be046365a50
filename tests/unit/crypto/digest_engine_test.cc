// HMAC-SHA-256: RFC 4231 test cases 1 to 7, at once and in pieces.
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <foundation/crypto/cryptopp/crypto_provider.h>
#include <foundation/crypto/digest_engine.h>

#include "crypto_test_support.h"

namespace {

using foundation::crypto::bytes;
using foundation::crypto::SecureBytes;
using opcvk_test::bytesOf;
using opcvk_test::fromHex;
using opcvk_test::toHex;
using Hmac = foundation::crypto::DigestEngine<foundation::crypto::utils::HMACSHA256DigestAlgorithm>;

struct HmacVector {
  int number;
  bytes key;
  bytes data;
  std::string digest;
};

std::vector<HmacVector> const& rfc4231() {
  static std::vector<HmacVector> const vectors = {
      {1, bytes(20, 0x0b), bytesOf("Hi There"),
       "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
      {2, bytesOf("Jefe"), bytesOf("what do ya want for nothing?"),
       "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
      {3, bytes(20, 0xaa), bytes(50, 0xdd),
       "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
      {4, fromHex("0102030405060708090a0b0c0d0e0f10111213141516171819"), bytes(50, 0xcd),
       "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b"},
      // Test case 5 gives the first 128 bits of the digest only.
      {5, bytes(20, 0x0c), bytesOf("Test With Truncation"), "a3b6167473100ee06e0c796c2955552b"},
      {6, bytes(131, 0xaa), bytesOf("Test Using Larger Than Block-Size Key - Hash Key First"),
       "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
      {7, bytes(131, 0xaa),
       bytesOf("This is a test using a larger than block-size key and a larger than block-size "
               "data. The key needs to be hashed before being used by the HMAC algorithm."),
       "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2"},
  };
  return vectors;
}

// The digest of a case is checked in full, but for case 5 as a prefix.
void expectDigest(HmacVector const& vector, bytes const& digest, char const* how) {
  ASSERT_EQ(digest.size(), 32u) << how;
  EXPECT_EQ(toHex(digest).substr(0, vector.digest.size()), vector.digest)
      << "case " << vector.number << " " << how;
}

Hmac engineFor(HmacVector const& vector) {
  return foundation::crypto::cryptopp::CryptoProvider().createHMACSHA256DigestEngine(vector.key);
}

TEST(DigestEngineTest, ComputesTheDigestsOfRfc4231AtOnce) {
  for (HmacVector const& vector : rfc4231()) {
    expectDigest(vector, engineFor(vector).computeDigest(vector.data), "at once");
  }
}

TEST(DigestEngineTest, ComputesTheSameDigestsInPiecesAndFromAStream) {
  for (HmacVector const& vector : rfc4231()) {
    Hmac engine = engineFor(vector);
    for (std::size_t cut = 0; cut <= vector.data.size(); cut += 7) {
      engine.addData(bytes(vector.data.begin(), vector.data.begin() + static_cast<long>(cut)));
      engine.addData(vector.data.data() + cut, vector.data.size() - cut);
      engine.addData(nullptr, 0);
      expectDigest(vector, engine.computeDigestFinal(), "in pieces");
    }
    std::istringstream stream(std::string(vector.data.begin(), vector.data.end()));
    expectDigest(vector, engine.computeDigest(stream), "from a stream");
  }
}

TEST(DigestEngineTest, TheOneShotFormLeavesTheRunningDigestAlone) {
  HmacVector const& vector = rfc4231()[1];
  Hmac engine = engineFor(vector);
  engine.addData(bytes(vector.data.begin(), vector.data.begin() + 10));
  EXPECT_EQ(toHex(engine.computeDigest(vector.data)), vector.digest);
  engine.addData(bytes(vector.data.begin() + 10, vector.data.end()));
  EXPECT_EQ(toHex(engine.computeDigestFinal()), vector.digest);
  // After a final the running digest is empty again.
  EXPECT_EQ(engine.computeDigestFinal(), engine.computeDigest(bytes{}));
}

TEST(DigestEngineTest, ACopyCarriesTheRunningDigestAndIsIndependent) {
  HmacVector const& vector = rfc4231()[1];
  Hmac engine = engineFor(vector);
  engine.addData(bytes(vector.data.begin(), vector.data.begin() + 5));
  Hmac copy = engine;
  copy.addData(bytes(vector.data.begin() + 5, vector.data.end()));
  EXPECT_EQ(toHex(copy.computeDigestFinal()), vector.digest);
  engine.addData(bytesOf("something else"));
  EXPECT_NE(toHex(engine.computeDigestFinal()), vector.digest);
  Hmac assigned = engineFor(rfc4231()[0]);
  assigned = copy;
  EXPECT_EQ(toHex(assigned.computeDigest(vector.data)), vector.digest);
}

TEST(DigestEngineTest, TakesAnEmptyKeyAndASecretKey) {
  // HMAC-SHA-256 with an empty key and empty data, as computed by Python's hmac module.
  Hmac empty = foundation::crypto::cryptopp::CryptoProvider().createHMACSHA256DigestEngine(bytes{});
  EXPECT_EQ(toHex(empty.computeDigest(bytes{})),
            "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad");
  HmacVector const& vector = rfc4231()[0];
  Hmac secret = foundation::crypto::cryptopp::CryptoProvider().createHMACSHA256DigestEngine(
      SecureBytes(vector.key.begin(), vector.key.end()));
  EXPECT_EQ(toHex(secret.computeDigest(vector.data)), vector.digest);
}

TEST(DigestEngineTest, NamesItsAlgorithm) {
  Hmac engine = engineFor(rfc4231()[0]);
  EXPECT_EQ(engine.getDigestName(), "HMAC-SHA256");
  EXPECT_EQ(engine.getDigestSize(), 32u);
}

}  // namespace
