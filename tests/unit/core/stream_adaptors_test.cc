#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/stream_adaptors.h>

#include "support/expect_exception.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A stream buffer that gives `good` bytes and then fails as a broken device does.
class BrokenInBuffer : public std::streambuf {
 public:
  explicit BrokenInBuffer(std::string good) : good_(std::move(good)) {
    setg(&good_[0], &good_[0], &good_[0] + good_.size());
  }

 protected:
  int_type underflow() override { throw std::runtime_error("device gone"); }

 private:
  std::string good_;
};

// A stream buffer that takes `room` bytes and then refuses.
class FullOutBuffer : public std::streambuf {
 public:
  explicit FullOutBuffer(std::size_t room) : room_(room) {}
  std::string taken;

 protected:
  int_type overflow(int_type c) override {
    if (taken.size() >= room_ || traits_type::eq_int_type(c, traits_type::eof())) {
      return traits_type::eof();
    }
    taken.push_back(traits_type::to_char_type(c));
    return c;
  }
  int sync() override { return taken.size() >= room_ ? -1 : 0; }

 private:
  std::size_t room_;
};

std::string readEverything(opc::InputStream& stream, std::size_t block) {
  std::string out;
  std::vector<unsigned char> buffer(block);
  while (!stream.isDone()) {
    std::size_t count = stream.read(buffer.data(), buffer.size());
    EXPECT_GT(count, 0u);
    if (count == 0) break;
    out.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
  }
  return out;
}

TEST(StdIStreamAdaptorTest, ReadsEveryByteAndIsDoneExactly) {
  std::istringstream source(std::string("abc\0def", 7));
  opc::StdIStreamAdaptor adaptor(source);
  adaptor.open();
  EXPECT_FALSE(adaptor.isDone());
  unsigned char buffer[4];
  EXPECT_EQ(adaptor.read(buffer, 4), 4u);
  EXPECT_FALSE(adaptor.isDone());
  EXPECT_EQ(adaptor.read(buffer, 4), 3u);
  EXPECT_EQ(std::string(buffer, buffer + 3), "def");
  EXPECT_TRUE(adaptor.isDone());
  EXPECT_EQ(adaptor.read(buffer, 4), 0u);
  adaptor.close();
  adaptor.close();
}

TEST(StdIStreamAdaptorTest, IsDoneBeforeAnyReadOfAnEmptyStream) {
  std::istringstream empty;
  opc::StdIStreamAdaptor adaptor(empty);
  EXPECT_TRUE(adaptor.isDone());
  std::istringstream exact("1234");
  opc::StdIStreamAdaptor exactAdaptor(exact);
  unsigned char buffer[4];
  EXPECT_EQ(exactAdaptor.read(buffer, 4), 4u);
  EXPECT_TRUE(exactAdaptor.isDone()) << "the last byte read means done, without another read";
}

TEST(StdIStreamAdaptorTest, ReadsFromWhereTheStreamStands) {
  std::istringstream source("skip-keep");
  source.seekg(5);
  opc::StdIStreamAdaptor adaptor(source);
  EXPECT_EQ(readEverything(adaptor, 2), "keep");
}

TEST(StdIStreamAdaptorTest, FailingStreamRaises) {
  BrokenInBuffer broken("ok");
  std::istream source(&broken);
  opc::StdIStreamAdaptor adaptor(source);
  unsigned char buffer[8];
  EXPECT_THROW_MESSAGE(adaptor.read(buffer, 8), opc::Exception,
                       "Could not read from the input stream");
  EXPECT_THROW_MESSAGE(adaptor.isDone(), opc::Exception, "Could not read from the input stream");
  std::istringstream failed("data");
  failed.setstate(std::ios_base::failbit);
  opc::StdIStreamAdaptor failedAdaptor(failed);
  EXPECT_THROW_MESSAGE(failedAdaptor.read(buffer, 8), opc::Exception,
                       "Could not read from the input stream");
}

TEST(StdIStreamAdaptorTest, EndIsNoFailureEvenWithExceptionsEnabled) {
  std::istringstream source("xy");
  source.exceptions(std::ios_base::failbit | std::ios_base::eofbit);
  opc::StdIStreamAdaptor adaptor(source);
  unsigned char buffer[8];
  EXPECT_EQ(adaptor.read(buffer, 8), 2u);
  EXPECT_TRUE(adaptor.isDone());
}

TEST(StdIStreamAdaptorTest, FailureCarriesIoError) {
  BrokenInBuffer broken("");
  std::istream source(&broken);
  opc::StdIStreamAdaptor adaptor(source);
  try {
    adaptor.isDone();
    FAIL() << "no exception";
  } catch (opc::Exception const& e) {
    EXPECT_EQ(e.code(), boost::system::errc::io_error);
  }
}

TEST(StdOStreamAdaptorTest, WritesAndFlushesWithoutClosingTheStream) {
  std::ostringstream sink;
  {
    opc::StdOStreamAdaptor adaptor(sink);
    unsigned char const data[] = {'a', 0, 'b'};
    adaptor.write(data, 3);
    adaptor.write(data, 0);
    adaptor.flush();
    adaptor.close();
  }
  sink << "!";
  EXPECT_EQ(sink.str(), std::string("a\0b!", 4));
}

TEST(StdOStreamAdaptorTest, FailingStreamRaises) {
  FullOutBuffer full(2);
  std::ostream sink(&full);
  opc::StdOStreamAdaptor adaptor(sink);
  unsigned char const data[] = {'1', '2', '3'};
  EXPECT_THROW_MESSAGE(adaptor.write(data, 3), opc::Exception,
                       "Could not write to the output stream");
  EXPECT_THROW_MESSAGE(adaptor.flush(), opc::Exception, "Could not write to the output stream");
  EXPECT_THROW_MESSAGE(adaptor.close(), opc::Exception, "Could not write to the output stream");
  FullOutBuffer syncFails(0);
  std::ostream other(&syncFails);
  opc::StdOStreamAdaptor otherAdaptor(other);
  EXPECT_THROW_MESSAGE(otherAdaptor.flush(), opc::Exception,
                       "Could not write to the output stream");
}

TEST(ByteArrayInAdaptorTest, ReadsTheVectorAndIsDoneExactly) {
  Bytes const empty;
  opc::ByteArrayInAdaptor emptyAdaptor(empty);
  EXPECT_TRUE(emptyAdaptor.isDone());
  unsigned char buffer[3];
  EXPECT_EQ(emptyAdaptor.read(buffer, 3), 0u);

  Bytes const bytes = {1, 2, 3, 4, 5};
  opc::ByteArrayInAdaptor adaptor(bytes);
  adaptor.open();
  EXPECT_FALSE(adaptor.isDone());
  EXPECT_EQ(adaptor.read(buffer, 0), 0u);
  EXPECT_EQ(adaptor.read(buffer, 3), 3u);
  EXPECT_EQ(Bytes(buffer, buffer + 3), (Bytes{1, 2, 3}));
  EXPECT_FALSE(adaptor.isDone());
  EXPECT_EQ(adaptor.read(buffer, 3), 2u);
  EXPECT_EQ(Bytes(buffer, buffer + 2), (Bytes{4, 5}));
  EXPECT_TRUE(adaptor.isDone());
  EXPECT_EQ(adaptor.read(buffer, 3), 0u);
  adaptor.close();
}

TEST(ByteArrayOutAdaptorTest, AppendsToTheCallersVector) {
  Bytes bytes = {9};
  {
    opc::ByteArrayOutAdaptor adaptor(bytes);
    unsigned char const data[] = {1, 2, 3};
    adaptor.write(data, 3);
    EXPECT_EQ(bytes, (Bytes{9, 1, 2, 3})) << "bytes are there when write returns";
    adaptor.write(nullptr, 0);
    adaptor.flush();
    adaptor.write(data, 1);
    adaptor.close();
  }
  EXPECT_EQ(bytes, (Bytes{9, 1, 2, 3, 1}));
}

}  // namespace
