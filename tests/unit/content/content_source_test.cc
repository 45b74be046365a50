#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <opc/model/content_type.h>
#include <opc/vkservices/content_sources.h>

#include "support/byte_streams.h"

namespace opc {
namespace vkservices {
namespace {

using opc::model::ContentType;

// The interface has copy operations for derived classes that want to be values.
class ValueSource : public IContentSource {
 public:
  explicit ValueSource(std::string text) : text_(std::move(text)) {}
  ValueSource(ValueSource const& other) = default;
  ValueSource& operator=(ValueSource const& other) = default;
  ContentType getContentType() override { return ContentType(u"text/plain"); }
  opc::InputStream& getInputStream() override { return *stream_; }
  std::string const& text() const { return text_; }

 private:
  std::string text_;
  std::shared_ptr<opcvk_test::MemoryInputStream> stream_ =
      std::make_shared<opcvk_test::MemoryInputStream>("");
};

TEST(IContentSourceTest, DerivedValuesCanBeCopied) {
  ValueSource first("one");
  ValueSource second(first);
  EXPECT_EQ(second.text(), "one");
  ValueSource third("three");
  third = first;
  EXPECT_EQ(third.text(), "one");
}

TEST(IContentSourceTest, DeletesThroughTheInterface) {
  bool deleted = false;
  class Tracked : public ValueSource {
   public:
    explicit Tracked(bool& deleted) : ValueSource("x"), deleted_(deleted) {}
    ~Tracked() override { deleted_ = true; }

   private:
    bool& deleted_;
  };
  std::unique_ptr<IContentSource> source = std::make_unique<Tracked>(deleted);
  source.reset();
  EXPECT_TRUE(deleted);
}

}  // namespace
}  // namespace vkservices
}  // namespace opc
