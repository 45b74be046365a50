// Constants of the ZIP format and little-endian field access, shared by the reader and the
// writer of the container.
#ifndef OPC_MODEL_ZIP_ZIP_FORMAT_H_
#define OPC_MODEL_ZIP_ZIP_FORMAT_H_

#include <cstddef>
#include <cstdint>

namespace opc {
namespace model {
namespace detail {
namespace zipformat {

constexpr std::uint32_t kLocalHeaderSignature = 0x04034b50;           // "PK\3\4"
constexpr std::uint32_t kCentralHeaderSignature = 0x02014b50;         // "PK\1\2"
constexpr std::uint32_t kEndOfCentralDirSignature = 0x06054b50;       // "PK\5\6"
constexpr std::uint32_t kZip64EndOfCentralDirSignature = 0x06064b50;  // "PK\6\6"
constexpr std::uint32_t kZip64LocatorSignature = 0x07064b50;          // "PK\6\7"

constexpr std::size_t kLocalHeaderSize = 30;
constexpr std::size_t kCentralHeaderSize = 46;
constexpr std::size_t kEndOfCentralDirSize = 22;
constexpr std::size_t kZip64EndOfCentralDirSize = 56;
constexpr std::size_t kZip64LocatorSize = 20;
// The comment of the end record is at most this long, which bounds the backward search.
constexpr std::size_t kMaxCommentSize = 0xFFFF;

constexpr std::uint16_t kExtraZip64 = 0x0001;
constexpr std::uint16_t kExtraUnicodePath = 0x7075;

constexpr std::uint16_t kFlagEncrypted = 0x0001;
constexpr std::uint16_t kFlagStrongEncryption = 0x0040;
constexpr std::uint16_t kFlagUtf8 = 0x0800;
constexpr std::uint16_t kFlagMaskedDirectory = 0x2000;

constexpr std::uint16_t kMethodStored = 0;
constexpr std::uint16_t kMethodDeflated = 8;

inline std::uint16_t get16(unsigned char const* p) {
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
inline std::uint32_t get32(unsigned char const* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
inline std::uint64_t get64(unsigned char const* p) {
  return static_cast<std::uint64_t>(get32(p)) | (static_cast<std::uint64_t>(get32(p + 4)) << 32);
}

}  // namespace zipformat
}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_FORMAT_H_
