// The streams that Part::getInputStream and Part::getOutputStream give.  They belong to the
// package state.  Internal to libopcmodel: PartOutputStream carries OPC_MODEL_EXPORT only so
// that the unit tests can reach it.
#ifndef OPC_MODEL_PACKAGE_PART_STREAMS_H_
#define OPC_MODEL_PACKAGE_PART_STREAMS_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/model/export.h>
#include <opc/model/part_name.h>

#include "part_content.h"
#include "shared_spool.h"

namespace opc {
namespace model {
namespace detail {

class EagerArchive;
struct PartRecord;

// Reads one content as it stood when the stream was made.  open() starts reading; read()
// before open() opens.  close() releases the reader and the content, so that streams kept
// until the package goes cost a few bytes each; a closed stream cannot be opened again
// (InvalidPackageState): a part gives a new stream for each reading.
class PartInputStream : public opc::InputStream {
 public:
  PartInputStream(std::shared_ptr<PartContent const> content, PartName name);
  ~PartInputStream() override;

  void open() override;
  std::size_t read(unsigned char* buffer, std::size_t count) override;
  bool isDone() const override;
  void close() override;

 private:
  std::shared_ptr<PartContent const> content_;
  std::unique_ptr<ContentReader> reader_;
  PartName name_;
  bool closed_ = false;
};

// Collects the new content of a part: in memory up to `threshold` bytes, then in a spool
// file of its own.  With a shared spool, the memory also counts against the package's budget,
// and content that does not fit goes to the shared file instead.  close() makes it the part's
// content, unless the part was deleted meanwhile; writing to a closed stream throws
// InvalidPackageState.  With an eager archive, the content goes into it on close() (see
// EagerArchive) and the part holds what it gives back.
//
// A closed stream stays as long as the package (its writer may still hold it), so everything
// an open stream needs lives apart and goes at close(): a package of 100,000 parts written one
// after another keeps 100,000 closed streams of two pointers each (one to the part's name,
// shared with its record, for the error of a late write).
class OPC_MODEL_EXPORT PartOutputStream : public opc::OutputStream {
 public:
  PartOutputStream(std::shared_ptr<PartRecord> record, std::uint64_t threshold,
                   std::u16string spoolFolder, std::shared_ptr<SharedSpool> shared = nullptr,
                   std::shared_ptr<EagerArchive> eager = nullptr);
  ~PartOutputStream() override;

  void write(unsigned char const* buffer, std::size_t count) override;
  void flush() override;
  void close() override;

  bool isClosed() const { return !open_; }

 private:
  struct Open;

  // Keeps bytes in memory; their reservation is made.
  void hold(unsigned char const* buffer, std::size_t count);
  // Gives `write` the bytes held in memory, in order.
  void writeHeldTo(std::function<void(unsigned char const*, std::size_t)> const& write) const;
  // Frees the bytes held in memory and gives their reservation back.
  void dropBuffer();

  // The part's name, for the error of a late write: it shares the record's text.
  PartName name_;
  std::unique_ptr<Open> open_;  // null once closed
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_PART_STREAMS_H_
