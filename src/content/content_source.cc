#include <opc/vkservices/content_sources.h>

namespace opc {
namespace vkservices {

// The interface has no state; its special members exist out of line so that the library
// holds the one copy of its virtual table and type information.
IContentSource::IContentSource() = default;

IContentSource::IContentSource(IContentSource const& /*other*/) {}

IContentSource& IContentSource::operator=(IContentSource const& /*other*/) { return *this; }

IContentSource::~IContentSource() = default;

}  // namespace vkservices
}  // namespace opc
