#include <sstream>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/stream_adaptors.h>
#include <opc/core/stream_helper.h>

#include "support/expect_exception.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i * 13 % 256);
  return bytes;
}

// Records the protocol and gives its bytes in small, uneven pieces.
class RecordingInput : public opc::InputStream {
 public:
  explicit RecordingInput(Bytes bytes, bool failOnRead = false)
      : bytes_(std::move(bytes)), failOnRead_(failOnRead) {}
  ~RecordingInput() override = default;
  int opens = 0;
  int closes = 0;
  bool closeFails = false;

  void open() override { ++opens; }
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    if (failOnRead_) throw opc::Exception("read failed", {});
    std::size_t given = std::min({count, bytes_.size() - position_, std::size_t{1000}});
    std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(position_), given, buffer);
    position_ += given;
    return given;
  }
  bool isDone() const override { return position_ == bytes_.size(); }
  void close() override {
    ++closes;
    if (closeFails) throw opc::Exception("close failed", {});
  }

 private:
  Bytes bytes_;
  bool failOnRead_;
  std::size_t position_ = 0;
};

// An input that wrongly returns nothing before its end.
class StuckInput : public opc::InputStream {
 public:
  int closes = 0;
  void open() override {}
  std::size_t read(unsigned char*, std::size_t) override { return 0; }
  bool isDone() const override { return false; }
  void close() override { ++closes; }
};

class FailingOutput : public opc::OutputStream {
 public:
  void write(unsigned char const*, std::size_t) override { throw opc::Exception("disk full", {}); }
  void flush() override {}
  void close() override {}
};

class NoRoomBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type) override { return traits_type::eof(); }
};

TEST(StreamHelperTest, CopiesEveryByteBetweenOpcStreams) {
  for (std::size_t size :
       {std::size_t{0}, std::size_t{1}, std::size_t{65536}, std::size_t{300001}}) {
    RecordingInput input(pattern(size));
    Bytes out;
    opc::ByteArrayOutAdaptor output(out);
    EXPECT_TRUE(opc::StreamHelper::copyStreamToStream(input, output));
    EXPECT_EQ(out, pattern(size)) << size;
    EXPECT_EQ(input.opens, 1);
    EXPECT_EQ(input.closes, 1);
  }
}

// An input that gives as much as is asked of it, so that the copy's own blocks show.
TEST(StreamHelperTest, CopiesEveryByteAroundTheSizesOfItsBlocks) {
  for (std::size_t size : {std::size_t{16383}, std::size_t{16384}, std::size_t{16385},
                           std::size_t{16384 + 65536}, std::size_t{16384 + 65537}}) {
    Bytes const bytes = pattern(size);
    opc::ByteArrayInAdaptor input(bytes);
    Bytes out;
    opc::ByteArrayOutAdaptor output(out);
    EXPECT_TRUE(opc::StreamHelper::copyStreamToStream(input, output));
    EXPECT_EQ(out, bytes) << size;
  }
}

TEST(StreamHelperTest, CopiesToAStdStream) {
  Bytes const bytes = pattern(70000);
  opc::ByteArrayInAdaptor input(bytes);
  std::ostringstream output;
  EXPECT_TRUE(opc::StreamHelper::copyStreamToStream(input, output));
  EXPECT_EQ(output.str(), std::string(bytes.begin(), bytes.end()));
  EXPECT_TRUE(input.isDone());
}

TEST(StreamHelperTest, CopiesFromAStdStream) {
  Bytes const bytes = pattern(140000);
  std::istringstream input(std::string(bytes.begin(), bytes.end()));
  Bytes out;
  opc::ByteArrayOutAdaptor output(out);
  EXPECT_TRUE(opc::StreamHelper::copyStreamToStream(input, output));
  EXPECT_EQ(out, bytes);
  std::istringstream empty;
  EXPECT_TRUE(opc::StreamHelper::copyStreamToStream(empty, output));
  EXPECT_EQ(out, bytes);
}

TEST(StreamHelperTest, FailingStdOutputRaisesAndClosesTheInput) {
  RecordingInput input(pattern(10));
  NoRoomBuffer noRoom;
  std::ostream output(&noRoom);
  EXPECT_THROW_MESSAGE(opc::StreamHelper::copyStreamToStream(input, output), opc::Exception,
                       "Could not write to the output stream");
  EXPECT_EQ(input.closes, 1);
}

TEST(StreamHelperTest, FailingStdInputRaises) {
  std::istringstream input("data");
  input.setstate(std::ios_base::badbit);
  Bytes out;
  opc::ByteArrayOutAdaptor output(out);
  EXPECT_THROW_MESSAGE(opc::StreamHelper::copyStreamToStream(input, output), opc::Exception,
                       "Could not read from the input stream");
  EXPECT_TRUE(out.empty());
}

TEST(StreamHelperTest, FailuresOfEitherSidePassThroughAndTheInputIsClosed) {
  RecordingInput input(pattern(10));
  FailingOutput output;
  EXPECT_THROW_MESSAGE(opc::StreamHelper::copyStreamToStream(input, output), opc::Exception,
                       "disk full");
  EXPECT_EQ(input.closes, 1);
  RecordingInput broken(pattern(10), true);
  broken.closeFails = true;  // the first failure is the one the caller sees
  Bytes out;
  opc::ByteArrayOutAdaptor sink(out);
  EXPECT_THROW_MESSAGE(opc::StreamHelper::copyStreamToStream(broken, sink), opc::Exception,
                       "read failed");
  EXPECT_EQ(broken.closes, 1);
}

TEST(StreamHelperTest, FailingCloseAfterASuccessfulCopyRaises) {
  RecordingInput input(pattern(10));
  input.closeFails = true;
  Bytes out;
  opc::ByteArrayOutAdaptor output(out);
  EXPECT_THROW_MESSAGE(opc::StreamHelper::copyStreamToStream(input, output), opc::Exception,
                       "close failed");
  EXPECT_EQ(input.closes, 1);
  EXPECT_EQ(out, pattern(10));
}

// Gives nothing for `emptyReads` reads, then its bytes one read at a time.
class SlowStartInput : public opc::InputStream {
 public:
  SlowStartInput(Bytes bytes, int emptyReads) : bytes_(std::move(bytes)), empty_(emptyReads) {}
  void open() override {}
  std::size_t read(unsigned char* buffer, std::size_t) override {
    if (empty_ > 0) {
      --empty_;
      return 0;
    }
    buffer[0] = bytes_[next_++];
    return 1;
  }
  bool isDone() const override { return next_ == bytes_.size(); }
  void close() override {}

 private:
  Bytes bytes_;
  int empty_;
  std::size_t next_ = 0;
};

TEST(StreamHelperTest, ReadsThatGiveNothingBeforeTheEndAreProgressNotFailure) {
  SlowStartInput input(pattern(5), 1000);
  Bytes out;
  opc::ByteArrayOutAdaptor output(out);
  EXPECT_TRUE(opc::StreamHelper::copyStreamToStream(input, output));
  EXPECT_EQ(out, pattern(5));
}

TEST(StreamHelperTest, InputThatGivesNothingBeforeItsEndRaisesInsteadOfLooping) {
  StuckInput input;
  Bytes out;
  opc::ByteArrayOutAdaptor output(out);
  EXPECT_THROW_MESSAGE(opc::StreamHelper::copyStreamToStream(input, output), opc::Exception,
                       "Could not copy stream: the input stream gave no bytes before its end");
  EXPECT_EQ(input.closes, 1);
}

}  // namespace
