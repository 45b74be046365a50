// ZipWriterLibrary: the road from libopcmodel to its writer over libzip.
//
// libzip and what it links (libbz2 and libcrypto) cost every process that
// maps them a measurable part of its start, while most commands never write an archive, and
// those that save a package mostly do it through the sequential writer, which is our own
// code.  So the writer over libzip lives in a library of its own, libopcmodel_zip, which
// libopcmodel loads the first time ZipWriter::toFile, toReplacement or toBuffer is called.
//
// Internal to this project's libraries; not installed.
#ifndef OPC_MODEL_ZIP_ZIP_WRITER_LIBRARY_H_
#define OPC_MODEL_ZIP_ZIP_WRITER_LIBRARY_H_

#include <memory>
#include <vector>

#include <opc/model/export.h>

#include "zip_archive.h"

namespace opc {
namespace model {
namespace detail {

class ReplacementFile;

// What the ZIP writer library offers.  Thread-safe; lives to the end of the process.
class ZipWriterLibrary {
 public:
  // A writer over libzip into `file` (the caller's, or `owned`, which the writer then owns
  // and commits), or into `out`: the writers of ZipWriter::toFile, toReplacement and
  // toBuffer, with their contracts.
  virtual std::unique_ptr<ZipWriter> make(ReplacementFile* file,
                                          std::unique_ptr<ReplacementFile> owned,
                                          std::vector<unsigned char>* out,
                                          unsigned compressionThreads) const = 0;

 protected:
  ~ZipWriterLibrary() = default;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

// The ZIP writer library's one entry, looked up by name.
extern "C" OPC_MODEL_EXPORT opc::model::detail::ZipWriterLibrary const* opcmodel_zip_writers();

#endif  // OPC_MODEL_ZIP_ZIP_WRITER_LIBRARY_H_
