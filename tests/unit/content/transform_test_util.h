// Test doubles for transform sources: a wrapped source over memory that counts what is asked
// of it, and a transform whose behaviour each test scripts.
#ifndef TESTS_UNIT_CONTENT_TRANSFORM_TEST_UTIL_H_
#define TESTS_UNIT_CONTENT_TRANSFORM_TEST_UTIL_H_

#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <opc/core/stream_helper.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/transform_source.h>

#include "support/byte_streams.h"

namespace opcvk_test {

// A source over a MemoryInputStream.  Its counters and stream stay reachable through a
// shared record after the TransformSource has taken the source over.
struct MemorySourceRecord {
  explicit MemorySourceRecord(std::string content,
                              std::size_t chunk = std::numeric_limits<std::size_t>::max())
      : stream(std::move(content), chunk) {}

  MemoryInputStream stream;
  opc::model::ContentType type{u"text/plain;charset=utf-8"};
  int typeQueries = 0;
  int streamQueries = 0;
  bool destroyed = false;
};

class MemorySource : public opc::vkservices::IContentSource {
 public:
  explicit MemorySource(std::shared_ptr<MemorySourceRecord> record) : record_(std::move(record)) {}
  ~MemorySource() override { record_->destroyed = true; }

  opc::model::ContentType getContentType() override {
    ++record_->typeQueries;
    return record_->type;
  }
  opc::InputStream& getInputStream() override {
    ++record_->streamQueries;
    return record_->stream;
  }

 private:
  std::shared_ptr<MemorySourceRecord> record_;
};

// A transform whose answers the test sets.  By default it turns letters to capitals and
// adds the parameter "transformed=yes" to the type.  Every call is recorded.
class ScriptedTransform : public opc::vkservices::TransformSource {
 public:
  using DataFunction = std::function<bool(opc::vkservices::bytes const&, opc::vkservices::bytes&)>;
  using TypeFunction =
      std::function<bool(opc::model::ContentType const&, opc::model::ContentType&)>;

  ScriptedTransform(std::unique_ptr<opc::vkservices::IContentSource> source, bool entire)
      : TransformSource(std::move(source)), entire_(entire) {}

  static bool capitals(opc::vkservices::bytes const& input, opc::vkservices::bytes& output) {
    for (unsigned char c : input) {
      output.push_back(c >= 'a' && c <= 'z' ? static_cast<unsigned char>(c - 'a' + 'A') : c);
    }
    return true;
  }

  bool mustTransformEntireStream() override {
    ++modeQueries;
    return entire_;
  }

  bool transformContentType(opc::model::ContentType const& input,
                            opc::model::ContentType& output) override {
    ++typeCalls;
    outputWasCopyOfInput.push_back(output.toString() == input.toString());
    if (typeFunction) return typeFunction(input, output);
    output.addParameter(u"transformed", u"yes");
    return true;
  }

  bool transformData(opc::vkservices::bytes const& input, opc::vkservices::bytes& output) override {
    inputs.emplace_back(input.begin(), input.end());
    outputWasEmpty.push_back(output.empty());
    if (dataFunction) return dataFunction(input, output);
    return capitals(input, output);
  }

  DataFunction dataFunction;
  TypeFunction typeFunction;
  int modeQueries = 0;
  int typeCalls = 0;
  std::vector<std::string> inputs;
  std::vector<bool> outputWasEmpty;
  std::vector<bool> outputWasCopyOfInput;

 private:
  bool entire_;
};

// Everything a source delivers, read by the stream protocol.
inline std::string drain(opc::vkservices::IContentSource& source) {
  MemoryOutputStream out;
  opc::StreamHelper::copyStreamToStream(source.getInputStream(), out);
  return out.bytes;
}

// Reads by isDone() alone, with reads of `size`, as a reader of a chunked transform must.
inline std::string readAll(opc::InputStream& stream, std::size_t size) {
  std::string out;
  std::vector<unsigned char> buffer(size);
  stream.open();
  while (!stream.isDone()) {
    std::size_t n = stream.read(buffer.data(), buffer.size());
    out.append(reinterpret_cast<char const*>(buffer.data()), n);
  }
  stream.close();
  return out;
}

}  // namespace opcvk_test

#endif  // TESTS_UNIT_CONTENT_TRANSFORM_TEST_UTIL_H_
