// opc::StreamHelper: copies every byte of one stream into another.
#ifndef OPC_CORE_STREAM_HELPER_H_
#define OPC_CORE_STREAM_HELPER_H_

#include <istream>
#include <ostream>

#include <opc/core/export.h>
#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>

namespace opc {

// Copies streams to streams.  Thread safety: the functions hold no state; the streams are
// used by the calling thread alone for the time of the call.
class OPC_CORE_EXPORT StreamHelper {
 public:
  StreamHelper() = delete;

  // Opens `input`, copies all its bytes to `output` in blocks of 64 KiB, flushes `output`
  // and closes `input`; `output` is not closed, it stays the caller's.  Returns true.
  //
  // Every failure raises, since callers do not look at the result: failures of either stream
  // pass through as they are (the adaptors' "Could not read from the input stream" and
  // "Could not write to the output stream" for std streams).  A read that gives no byte before
  // the end is taken as progress (a transform can turn a chunk into nothing), but an input
  // that gives nothing for 65,536 reads in a row is stuck and raises opc::Exception ("Could
  // not copy stream: the input stream gave no bytes before its end", code io_error).  `input` is
  // closed on every path; a failure of that close is raised only when nothing else failed before.
  static bool copyStreamToStream(InputStream& input, OutputStream& output);

  // As above; `output` is flushed, and goes through StdOStreamAdaptor.
  static bool copyStreamToStream(InputStream& input, std::ostream& output);

  // As above; `input` is read from where it stands and goes through StdIStreamAdaptor.
  static bool copyStreamToStream(std::istream& input, OutputStream& output);
};

}  // namespace opc

#endif  // OPC_CORE_STREAM_HELPER_H_
