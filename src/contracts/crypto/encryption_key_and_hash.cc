#include <utility>

#include <foundation/crypto/encryption_key_and_hash.h>

namespace foundation {
namespace crypto {

EncryptionKeyAndHash::EncryptionKeyAndHash(AESKey<utils::AESKeySize<256>> key, bytes hash)
    : key_(std::move(key)), hash_(std::move(hash)) {}

}  // namespace crypto
}  // namespace foundation
