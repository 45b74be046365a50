#include <opc/vkservices/content_sources.h>

namespace opc {
namespace vkservices {

PartContentSource::PartContentSource(opc::model::Part const& part)
    : contentType_(part.getContentType()), stream_(nullptr) {
  // Part handles are copies of one another; the copy gives access to the stream without
  // changing what the caller holds.
  opc::model::Part handle(part);
  stream_ = &handle.getInputStream();
  // A stream left at its end by an earlier reader is closed and opened again, so that a part
  // can be read more than once.  The part is asked for its stream once more between the two:
  // a model that keeps one stream per part gives the same object back, to be opened from the
  // start, and one that gives a new stream for each reading (whose closed streams stay
  // closed) gives a fresh one.  A stream that is part way through is taken as it stands: its
  // reader may mean to go on.
  if (stream_->isDone()) {
    stream_->close();
    stream_ = &handle.getInputStream();
    stream_->open();
  }
}

PartContentSource::~PartContentSource() = default;

opc::model::ContentType PartContentSource::getContentType() { return contentType_; }

opc::InputStream& PartContentSource::getInputStream() { return *stream_; }

}  // namespace vkservices
}  // namespace opc
