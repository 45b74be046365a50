#include <string>
#include <utility>

#include <foundation/crypto/digest_engine.h>
#include <foundation/crypto/exceptions.h>

#include "mac_context.h"

namespace foundation {
namespace crypto {
namespace {

constexpr std::size_t kStreamPiece = std::size_t{64} << 10;

}  // namespace

template <class Algorithm>
DigestEngine<Algorithm>::DigestEngine(std::uint8_t const* key, std::size_t keySize)
    : keyed_(std::make_unique<detail::MacContext>(key, keySize)),
      running_(std::make_unique<detail::MacContext>(*keyed_)) {}

template <class Algorithm>
DigestEngine<Algorithm>::DigestEngine(SecureBytes const& key)
    : DigestEngine(key.data(), key.size()) {}

template <class Algorithm>
DigestEngine<Algorithm>::DigestEngine(DigestEngine const& other)
    : keyed_(std::make_unique<detail::MacContext>(*other.keyed_)),
      running_(std::make_unique<detail::MacContext>(*other.running_)) {}

template <class Algorithm>
DigestEngine<Algorithm>::DigestEngine(DigestEngine&& other) noexcept = default;

template <class Algorithm>
DigestEngine<Algorithm>& DigestEngine<Algorithm>::operator=(DigestEngine const& other) {
  if (this != &other) *this = DigestEngine(other);
  return *this;
}

template <class Algorithm>
DigestEngine<Algorithm>& DigestEngine<Algorithm>::operator=(DigestEngine&& other) noexcept =
    default;

template <class Algorithm>
DigestEngine<Algorithm>::~DigestEngine() = default;

template <class Algorithm>
bytes DigestEngine<Algorithm>::computeDigest(bytes const& data) const {
  detail::MacContext context(*keyed_);
  context.update(data.data(), data.size());
  return context.finish();
}

template <class Algorithm>
bytes DigestEngine<Algorithm>::computeDigest(std::istream& data) const {
  detail::MacContext context(*keyed_);
  bytes piece(kStreamPiece);
  for (;;) {
    data.read(reinterpret_cast<char*>(piece.data()), static_cast<std::streamsize>(piece.size()));
    if (data.bad()) throw utils::Exception("Cannot read the data to digest from its stream.");
    auto const got = static_cast<std::size_t>(data.gcount());
    if (got == 0) break;
    context.update(piece.data(), got);
  }
  return context.finish();
}

template <class Algorithm>
void DigestEngine<Algorithm>::addData(bytes const& data) {
  running_->update(data.data(), data.size());
}

template <class Algorithm>
void DigestEngine<Algorithm>::addData(std::uint8_t const* data, std::size_t size) {
  running_->update(data, size);
}

template <class Algorithm>
bytes DigestEngine<Algorithm>::computeDigestFinal() {
  // The next message's state is made before this one ends, so that a failure to make it
  // does not leave an ended state running.
  auto fresh = std::make_unique<detail::MacContext>(*keyed_);
  bytes digest = running_->finish();
  running_ = std::move(fresh);
  return digest;
}

template <class Algorithm>
std::string DigestEngine<Algorithm>::getDigestName() const {
  return Algorithm::kName;
}

template <class Algorithm>
std::size_t DigestEngine<Algorithm>::getDigestSize() const {
  return Algorithm::kDigestSize;
}

template <class Algorithm>
detail::MacContext& DigestEngine<Algorithm>::getImpl() {
  return *running_;
}

template class DigestEngine<utils::HMACSHA256DigestAlgorithm>;

}  // namespace crypto
}  // namespace foundation
