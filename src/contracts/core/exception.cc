#include <utility>

#include <opc/core/exception.h>

namespace opc {

Exception::Exception(std::string const& message, boost::system::error_code code)
    : std::runtime_error(message), code_(code) {}

Exception::Exception(Exception const& other) = default;

// std::runtime_error has no move constructor of its own: its message is a shared,
// reference-counted string, so copying it cannot throw and the "move" is a cheap copy.
Exception::Exception(Exception&& other) noexcept
    : std::runtime_error(static_cast<std::runtime_error const&>(other)), code_(other.code_) {}

Exception& Exception::operator=(Exception const& other) = default;

Exception& Exception::operator=(Exception&& other) noexcept {
  std::runtime_error::operator=(static_cast<std::runtime_error const&>(other));
  code_ = other.code_;
  return *this;
}

Exception::~Exception() = default;

boost::system::error_code const& Exception::code() const noexcept { return code_; }

}  // namespace opc
