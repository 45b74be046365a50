// UDEToUTF8Transform: text in whatever encoding it was stored in, delivered as UTF-8.
#ifndef OPC_VKSERVICES_UDE_TO_UTF8_TRANSFORM_H_
#define OPC_VKSERVICES_UDE_TO_UTF8_TRANSFORM_H_

#include <memory>

#include <opc/model/content_type.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/export.h>
#include <opc/vkservices/transform_source.h>

namespace opc {
namespace vkservices {

// Recodes the whole text of the wrapped source to UTF-8.  The encoding is detected from the
// text itself (the detector's remarks go to the process's standard output); text that is
// already UTF-8 passes byte for byte, a byte order mark included.  The content type gains
// "charset=utf-8" if it is text/plain, else "encoding=utf-8".
//
// The whole content is read on the first getInputStream(), which is where failures are
// raised: a failing read of the wrapped source passes through as it is, and the next call
// tries again on what the wrapped stream has left.  Text that is already UTF-8 (well-formed
// without zero bytes, or marked with the UTF-8 byte order mark) is recognised as it is read
// and passed on as it was kept: its first 4 MiB in memory, the rest in an unnamed temporary
// file in $TMPDIR (else /tmp), so memory stays a few MiB whatever the size; a file that cannot
// be made or written raises opc::Exception ("Could not create a temporary file in " and the
// folder, or "Could not write to a temporary file").  Any other text is detected and converted
// in memory as a whole: peak memory is a few times the text.  Failures of detection or
// conversion are raised as fl::i18n::I18nError and pass through unchanged.
//
// The streaming road is taken by this class itself; a class derived from it, whose
// transformData may differ, gets the whole-buffer road of TransformSource.
class OPCVK_EXPORT UDEToUTF8Transform : public TransformSource {
 public:
  explicit UDEToUTF8Transform(std::unique_ptr<IContentSource> source);
  ~UDEToUTF8Transform() override;

  // Always true: detection needs the whole text, and a character must not be cut in two.
  bool mustTransformEntireStream() override;
  bool transformContentType(opc::model::ContentType const& input,
                            opc::model::ContentType& output) override;
  bool transformData(bytes const& input, bytes& output) override;
};

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_UDE_TO_UTF8_TRANSFORM_H_
