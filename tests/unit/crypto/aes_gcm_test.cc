// AES-256-GCM: NIST CAVP known answers (gcmEncryptExtIV256.rsp, gcmDecrypt256.rsp: 256-bit
// keys, no AAD, 128-bit tags, IVs of 8, 96 and 1024 bits), the layout of a message, and
// the refusal of anything that does not authenticate.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/crypto/aes_decryptor.h>
#include <foundation/crypto/aes_encryptor.h>
#include <foundation/crypto/exceptions.h>
#include <foundation/crypto/i_decryptor.h>
#include <foundation/crypto/i_encryptor.h>

#include "crypto_test_support.h"
#include "support/expect_exception.h"

namespace {

using foundation::crypto::bytes;
using foundation::crypto::utils::AESMode;
using foundation::crypto::utils::AESPaddingMode;
using foundation::crypto::utils::CouldNotDecrypt;
using foundation::crypto::utils::Exception;
using opcvk_test::fromHex;
using opcvk_test::Key256;
using opcvk_test::keyFromHex;
using opcvk_test::toHex;
using Encryptor = foundation::crypto::AESEncryptor<foundation::crypto::utils::AESKeySize<256>>;
using Decryptor = foundation::crypto::AESDecryptor<foundation::crypto::utils::AESKeySize<256>>;

char const kNotAuthentic[] =
    "The data does not authenticate under this key and IV: it was altered, or the key is "
    "wrong.";

struct GcmVector {
  char const* name;
  char const* key;
  char const* iv;
  char const* plaintext;
  char const* ciphertext;
  char const* tag;
};

// gcmEncryptExtIV256.rsp, [AADlen = 0] [Taglen = 128].
GcmVector const kEncryptVectors[] = {
    {"IV 8 bits, PT 0, count 0", "a70f2f3c96b952b2d177fce5d5edac7c939259ebd3ff7354df3d86100f0be5ac",
     "69", "", "", "2d484f834a313bf3f9a25f0a7604a869"},
    {"IV 8 bits, PT 128, count 0",
     "9473c28f6e978eb15e1967b888282aa6b078d320034fe5f40f8bb68674f1ecda", "0a",
     "2d2e2798c10bcfcce742e92d3c390fef", "c4e5ab2c6a4316e57c6c37d2c2acb42c",
     "03337df7e1e68d77706abef9edaf5e07"},
    {"IV 8 bits, PT 408, count 0",
     "85eba4e699dababe6883a6bc1f79a8bb080885dcf91736c22741f1339a5955d7", "39",
     "87d33c8883d2bcceb77354d2f1e44b15bef58a3178a4abbdbae7827ddca95baa2addd2ade83128ab897ed601d41d"
     "4775c65483",
     "dffbd6e49b9a41e9287d5ed910642b114c77509976806cdf5c3616073397b150b954552c4a69d9e70ae383f89141"
     "3463e9dbc6",
     "a6d8df6b6f2f92c867b4409cd670d560"},
    {"IV 96 bits, PT 128, count 0",
     "31bdadd96698c204aa9ce1448ea94ae1fb4a9a0b3c9d773b51bb1822666b8f22", "0d18e06c7c725ac9e362e1ce",
     "2db5168e932556f8089a0622981d017d", "fa4362189661d163fcd6a56d8bf0405a",
     "d636ac1bbedd5cc3ee727dc2ab4a9489"},
    {"IV 1024 bits, PT 0, count 0",
     "88768354df414ce4097f4d357837116685beee0d93aab343576b893088256260",
     "f649d375e4e896397a8a96cbb847fbf45cb54132c76baf814f4e35e9f7737f16d5cd710370f143612b46724bbdde"
     "d2a26264b90a91f5ed425d08d317f49a56828fcfeb9ebe1bc53117bb4156c2e99d70b238dd9166cc05906719818"
     "022c75957d25ad9c36c93ce2626248c783e0207c35db74996f47d096c3cafe701a38154ce",
     "", "", "905b22cd3fe77645e6a217dd1f993ec4"},
    {"IV 1024 bits, PT 128, count 1",
     "bf2a6b270fd71bbf078c6219d9444e954b0d1a996778c014e09f3a04f4d153b6",
     "bc72b5b74146b0963e5ddc305651726c54cca2f478e8a6cf39966318317a53c4cc8251bef0a046955d1c268ff0a3"
     "c526806c63e597641004883bcb9cc1f10489cad34ed8cc7be591fd91ef567996c4cbd7b97a4bfec30e533bec229"
     "8e6a157ea970a907a7154badb2aef8aff88f3974a4fea2f9b8cd68804c264037de25bcfa8",
     "cb57b202300cbdbb7e80330ba3533849", "82fc3c45a70b7eaff56064467c2ebffb",
     "0a831f86bfb6d019f2432aae91684568"},
    {"IV 1024 bits, PT 408, count 0",
     "816458a5bdf7f937653d1bc1c79699c0e3291f03b3f6be8c76cfb92fd544d227",
     "ee87abc85bc736b6e59b02eb36955c05cb2a0ffcc5d34091843a54ca0abedcb59ed215ca3ae3835fc42c3832cc66"
     "23dc6d07cb48198366d471a3a06f4ce93ebec04e2f0ea6aa92f07c4b21624b3aa3202279b95c19e94c3c3ec79a8"
     "310e7401e5b4548bd2a1e69b948f2c3b34c9c4e1154f4f0d287aeeab8388097a0cb9b1104",
     "61645d5f857d11756fc43f5fd7bdd003079a58a42287345e7c744dd88faf25154d02911f2b22e61408732ab4bdbe"
     "c2e9b9d942",
     "213cccac331229abd621eef68d632cb09bff705f8b02173d24a5038d89d287520ff26619a2ddccdca89fc254aa17"
     "856c27cb26",
     "814dcb36d10ba5803c311a54d34735f6"},
};

// gcmDecrypt256.rsp, [AADlen = 0] [Taglen = 128], cases that decrypt.
GcmVector const kDecryptVectors[] = {
    {"IV 8 bits, PT 128, count 1",
     "be676f4f9507e719d5489d36fb65ab7f3f73db18a7124ddfc4c82ac7af18e128", "74",
     "aabc367c582bd72df9107ef8b85cdcd0", "8ef69c8f7114eb49e17ec3cac4c7988f",
     "4b1385fffed281cc946ad075c9939514"},
    {"IV 8 bits, PT 408, count 1",
     "9230426305e75dd388879c1ede959f12e2836745683b7a1900eac06f8ac8d9a6", "e9",
     "9846fd1797d93063b8e25790fc10bb8d2dd8535fcfd9990ad962fe58b97f8a5d7620a79e962ed765a2378465ead2"
     "dae436fdc1",
     "8f8e76add64b0e131062e28a06d860e8946e88d8848053f3d617ca10e547850d4207e6f85780450309ba172fa3e3"
     "b4a4a1c1bd",
     "39abd06ff73ed0083dc8854fa2522d90"},
    {"IV 1024 bits, PT 0, count 1",
     "19c1058a587b6856aa897b226701eb3ce3fad5ae288a785e393274adc55fecc9",
     "8f6ebfb5e76f8c09222c2950e70eaa3324de28a6fbc5ba2ae49470665d9c665da5a98288cf442c5a05a2d932efec"
     "48b02304050ef306eda20f17442d67737c8774205906d40abcbde27af644ed3b1a080007a34516d28f50afebd15"
     "6642eeb2187b4c044516d2e04264f3ea0fface9488d83e5123363245d7f4cf5cae0ecd95f",
     "", "", "76881360934e46c36e87eb40970a0776"},
    {"IV 1024 bits, PT 128, count 0",
     "c3ea4507176f8c9dcfa4eab49197d8b18e30c2f8119fd395097d479234ecf110",
     "3b89ae126aa9ff4d128326e5b5b24972188d2d70aad8cb7f95189fdfa5c654b71264d2269e63a252b51a70515a58"
     "a933cb4a21261afe28f1f43a2bb3f64051e01faab54053ab627eca0c29385fddb77565967c7baa1270e66d6f0d8"
     "9c8025159b259a22cb1c07e3ae5efd2f6fbc617edd5d7aa3c09480cc1ffb243a6e7d1e3d9",
     "2642724b0df453519200926428d187f0", "03dffc9ba88ad825805181c64f2b5d92",
     "cb05a9908ae1baafc613b02918d0799f"},
    {"IV 1024 bits, PT 408, count 1",
     "94ccf0279dd20f5a292f0aa1ac58e4821c408bfe5d362d81bbe42ba4d586aeb5",
     "3b76749d090d983ac602a56a7b845e755b2e7713f8bea102921c3d5644105dcdd4c44d6d7fd4118555ca25dfc451"
     "6a9a43a33edc309d8c3a94c6e2014780daae6ab4be4208f2d86bdad3d533d07bae383073be27f235e624fc75ea9"
     "ea38868390ae9775254d9a6a3e7e82c7f7f945c3820c696c08ea7155845630a751d2757d1",
     "0f7962ee0b74fd2f759be781dd399845ff7337dc690286d86d5d80f66261aaf9bafce9e86012f49ec44b20f3bca0"
     "64247d1d03",
     "141251168ec7cc64a84816eb390c436cf54a9fb1958436077f3ca58695041c28a32c51cd0099a2b59159645e319c"
     "f8b2a3a348",
     "7854686148d36addbbfe24b752aca26a"},
};

// gcmDecrypt256.rsp, [AADlen = 0] [Taglen = 128], cases marked FAIL: each must be refused.
GcmVector const kFailingVectors[] = {
    {"IV 8 bits, PT 0, count 2", "ce613d4c12d07aab4b7e6d5f5622ec9d478493474cc9afce6085c877c00b0263",
     "11", "", "", "7b8211b8949569f1826357b9e92db974"},
    {"IV 8 bits, PT 128, count 0",
     "c825ebe0188d645df9044b6e7ad0bd2e7d7979f66fe1079129bac89a3ef1e00c", "be", "",
     "f066b20f8f3112c22aaade13fa5d2130", "34b862a08c53aa8938bc3fd5ddfd5ea0"},
    {"IV 8 bits, PT 408, count 2",
     "b2eed99d383077754f5ca963434217328d249a8d30be507d78270cfbcf14ddfb", "1d", "",
     "536694e55af0b57df39db26e3d7b1a337c7cf67460db943d6e64ae7c7855decf80a6430f2f6b5dea2693ac569043"
     "750713b18d",
     "3608c6acd59fdc7c65fcefa702d4953f"},
    {"IV 1024 bits, PT 0, count 0",
     "d8889a3eb919d0d45d4c6b16a31957c2aa7c6c8c3aa704709b52e3552146cd90",
     "ee69050b106bb38dc2262ecdef82ac5954860de6d6e4086cd1f72e5a9964af5d06e21fdaeceab1cb0c404b1adbc0"
     "1da583ac077cef03fc6488d7162f7d02c217265352f493a77d9637940fd0a694be8bd9322d76d301c2733c4ea23"
     "113a93722b97e5a554cc0bb30a94c09e5ebf8b46de2e8be52c81463dda7cac44385a3f73b",
     "", "", "53f9b45aade7fecbf759c740b4167d8e"},
    {"IV 1024 bits, PT 128, count 1",
     "b58133f2aacafa6f70246302b5e4248035002e94be81674d9676f07b9ae7607c",
     "a8e832c7968b5514474eb570c6d05855fc2631094eff688f16614519ddd41211e695aa861e52b8e862425e42db8d"
     "3f5c72ade541a1ed73946a69ef99bd96245709fbed7d54fe64032460a58a31ba535284d5eacd8e53dc1c24cb720"
     "b7d039c7fd39c8289e11dde0a9ed47456288783f2ab1c7901fcca188cd7c7381a246aaab2",
     "", "5d8605e5ad0add257083198b3b3a3655", "1e50e0c4bcd145737a390fe01942c2d1"},
    {"IV 1024 bits, PT 408, count 0",
     "ab2e6a474f948e0f80de2b2342d89c39518f05308c4b4b5e87cd9c6642153773",
     "01be55437efa82c9036c797978b747469ef6b4abd5b495ca5aa817d76c7f55f4bf360a11042a3d17e8624cd48d9e"
     "f6bc9b2db3034fbcc2b6bb208dc6876c9afc2119b8d346d38ce3fe61cd1d119c25cac8173a1cc4053456420a8a5"
     "6f9c1a752a0fb23b386b8267d411603568dfb7e254244b5b901b84cc212a0d4a79d95fb53",
     "",
     "97ce2f1d4e450d791a30d36e9f9df190d5cf9714b01c3d0562edbc35d7a6cff2f8758260426fc993fe58bd3b92d2"
     "040f187331",
     "4ff61cb030c0af3a2415ba5da07c0fcc"},
};

Encryptor encryptorFor(GcmVector const& vector) {
  return Encryptor(keyFromHex(vector.key), fromHex(vector.iv), AESMode::GCM, AESPaddingMode::PKCS7);
}

Decryptor decryptorFor(GcmVector const& vector) {
  return Decryptor(keyFromHex(vector.key), fromHex(vector.iv), AESMode::GCM, AESPaddingMode::PKCS7);
}

bytes sealed(GcmVector const& vector) {
  return fromHex(std::string(vector.ciphertext) + vector.tag);
}

TEST(AesGcmTest, EncryptsTheNistVectorsWithTheTagAfterTheCiphertext) {
  for (GcmVector const& vector : kEncryptVectors) {
    Encryptor encryptor = encryptorFor(vector);
    EXPECT_EQ(toHex(encryptor.encrypt(fromHex(vector.plaintext))),
              std::string(vector.ciphertext) + vector.tag)
        << vector.name;
  }
}

TEST(AesGcmTest, DecryptsTheNistVectors) {
  for (GcmVector const& vector : kDecryptVectors) {
    Decryptor decryptor = decryptorFor(vector);
    EXPECT_EQ(toHex(decryptor.decrypt(sealed(vector))), vector.plaintext) << vector.name;
  }
  for (GcmVector const& vector : kEncryptVectors) {
    Decryptor decryptor = decryptorFor(vector);
    EXPECT_EQ(toHex(decryptor.decrypt(sealed(vector))), vector.plaintext) << vector.name;
  }
}

TEST(AesGcmTest, RefusesTheFailingNistVectors) {
  for (GcmVector const& vector : kFailingVectors) {
    Decryptor decryptor = decryptorFor(vector);
    EXPECT_THROW_MESSAGE(decryptor.decrypt(sealed(vector)), CouldNotDecrypt, kNotAuthentic)
        << vector.name;
  }
}

TEST(AesGcmTest, TheFreeFunctionsRunOneWholeMessage) {
  GcmVector const& vector = kEncryptVectors[6];
  Encryptor encryptor = encryptorFor(vector);
  foundation::crypto::IEncryptor& asEncryptor = encryptor;
  bytes const output = foundation::crypto::encrypt(fromHex(vector.plaintext), asEncryptor);
  EXPECT_EQ(output, sealed(vector));
  Decryptor decryptor = decryptorFor(vector);
  EXPECT_EQ(foundation::crypto::decrypt(output, decryptor), fromHex(vector.plaintext));
}

TEST(AesGcmTest, EachCallIsAFreshMessageUnderTheSameIv) {
  GcmVector const& vector = kEncryptVectors[1];
  Encryptor encryptor = encryptorFor(vector);
  bytes const first = encryptor.encrypt(fromHex(vector.plaintext));
  EXPECT_EQ(encryptor.encrypt(fromHex(vector.plaintext)), first);
  Encryptor copy = encryptor;
  EXPECT_EQ(copy.encrypt(fromHex(vector.plaintext)), first);
  EXPECT_EQ(copy.getKeySize(), 256u);
}

TEST(AesGcmTest, AnEmptyMessageIsItsTagAlone) {
  Key256 const key = keyFromHex(kEncryptVectors[3].key);
  bytes const iv(16, 0x42);
  Encryptor encryptor(key, iv, AESMode::GCM, AESPaddingMode::PKCS7);
  bytes const output = encryptor.encrypt(bytes{});
  EXPECT_EQ(output.size(), 16u);
  Decryptor decryptor(key, iv, AESMode::GCM, AESPaddingMode::NoPadding);
  EXPECT_EQ(decryptor.decrypt(output), bytes{});
}

TEST(AesGcmTest, RefusesInputShorterThanATag) {
  Decryptor decryptor = decryptorFor(kDecryptVectors[0]);
  EXPECT_THROW_MESSAGE(decryptor.decrypt(bytes{}), CouldNotDecrypt,
                       "The data has 0 bytes, fewer than its 16-byte authentication tag.");
  EXPECT_THROW_MESSAGE(decryptor.decrypt(bytes(15, 0)), CouldNotDecrypt,
                       "The data has 15 bytes, fewer than its 16-byte authentication tag.");
}

TEST(AesGcmTest, AWrongKeyIsRefused) {
  GcmVector const& vector = kDecryptVectors[1];
  bytes key = fromHex(vector.key);
  key[31] ^= 0x01;
  Decryptor decryptor(opcvk_test::keyOf(key), fromHex(vector.iv), AESMode::GCM,
                      AESPaddingMode::PKCS7);
  EXPECT_THROW_MESSAGE(decryptor.decrypt(sealed(vector)), CouldNotDecrypt, kNotAuthentic);
}

TEST(AesGcmTest, EverySingleBitFlipOfCiphertextTagOrIvIsRefused) {
  Key256 const key = keyFromHex(kEncryptVectors[2].key);
  bytes const iv = fromHex("000102030405060708090a0b0c0d0e0f");
  bytes const plaintext = opcvk_test::bytesOf("a small file part of forty-one bytes.\n..");
  Encryptor encryptor(key, iv, AESMode::GCM, AESPaddingMode::PKCS7);
  bytes const output = encryptor.encrypt(plaintext);
  ASSERT_EQ(output.size(), plaintext.size() + 16);
  for (std::size_t bit = 0; bit < output.size() * 8; ++bit) {
    bytes altered = output;
    altered[bit / 8] ^= static_cast<unsigned char>(1u << (bit % 8));
    Decryptor decryptor(key, iv, AESMode::GCM, AESPaddingMode::PKCS7);
    EXPECT_THROW(decryptor.decrypt(altered), CouldNotDecrypt) << "bit " << bit;
  }
  for (std::size_t bit = 0; bit < iv.size() * 8; ++bit) {
    bytes alteredIv = iv;
    alteredIv[bit / 8] ^= static_cast<unsigned char>(1u << (bit % 8));
    Decryptor decryptor(key, alteredIv, AESMode::GCM, AESPaddingMode::PKCS7);
    EXPECT_THROW(decryptor.decrypt(output), CouldNotDecrypt) << "IV bit " << bit;
  }
  Decryptor decryptor(key, iv, AESMode::GCM, AESPaddingMode::PKCS7);
  EXPECT_EQ(decryptor.decrypt(output), plaintext);
}

TEST(AesGcmTest, ATruncatedOrExtendedMessageIsRefused) {
  Key256 const key = keyFromHex(kEncryptVectors[2].key);
  bytes const iv(16, 7);
  Encryptor encryptor(key, iv, AESMode::GCM, AESPaddingMode::PKCS7);
  bytes const output = encryptor.encrypt(bytes(100, 0x33));
  Decryptor decryptor(key, iv, AESMode::GCM, AESPaddingMode::PKCS7);
  EXPECT_THROW(decryptor.decrypt(bytes(output.begin(), output.end() - 1)), CouldNotDecrypt);
  EXPECT_THROW(decryptor.decrypt(bytes(output.begin() + 1, output.end())), CouldNotDecrypt);
  bytes longer = output;
  longer.push_back(0);
  EXPECT_THROW(decryptor.decrypt(longer), CouldNotDecrypt);
}

TEST(AesGcmTest, TakesEveryIvLengthFromOneTo128Bytes) {
  Key256 const key = keyFromHex(kEncryptVectors[0].key);
  bytes const plaintext = opcvk_test::bytesOf("same text, many IVs");
  std::vector<bytes> outputs;
  for (std::size_t length : {1u, 8u, 12u, 16u, 17u, 64u, 128u}) {
    bytes const iv(length, 0x5C);
    Encryptor encryptor(key, iv, AESMode::GCM, AESPaddingMode::PKCS7);
    outputs.push_back(encryptor.encrypt(plaintext));
    Decryptor decryptor(key, iv, AESMode::GCM, AESPaddingMode::PKCS7);
    EXPECT_EQ(decryptor.decrypt(outputs.back()), plaintext) << length;
  }
  for (std::size_t i = 1; i < outputs.size(); ++i) EXPECT_NE(outputs[i], outputs[i - 1]);
}

TEST(AesGcmTest, RefusesAnEmptyOrOverlongIvAtConstruction) {
  Key256 const key = keyFromHex(kEncryptVectors[0].key);
  EXPECT_THROW_MESSAGE(Encryptor(key, bytes{}, AESMode::GCM, AESPaddingMode::PKCS7), Exception,
                       "AES-256-GCM needs an IV of 1 to 128 bytes; the IV given has 0 bytes.");
  EXPECT_THROW_MESSAGE(Decryptor(key, bytes(129, 1), AESMode::GCM, AESPaddingMode::PKCS7),
                       Exception,
                       "AES-256-GCM needs an IV of 1 to 128 bytes; the IV given has 129 bytes.");
}

TEST(AesGcmTest, RefusesAModeOrPaddingThatIsNoEnumerator) {
  Key256 const key = keyFromHex(kEncryptVectors[0].key);
  EXPECT_THROW_MESSAGE(Encryptor(key, bytes(16, 0), static_cast<AESMode>(2), AESPaddingMode::PKCS7),
                       Exception, "Unsupported AES mode 2 (1 is CBC, 3 is GCM).");
  EXPECT_THROW_MESSAGE(Decryptor(key, bytes(16, 0), AESMode::GCM, static_cast<AESPaddingMode>(7)),
                       Exception, "Unsupported AES padding mode 7 (0 is none, 1 is PKCS#7).");
}

}  // namespace
