#include "coreproperties/uuid_recipe.h"

#include <cstddef>
#include <cstdint>

#include <opc/core/exception.h>

namespace opc {
namespace vkservices {
namespace detail {

UUIDBytes makeVersion4UUID(std::function<std::vector<unsigned char>()> const& drawEight) {
  UUIDBytes bytes{};
  for (std::size_t word = 0; word < 4; ++word) {
    std::vector<unsigned char> const draw = drawEight();
    if (draw.size() != 8) {
      throw opc::Exception("The random generator gave " + std::to_string(draw.size()) +
                               " bytes where 8 were asked for",
                           boost::system::error_code());
    }
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < 8; ++i) number |= std::uint64_t{draw[i]} << (8 * i);
    auto const upper = static_cast<std::uint32_t>(number >> 32);
    for (std::size_t i = 0; i < 4; ++i) {
      bytes[4 * word + i] = static_cast<unsigned char>((upper >> (8 * i)) & 0xFF);
    }
  }
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
  return bytes;
}

std::string formatUUID(UUIDBytes const& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    text.push_back(kDigits[bytes[i] >> 4]);
    text.push_back(kDigits[bytes[i] & 0x0F]);
    if (i == 3 || i == 5 || i == 7 || i == 9) text.push_back('-');
  }
  return text;
}

std::string makeRandomUUID(foundation::crypto::interfaces::ICryptoPRNG const& generator) {
  return formatUUID(makeVersion4UUID([&generator] { return generator.generateByteArray(8); }));
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
