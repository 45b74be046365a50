#include <memory>
#include <sstream>
#include <streambuf>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/stream_helper.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/content_sources.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace opc {
namespace vkservices {
namespace {

using opc::model::ContentType;

static_assert(!std::is_copy_constructible<StreamContentSource>::value, "not copyable");
static_assert(!std::is_copy_assignable<StreamContentSource>::value, "not copyable");
static_assert(std::is_base_of<IContentSource, StreamContentSource>::value, "a content source");

// Everything the source delivers, read by the stream protocol.
std::string drain(IContentSource& source) {
  opcvk_test::MemoryOutputStream out;
  opc::StreamHelper::copyStreamToStream(source.getInputStream(), out);
  return out.bytes;
}

// Gives `good` bytes, then fails as a broken device would: the std::istream catches the
// exception and sets badbit.
class FailingBuffer : public std::streambuf {
 public:
  explicit FailingBuffer(std::string good) : good_(std::move(good)) {
    setg(good_.data(), good_.data(), good_.data() + good_.size());
  }

 protected:
  int_type underflow() override { throw std::runtime_error("device failure"); }

 private:
  std::string good_;
};

TEST(StreamContentSourceTest, DeliversEveryByteOfTheStream) {
  char const bytes[] = "binary\0\xff\x80 content\n";
  std::string const content(bytes, sizeof bytes - 1);
  std::istringstream stream(content);
  StreamContentSource source(stream, ContentType(u"application/octet-stream"));
  EXPECT_EQ(drain(source), content);
}

TEST(StreamContentSourceTest, KeepsACopyOfTheGivenType) {
  std::istringstream stream("x");
  ContentType type(u"text/plain;charset=utf-8;encoding=\"a b\"");
  StreamContentSource source(stream, type);
  type.addParameter(u"charset", u"latin1");
  EXPECT_EQ(source.getContentType().toString(), u"text/plain;charset=utf-8;encoding=\"a b\"");

  ContentType given = source.getContentType();
  given.removeParameter(u"charset");
  EXPECT_TRUE(source.getContentType().hasParameter(u"charset"));
}

TEST(StreamContentSourceTest, GivesTheSameStreamEveryTime) {
  std::istringstream stream("abc");
  StreamContentSource source(stream, ContentType(u"text/plain"));
  EXPECT_EQ(&source.getInputStream(), &source.getInputStream());
}

TEST(StreamContentSourceTest, PositionIsSharedByEveryoneWhoAsks) {
  std::istringstream stream("abcdef");
  StreamContentSource source(stream, ContentType(u"text/plain"));
  unsigned char buffer[3];
  ASSERT_EQ(source.getInputStream().read(buffer, 3), 3u);
  unsigned char rest[8];
  ASSERT_EQ(source.getInputStream().read(rest, sizeof rest), 3u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(rest), 3), "def");
  EXPECT_TRUE(source.getInputStream().isDone());
}

TEST(StreamContentSourceTest, NeitherOpensRewindsNorReadsTheStream) {
  std::istringstream stream("0123456789");
  char skipped[4];
  stream.read(skipped, 4);
  StreamContentSource source(stream, ContentType(u"text/plain"));
  EXPECT_EQ(stream.tellg(), 4);
  source.getContentType();
  source.getInputStream();
  EXPECT_EQ(stream.tellg(), 4);
  EXPECT_EQ(drain(source), "456789");
}

TEST(StreamContentSourceTest, EmptyStreamIsDoneAtOnce) {
  std::istringstream stream("");
  StreamContentSource source(stream, ContentType(u"text/plain"));
  EXPECT_TRUE(source.getInputStream().isDone());
  unsigned char buffer[4];
  EXPECT_EQ(source.getInputStream().read(buffer, sizeof buffer), 0u);
  EXPECT_EQ(drain(source), "");
}

TEST(StreamContentSourceTest, StreamInAFailedStateRaisesOnRead) {
  std::istringstream stream("abc");
  stream.setstate(std::ios::badbit);
  StreamContentSource source(stream, ContentType(u"text/plain"));
  unsigned char buffer[4];
  EXPECT_THROW_MESSAGE(source.getInputStream().read(buffer, sizeof buffer), opc::Exception,
                       "Could not read from the input stream");
}

TEST(StreamContentSourceTest, StreamFailingMidwayRaisesAfterTheGoodBytes) {
  FailingBuffer buffer("good bytes");
  std::istream stream(&buffer);
  StreamContentSource source(stream, ContentType(u"text/plain"));
  opcvk_test::MemoryOutputStream out;
  EXPECT_THROW_MESSAGE(opc::StreamHelper::copyStreamToStream(source.getInputStream(), out),
                       opc::Exception, "Could not read from the input stream");
  EXPECT_EQ(out.bytes, "");
}

TEST(StreamContentSourceTest, LargeContentArrivesWhole) {
  std::string content(1 << 20, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 31 + 7);
  std::istringstream stream(content);
  StreamContentSource source(stream, ContentType(u"application/octet-stream"));
  EXPECT_EQ(drain(source), content);
}

TEST(StreamContentSourceTest, WorksThroughTheInterface) {
  std::istringstream stream("through the interface");
  std::unique_ptr<IContentSource> source =
      std::make_unique<StreamContentSource>(stream, ContentType(u"text/html"));
  EXPECT_EQ(source->getContentType().toString(), u"text/html");
  EXPECT_EQ(drain(*source), "through the interface");
}

}  // namespace
}  // namespace vkservices
}  // namespace opc
