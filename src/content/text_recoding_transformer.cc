#include "content/text_recoding_transformer.h"

#include <utility>

#include <opc/core/stream_helper.h>

#include "content/text_spool.h"

namespace opc {
namespace vkservices {
namespace detail {

TextRecodingTransformer::TextRecodingTransformer(TransformSource& owner, IContentSource& source,
                                                 std::ostream& remarks, std::string const& dataName)
    : Transformer(owner, source) {
  TextSpool spool(kRecodingMemoryBound);
  // The same copy as EntireStreamTransformer's, so that a failing source fails the same way.
  opc::StreamHelper::copyStreamToStream(wrappedSource().getInputStream(), spool);
  if (spool.check().settled()) {
    // Detection on the whole text would say UTF-8 and the transform would copy it unchanged:
    // the text as kept is the output, and only the remark is left to write.
    spool.check().writeRemark(remarks, dataName);
    stream_ = std::make_unique<SpooledInputStream>(spool.takeHead(), spool.takeRest());
    return;
  }
  bytes output;
  {
    // Detection needs the whole text in memory.  Most of such text is there already: the
    // spool stops using its file at the first byte that rules UTF-8 out.
    bytes const input = spool.takeWhole();
    transform(input, output);
  }
  stream_ = std::make_unique<SpooledInputStream>(std::move(output), nullptr);
}

TextRecodingTransformer::~TextRecodingTransformer() = default;

opc::InputStream& TextRecodingTransformer::getInputStream() { return *stream_; }

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
