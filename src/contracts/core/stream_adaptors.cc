#include <cerrno>
#include <cstring>
#include <ios>

#include <opc/core/exception.h>
#include <opc/core/stream_adaptors.h>

#include "local_file_system_ops_internal.h"

namespace opc {
namespace {

[[noreturn]] void raiseReadFailure() {
  throw Exception("Could not read from the input stream", detail::systemError(EIO));
}

[[noreturn]] void raiseWriteFailure() {
  throw Exception("Could not write to the output stream", detail::systemError(EIO));
}

// The end of the input is no failure; anything else that stopped the stream is.
void checkInput(std::istream const& stream) {
  if (stream.bad() || (stream.fail() && !stream.eof())) raiseReadFailure();
}

void checkOutput(std::ostream const& stream) {
  if (!stream) raiseWriteFailure();
}

}  // namespace

StdIStreamAdaptor::StdIStreamAdaptor(std::istream& stream) : stream_(stream) {}
StdIStreamAdaptor::~StdIStreamAdaptor() = default;

void StdIStreamAdaptor::open() {}

std::size_t StdIStreamAdaptor::read(unsigned char* buffer, std::size_t count) {
  if (count == 0) return 0;
  checkInput(stream_);
  if (stream_.eof()) return 0;
  try {
    stream_.read(reinterpret_cast<char*>(buffer), static_cast<std::streamsize>(count));
  } catch (std::ios_base::failure const&) {
    // The stream's exception mask asked for this; its state says what really happened.
  }
  checkInput(stream_);
  return static_cast<std::size_t>(stream_.gcount());
}

bool StdIStreamAdaptor::isDone() const {
  checkInput(stream_);
  if (stream_.eof()) return true;
  bool atEnd = true;
  try {
    atEnd =
        std::istream::traits_type::eq_int_type(stream_.peek(), std::istream::traits_type::eof());
  } catch (std::ios_base::failure const&) {
  }
  checkInput(stream_);
  return atEnd;
}

void StdIStreamAdaptor::close() {}

StdOStreamAdaptor::StdOStreamAdaptor(std::ostream& stream) : stream_(stream) {}
StdOStreamAdaptor::~StdOStreamAdaptor() = default;

void StdOStreamAdaptor::write(unsigned char const* buffer, std::size_t count) {
  checkOutput(stream_);
  if (count == 0) return;
  try {
    stream_.write(reinterpret_cast<char const*>(buffer), static_cast<std::streamsize>(count));
  } catch (std::ios_base::failure const&) {
    raiseWriteFailure();
  }
  checkOutput(stream_);
}

void StdOStreamAdaptor::flush() {
  checkOutput(stream_);
  try {
    stream_.flush();
  } catch (std::ios_base::failure const&) {
    raiseWriteFailure();
  }
  checkOutput(stream_);
}

void StdOStreamAdaptor::close() { flush(); }

ByteArrayInAdaptor::ByteArrayInAdaptor(std::vector<unsigned char> const& bytes) : bytes_(bytes) {}
ByteArrayInAdaptor::~ByteArrayInAdaptor() = default;

void ByteArrayInAdaptor::open() {}

std::size_t ByteArrayInAdaptor::read(unsigned char* buffer, std::size_t count) {
  if (position_ >= bytes_.size()) return 0;
  std::size_t available = bytes_.size() - position_;
  std::size_t given = count < available ? count : available;
  if (given > 0) std::memcpy(buffer, bytes_.data() + position_, given);
  position_ += given;
  return given;
}

bool ByteArrayInAdaptor::isDone() const { return position_ >= bytes_.size(); }

void ByteArrayInAdaptor::close() {}

ByteArrayOutAdaptor::ByteArrayOutAdaptor(std::vector<unsigned char>& bytes) : bytes_(bytes) {}
ByteArrayOutAdaptor::~ByteArrayOutAdaptor() = default;

void ByteArrayOutAdaptor::write(unsigned char const* buffer, std::size_t count) {
  if (count > 0) bytes_.insert(bytes_.end(), buffer, buffer + count);
}

void ByteArrayOutAdaptor::flush() {}
void ByteArrayOutAdaptor::close() {}

}  // namespace opc
