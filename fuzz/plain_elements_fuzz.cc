// The strict reader of flat documents (content types, relationships) against the parser's
// road: a document that the strict reader accepts must be one that the parser accepts, with
// the same root in the same namespace, and in which the parser's road finds the same elements
// with the same values.  A document given up on is the parser's alone, so nothing is asked of
// it.  The reader of a stream, fed in small reads, must give the same answer as the one of
// memory.
//
// Input: the bytes of a document, read as each of the two shapes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/core/stream_adaptors.h>

#include "fuzz_support.h"
#include "xml/plain_elements.h"
#include "xml_engine/xml_engine.h"

namespace {

using opc::model::detail::PlainDocumentShape;
using opc::model::detail::PlainElement;
using opc::model::detail::PlainElementKind;
using opcvk_fuzz::check;

constexpr char16_t kTypesNamespace[] =
    u"http://schemas.openxmlformats.org/package/2006/content-types";
constexpr char16_t kRelationshipsNamespace[] =
    u"http://schemas.openxmlformats.org/package/2006/relationships";
PlainElementKind const kTypeKinds[] = {{u"Default", {u"Extension", u"ContentType"}},
                                       {u"Override", {u"PartName", u"ContentType"}}};
PlainElementKind const kRelationshipKinds[] = {
    {u"Relationship", {u"Id", u"Type", u"Target", u"TargetMode"}}};
PlainDocumentShape const kShapes[] = {
    {u"Types", kTypesNamespace, kTypeKinds, 2},
    {u"Relationships", kRelationshipsNamespace, kRelationshipKinds, 1}};

// Gives its bytes a few at a time, as an inflating stream may.
class SmallReads : public opc::InputStream {
 public:
  SmallReads(std::uint8_t const* data, std::size_t size, std::size_t step)
      : data_(data), size_(size), step_(step) {}
  void open() override {}
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::size_t const n = std::min({count, step_, size_ - at_});
    std::copy_n(data_ + at_, n, buffer);
    at_ += n;
    return n;
  }
  bool isDone() const override { return at_ == size_; }
  void close() override {}

 private:
  std::uint8_t const* data_;
  std::size_t size_;
  std::size_t step_;
  std::size_t at_ = 0;
};

struct Fixture {
  std::unique_ptr<opc::model::detail::XmlTreeReader> reader =
      opc::model::detail::xmlEngine().makeTreeReader(opc::model::detail::XmlReaderSettings());
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

std::string describe(std::vector<PlainElement> const& elements) {
  std::u16string text;
  for (PlainElement const& element : elements) {
    text += u"[" + std::u16string(1, static_cast<char16_t>(u'0' + element.kind));
    for (auto const& value : element.values) text += value ? u" \"" + *value + u"\"" : u" -";
    text += u"]";
  }
  return opcvk_fuzz::printable(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Fixture& f = fixture();
  std::string const shown = opcvk_fuzz::printable(std::string(data, data + size));
  for (PlainDocumentShape const& shape : kShapes) {
    std::vector<PlainElement> plain;
    bool const accepted = opc::model::detail::readPlainElements(data, size, shape, plain);

    SmallReads stream(data, size, 1 + size % 7);
    std::vector<PlainElement> streamed;
    bool const acceptedStreamed =
        opc::model::detail::readPlainElements(stream, size / 2, shape, streamed);
    check(acceptedStreamed == accepted && (!accepted || streamed == plain),
          "a stream read in small pieces reads as memory does", shown);
    if (!accepted) continue;

    std::vector<unsigned char> const bytes(data, data + size);
    opc::ByteArrayInAdaptor in(bytes);
    std::vector<PlainElement> parsed;
    opcvk_fuzz::mustNotThrow("the parser reads what the strict reader accepts", shown, [&] {
      opc::model::detail::XmlNode const root =
          f.reader->read(in, false, u"", std::u16string(shape.ns));
      check(root.localName == shape.root, "the parser finds the root that the strict reader found",
            shown);
      parsed = opc::model::detail::plainElementsOf(root, shape);
    });
    check(parsed == plain, "the parser's road finds the elements that the strict reader found",
          shown + "\n*** strict: " + describe(plain) + "\n*** parser: " + describe(parsed));
  }
  return 0;
}
