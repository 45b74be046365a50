// libopcvkservices is made of the subsystem archives linked whole; a target needs at least
// one source of its own, and this is it.
namespace opc {
namespace vkservices {
namespace detail {
void libraryAnchor() {}
}  // namespace detail
}  // namespace vkservices
}  // namespace opc
