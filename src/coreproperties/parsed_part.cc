#include "coreproperties/parsed_part.h"

#include <vector>

#include <opc/model/xml/xml_exceptions.h>

#include "contracts/model/xml_engine/plain_xml.h"

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

opc::model::detail::XmlNode readPropertiesPart(
    std::function<opc::model::detail::XmlTreeReader&()> const& reader, opc::InputStream& stream,
    bool validate, std::string const& partDescription,
    std::function<bool(opc::model::detail::XmlNode const&)> const& vouch) {
  opc::model::detail::ReadAhead ahead(stream, kMaxPropertiesPartSize);
  if (ahead.complete()) {
    opc::model::detail::XmlNode root;
    std::vector<unsigned char> const& bytes = ahead.bytes();
    if (opc::model::detail::readPlainXml(bytes.data(), bytes.size(), root) && vouch(root)) {
      ahead.close();
      return root;
    }
  }
  // The parser reads the bytes read ahead and whatever the stream still holds, through the
  // same bound, so that it meets every failure where it would have met it.
  opc::model::detail::XmlTreeReader* parser = nullptr;
  try {
    parser = &reader();
  } catch (...) {
    // The parser cannot read the part: the stream is left closed, as a read leaves it.
    try {
      ahead.close();
    } catch (...) {
      // The failure to make the reader is the one to tell.
    }
    throw;
  }
  BoundedInputStream bounded(ahead.replay(), kMaxPropertiesPartSize, partDescription);
  try {
    return parser->read(bounded, validate, std::u16string(), std::u16string());
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidPartContent(e.what());
  }
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
