// Content sources: what carries bytes of a known content type into or out of a package
// file.  IContentSource is the interface; FileContentSource, StreamContentSource and
// PartContentSource deliver bytes unchanged from a file, a std::istream and a part.
// TransformSource (transform_source.h) wraps one of them to change bytes and type.
#ifndef OPC_VKSERVICES_CONTENT_SOURCES_H_
#define OPC_VKSERVICES_CONTENT_SOURCES_H_

#include <istream>
#include <memory>
#include <string>

#include <boost/core/noncopyable.hpp>

#include <opc/core/file_system_ops.h>
#include <opc/core/input_stream.h>
#include <opc/core/stream_adaptors.h>
#include <opc/model/content_type.h>
#include <opc/model/part.h>
#include <opc/vkservices/export.h>

namespace opc {
namespace vkservices {

// Bytes and their content type: one object answers what the bytes are and of which type.
// Sources travel by std::unique_ptr<IContentSource> and belong to whoever holds the pointer.
//
// Sources are not synchronised: one source is used by one thread at a time.
class OPCVK_EXPORT IContentSource {
 public:
  IContentSource();
  // The interface holds no state, so copying does nothing; the concrete sources are not
  // copyable.
  IContentSource(IContentSource const& other);
  IContentSource& operator=(IContentSource const& other);
  virtual ~IContentSource();

  // The content type of the bytes that getInputStream() delivers, as a new value that the
  // caller owns.
  virtual opc::model::ContentType getContentType() = 0;

  // The stream of the bytes.  Every call returns the same object, owned by the source (or by
  // what the source reads from, as each class says) and valid while the source lives; its
  // position is shared by everyone who asked for it.  Follow the stream's protocol: open(),
  // read() until isDone(), close().
  virtual opc::InputStream& getInputStream() = 0;
};

// The bytes of a std::istream, from where it stands, with a content type given by the caller.
//
// The std::istream is not owned: the caller keeps it alive, and untouched by others, for as
// long as the source lives (a source that outlives it is the caller's fault and is not
// guarded against).  The source neither opens, rewinds nor reads the stream itself.  Reading
// goes through opc::StdIStreamAdaptor, so a std::istream that fails makes read() and
// isDone() raise opc::Exception ("Could not read from the input stream").
class OPCVK_EXPORT StreamContentSource : public IContentSource {
 public:
  // Keeps a copy of `contentType`.  Raises nothing but std::bad_alloc.
  StreamContentSource(std::istream& stream, opc::model::ContentType const& contentType);
  StreamContentSource(StreamContentSource const&) = delete;
  StreamContentSource& operator=(StreamContentSource const&) = delete;
  ~StreamContentSource() override;

  // A copy of the type given at construction.
  opc::model::ContentType getContentType() override;
  // The adaptor over the std::istream, owned by this source.
  opc::InputStream& getInputStream() override;

 private:
  opc::model::ContentType contentType_;
  std::unique_ptr<opc::StdIStreamAdaptor> stream_;
};

// The content of one part of a package, with the part's content type.
//
// The part's handle is not kept.  The stream is the one that Part::getInputStream() gave at
// construction; it belongs to the package, so the package must stay open while the source
// is used.  A stream that had been read to its end is closed, asked for again and opened, so
// that a part can be read once more (an empty part is read as empty); a stream that is not
// at its end is taken where it stands.
class OPCVK_EXPORT PartContentSource : public IContentSource, private boost::noncopyable {
 public:
  // Copies the part's content type and takes its input stream.  Raises what the package
  // model raises for the part (for example InvalidPackageState for a handle whose package is
  // gone), and what the stream's close() and open() raise.
  explicit PartContentSource(opc::model::Part const& part);
  ~PartContentSource() override;

  // A copy of the part's type as it was at construction.
  opc::model::ContentType getContentType() override;
  // The part's stream, owned by the package.
  opc::InputStream& getInputStream() override;

 private:
  opc::model::ContentType contentType_;
  opc::InputStream* stream_;
};

// The bytes of a file, opened for binary reading at construction through an
// opc::FileSystemOps, with a content type given or found by the file's extension.
//
// Without a ContentType the type is lookupContentType(fileSystem, path,
// getORVANEDefaultContentType()) (content_types.h), chosen before the file is opened: an
// extension the table does not know gives the default type.  Without a FileSystemOps the
// source uses the process-wide opc::LocalFileSystemOps::getShared(), which it never copies.
//
// A source that exists has an open file, which it owns and closes when it is destroyed.  The
// path is used as given.
class OPCVK_EXPORT FileContentSource : public IContentSource, private boost::noncopyable {
 public:
  // The local file system; the type found by extension.
  explicit FileContentSource(std::u16string const& path);
  // `fileSystem`, which must outlive the constructor call only; the type found by extension.
  FileContentSource(std::u16string const& path, opc::FileSystemOps& fileSystem);
  // The local file system; `contentType` whatever the extension says.
  FileContentSource(std::u16string const& path, opc::model::ContentType const& contentType);
  // `fileSystem` and `contentType`.
  //
  // Opens `path` with fileSystem.createInputStream(path, 33, code) (binary input).  If that
  // fails, raises CouldNotOpenFile with "Could not open file: " and the path (through
  // opc::toUDEString), carrying the file system's error code; nothing is left behind.  A
  // file system that reports success but gives no stream counts as a failure with the code
  // EIO (io_error).  The constructors that find the type raise the
  // opc::Exception of FileSystemOps::getExtension if that fails.
  FileContentSource(std::u16string const& path, opc::model::ContentType const& contentType,
                    opc::FileSystemOps& fileSystem);
  ~FileContentSource() override;

  // The type given or found at construction.
  opc::model::ContentType getContentType() override;
  // The stream over the open file, owned by this source, from the start of the file.  A
  // read error of the file raises opc::Exception ("Could not read from the input stream").
  opc::InputStream& getInputStream() override;

 private:
  // Declared in this order so that the source over the file goes before the file itself.
  std::shared_ptr<std::istream> file_;
  std::unique_ptr<IContentSource> inner_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_CONTENT_SOURCES_H_
