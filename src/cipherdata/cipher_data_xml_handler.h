// CipherDataXmlHandler: reads and writes the document of the cipher data part.
#ifndef SRC_CIPHERDATA_CIPHER_DATA_XML_HANDLER_H_
#define SRC_CIPHERDATA_CIPHER_DATA_XML_HANDLER_H_

#include <memory>
#include <string>
#include <vector>

#include <boost/core/noncopyable.hpp>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/vkservices/cipher_entry.h>

#include "contracts/model/xml_engine/xml_engine.h"

namespace opc {
namespace vkservices {

// The document of the cipher data part:
//
//   <CipherData xmlns="<SchemaBase>/package/2018/cipherData">
//     <CipherEntry>                                  one or more
//       <RelationshipSelector SourceURI="/" SelectorType="ByType" Value="..."/>
//       <Hash>base64</Hash>
//       <Salt>text as it stands</Salt>
//       <IV>base64</IV>
//       [<NewEntry>anything</NewEntry>]              accepted, never read or written
//     </CipherEntry>
//   </CipherData>
//
// Every document is validated against the schema compiled into the library; the parser
// refuses document type declarations and external resources, and no document larger than
// detail::kMaxCipherDataPartSize is read.  The object owns one reader with the schema
// compiled, made by the first read (a handler that only writes never compiles it), and is
// used by one thread at a time.  Constructing one loads nothing: the XML library is loaded
// by the first read or write.
class CipherDataXmlHandler : private boost::noncopyable {
 public:
  CipherDataXmlHandler();
  ~CipherDataXmlHandler();

  // Parses and validates the document from `stream` (opened, read to its end and closed)
  // and appends its entries to `entries` in document order.  A "SelectorType" of exactly
  // "ByType" selects by type; any other text by id.  Raises opc::model::InvalidPartContent
  // with the parser's text for a document that is not well-formed or not valid, "The cipher
  // data part is larger than 4194304 bytes" beyond the size limit, "XML signature:
  // RelationshipSelector is not present." for an entry without a selector,
  // "RelationshipSelector xml element missing SourceURI attribute." (SelectorType,
  // SelectorValue for the attribute Value) for a missing attribute, and "XML signature: Hash
  // is empty." (Salt, IV) for a value without text.  A hash or IV that is not strict base64
  // raises foundation::crypto::utils::Exception.  An exception of `stream` passes through.
  // Entries appended before a failure stay appended.  The first read compiles the schema,
  // and raises opc::model::InvalidXMLSchema "Schema could not be loaded: <parser's text>"
  // without opening `stream` if it does not load; the next read tries again.
  void read(opc::InputStream& stream, std::vector<CipherEntry>& entries);

  // Writes the document of `entries`, in their order, to `stream`, which is flushed, not
  // closed.  Raises opc::model::InvalidPartContent with the XML library's text if a value
  // holds a character that XML cannot carry; bytes written before stay written.
  void write(std::vector<CipherEntry> const& entries, opc::OutputStream& stream);

 private:
  std::unique_ptr<opc::model::detail::XmlTreeReader> reader_;
  std::u16string const namespace_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_CIPHERDATA_CIPHER_DATA_XML_HANDLER_H_
