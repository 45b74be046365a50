// Drives the crypto library from the command line, for crypto_interop_test.py: the data
// comes on standard input and the result goes to standard output, as raw bytes.
//
//   crypto_peer gcm-encrypt KEY IV [PIECE]   ciphertext, then the 16-byte tag
//   crypto_peer gcm-decrypt KEY IV [PIECE]   the plaintext of ciphertext and tag
//   crypto_peer cbc-encrypt KEY IV           AES-256-CBC with PKCS#7 padding
//   crypto_peer cbc-decrypt KEY IV
//   crypto_peer hmac KEY                     HMAC-SHA-256 of the data
//
// KEY and IV are hexadecimal.  With PIECE, GCM goes through the incremental classes in
// pieces of that many bytes; without, through the whole-message classes.  A refusal of the
// library exits 1 with its message on standard error, and nothing on standard output.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include <foundation/crypto.h>

namespace {

namespace crypto = foundation::crypto;
using crypto::bytes;
using Key = crypto::AESKey<crypto::utils::AESKeySize<256>>;

bytes fromHex(std::string const& hex) {
  bytes out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return out;
}

bytes readAll() {
  bytes data;
  char piece[65536];
  while (std::cin.read(piece, sizeof piece) || std::cin.gcount() > 0) {
    data.insert(data.end(), piece, piece + std::cin.gcount());
  }
  return data;
}

void writeAll(bytes const& data) {
  std::cout.write(reinterpret_cast<char const*>(data.data()),
                  static_cast<std::streamsize>(data.size()));
}

bytes gcmInPieces(Key const& key, bytes const& iv, bytes const& input, std::size_t piece,
                  bool encrypting) {
  std::size_t const length = encrypting ? input.size() : input.size() - 16;
  bytes out(length);
  if (encrypting) {
    crypto::AESGCMStreamEncryptor encryptor(key, iv);
    for (std::size_t done = 0; done < length; done += piece) {
      std::size_t const size = std::min(piece, length - done);
      encryptor.update(input.data() + done, size, out.data() + done);
    }
    bytes const tag = encryptor.finish();
    out.insert(out.end(), tag.begin(), tag.end());
    return out;
  }
  crypto::AESGCMStreamDecryptor decryptor(key, iv);
  for (std::size_t done = 0; done < length; done += piece) {
    std::size_t const size = std::min(piece, length - done);
    decryptor.update(input.data() + done, size, out.data() + done);
  }
  decryptor.finish(bytes(input.end() - 16, input.end()));
  return out;
}

int run(int argc, char** argv) {
  std::string const command = argv[1];
  crypto::CryptoEngine const engine(std::make_shared<crypto::cryptopp::CryptoProvider>());
  if (command == "hmac" && argc == 3) {
    writeAll(engine.createHMACSHA256DigestEngine(fromHex(argv[2])).computeDigest(readAll()));
    return 0;
  }
  if (argc < 4) return 2;
  Key const key = engine.createAES256Key(fromHex(argv[2]));
  bytes const iv = fromHex(argv[3]);
  bytes const input = readAll();
  auto const generator = crypto::CryptoEngine::getDefaultCryptoPRNG();
  auto const padding = crypto::CryptoEngine::getDefaultAESPaddingMode();
  bool const gcm = command.rfind("gcm-", 0) == 0;
  bool const encrypting = command == "gcm-encrypt" || command == "cbc-encrypt";
  auto const mode = gcm ? crypto::utils::AESMode::GCM : crypto::utils::AESMode::CBC;
  if (gcm && argc == 5) {
    if (!encrypting && input.size() < 16) throw crypto::utils::CouldNotDecrypt("too short");
    writeAll(gcmInPieces(key, iv, input, std::stoul(argv[4]), encrypting));
  } else if (encrypting) {
    auto encryptor = engine.createAES256Encryptor(key, iv, mode, padding, generator);
    writeAll(crypto::encrypt(input, encryptor));
  } else {
    auto decryptor = engine.createAES256Decryptor(key, iv, mode, padding, generator);
    writeAll(crypto::decrypt(input, decryptor));
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: crypto_peer gcm-encrypt|gcm-decrypt|cbc-encrypt|cbc-decrypt KEY IV "
                 "[PIECE] | hmac KEY\n";
    return 2;
  }
  try {
    int const status = run(argc, argv);
    if (status == 2) std::cerr << "crypto_peer: bad arguments\n";
    return status;
  } catch (crypto::utils::Exception const& e) {
    std::cerr << "crypto_peer: " << e.what() << "\n";
    return 1;
  }
}
