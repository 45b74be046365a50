// The crypto library's speed: AES-256-GCM with the 16-byte IVs of packages on 1 MiB buffers,
// as whole messages (which allocate their output) and through the incremental classes (in
// place, as a large file part is streamed), HMAC-SHA-256 on 1 MiB and on a path-sized
// message, and a password derivation at the default work factor.  Bytes per second are
// reported for throughput cases; compare the GCM figures with
// `openssl speed -evp aes-256-gcm` (its 16384-byte column).  Run one case per process:
//   build/bench/crypto_bench --benchmark_filter=GcmStreamEncrypt --benchmark_repetitions=5
#include <cstddef>
#include <memory>
#include <random>

#include <benchmark/benchmark.h>

#include <foundation/crypto.h>

namespace {

namespace crypto = foundation::crypto;
using crypto::bytes;
using Key = crypto::AESKey<crypto::utils::AESKeySize<256>>;

constexpr std::size_t kMiB = std::size_t{1} << 20;

bytes randomBytes(std::size_t size) {
  std::mt19937_64 random(42);
  bytes out(size);
  for (unsigned char& byte : out) byte = static_cast<unsigned char>(random());
  return out;
}

Key benchKey() { return Key(crypto::SecureBytes(32, 0x4B)); }
bytes benchIv() { return bytes(16, 0x1F); }

void GcmWholeEncrypt(benchmark::State& state) {
  crypto::AESEncryptor<crypto::utils::AESKeySize<256>> encryptor(
      benchKey(), benchIv(), crypto::utils::AESMode::GCM, crypto::utils::AESPaddingMode::PKCS7);
  bytes const plaintext = randomBytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    bytes const sealed = encryptor.encrypt(plaintext);
    benchmark::DoNotOptimize(sealed.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(GcmWholeEncrypt)->Arg(kMiB)->Arg(4096);

void GcmWholeDecrypt(benchmark::State& state) {
  crypto::AESEncryptor<crypto::utils::AESKeySize<256>> encryptor(
      benchKey(), benchIv(), crypto::utils::AESMode::GCM, crypto::utils::AESPaddingMode::PKCS7);
  crypto::AESDecryptor<crypto::utils::AESKeySize<256>> decryptor(
      benchKey(), benchIv(), crypto::utils::AESMode::GCM, crypto::utils::AESPaddingMode::PKCS7);
  bytes const sealed = encryptor.encrypt(randomBytes(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) {
    bytes const plaintext = decryptor.decrypt(sealed);
    benchmark::DoNotOptimize(plaintext.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(GcmWholeDecrypt)->Arg(kMiB)->Arg(4096);

// One long message, 1 MiB per update, in place: the road of a file part of many GiB.
void GcmStreamEncrypt(benchmark::State& state) {
  crypto::AESGCMStreamEncryptor encryptor(benchKey(), benchIv());
  bytes buffer = randomBytes(kMiB);
  for (auto _ : state) {
    encryptor.update(buffer.data(), buffer.size(), buffer.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kMiB));
}
BENCHMARK(GcmStreamEncrypt);

void GcmStreamDecrypt(benchmark::State& state) {
  crypto::AESGCMStreamDecryptor decryptor(benchKey(), benchIv());
  bytes buffer = randomBytes(kMiB);
  for (auto _ : state) {
    decryptor.update(buffer.data(), buffer.size(), buffer.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kMiB));
}
BENCHMARK(GcmStreamDecrypt);

void HmacSha256(benchmark::State& state) {
  crypto::cryptopp::CryptoProvider const provider;
  auto const engine = provider.createHMACSHA256DigestEngine(bytes(32, 0x21));
  bytes const data = randomBytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    bytes const digest = engine.computeDigest(data);
    benchmark::DoNotOptimize(digest.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
// 1 MiB, and 96 bytes: the UTF-16 path of a file, which names its encrypted part.
BENCHMARK(HmacSha256)->Arg(kMiB)->Arg(96);

void PasswordDerivationAtTheDefaultWorkFactor(benchmark::State& state) {
  crypto::CryptoEngine const engine(std::make_shared<crypto::cryptopp::CryptoProvider>());
  bytes const iv(16, 3);
  for (auto _ : state) {
    auto const result = engine.getEncryptionKeyFromPassword(
        u"correct horse battery staple", u"00112233445566778899aabbccddeeff", iv,
        crypto::CryptoEngine::getDefaultPasswordWorkFactor(), 1);
    benchmark::DoNotOptimize(result.getHash().data());
  }
}
BENCHMARK(PasswordDerivationAtTheDefaultWorkFactor)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
