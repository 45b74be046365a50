// opc::Exception: the base of every exception that the opc libraries raise.
#ifndef OPC_CORE_EXCEPTION_H_
#define OPC_CORE_EXCEPTION_H_

#include <stdexcept>
#include <string>

#include <boost/system/error_code.hpp>

#include <opc/core/export.h>

namespace opc {

// A failure reported by an opc library.
//
// `what()` gives the message exactly as the thrower composed it; the error code is kept
// beside it and never folded into the text.  A class without a failure code of its own
// carries a default-constructed code (value 0, system category), which holds no error.
//
// Copies share nothing mutable and may be thrown and caught on any thread.
class OPC_CORE_EXPORT Exception : public std::runtime_error {
 public:
  Exception(std::string const& message, boost::system::error_code code);
  Exception(Exception const& other);
  Exception(Exception&& other) noexcept;
  Exception& operator=(Exception const& other);
  Exception& operator=(Exception&& other) noexcept;
  ~Exception() override;

  // The code that the failing operation reported, or a code holding no error.
  boost::system::error_code const& code() const noexcept;

 private:
  boost::system::error_code code_;
};

}  // namespace opc

#endif  // OPC_CORE_EXCEPTION_H_
