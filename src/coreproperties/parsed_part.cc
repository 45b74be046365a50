#include "coreproperties/parsed_part.h"

#include <opc/model/xml/xml_exceptions.h>

namespace opc {
namespace vkservices {
namespace detail {
namespace {

// Passes reading on to `source` and refuses to go past `limit` bytes.
class BoundedInputStream : public opc::InputStream {
 public:
  BoundedInputStream(opc::InputStream& source, std::size_t limit, std::string const& description)
      : source_(source), limit_(limit), description_(description) {}
  ~BoundedInputStream() override = default;

  void open() override { source_.open(); }
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::size_t const got = source_.read(buffer, count);
    total_ += got;
    if (total_ > limit_) {
      throw opc::model::InvalidPartContent("The " + description_ + " part is larger than " +
                                           std::to_string(limit_) + " bytes");
    }
    return got;
  }
  bool isDone() const override { return source_.isDone(); }
  void close() override { source_.close(); }

 private:
  opc::InputStream& source_;
  std::size_t const limit_;
  std::string const& description_;
  std::size_t total_ = 0;
};

}  // namespace

opc::model::detail::XmlNode readPropertiesPart(opc::model::detail::XmlTreeReader& reader,
                                               opc::InputStream& stream, bool validate,
                                               std::string const& partDescription) {
  BoundedInputStream bounded(stream, kMaxPropertiesPartSize, partDescription);
  try {
    return reader.read(bounded, validate, std::u16string(), std::u16string());
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
