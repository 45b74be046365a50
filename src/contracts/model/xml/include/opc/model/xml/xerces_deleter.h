// XercesDeleter: lets std::unique_ptr own objects of the XML library.
#ifndef OPC_MODEL_XML_XERCES_DELETER_H_
#define OPC_MODEL_XML_XERCES_DELETER_H_

namespace opc {
namespace model {

// Parsers, documents and serializers of the XML library are not deleted but released, which
// also frees what they own (a parser its documents, a document its nodes).  Releasing needs
// the library initialised: keep a XercesGuard alive longer than the pointer.  Null is
// ignored.
struct XercesDeleter {
  template <typename T>
  void operator()(T* object) const {
    if (object != nullptr) {
      object->release();
    }
  }
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XERCES_DELETER_H_
