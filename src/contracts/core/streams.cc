#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>

namespace opc {

// Defined out of line so that the vtables and type information live once, in libopccore.
InputStream::~InputStream() = default;
OutputStream::~OutputStream() = default;

}  // namespace opc
