// Reproducible archives: the same items give the same bytes whatever the time of the save,
// the local time zone and the number of compression threads.
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "support/expect_exception.h"
#include "zip/zip_archive.h"

namespace {

using opc::interfaces::CompressionType;
using opc::model::detail::ZipContentReader;
using opc::model::detail::ZipWriter;
using Bytes = std::vector<unsigned char>;

ZipContentReader readerOf(std::string content) {
  auto state = std::make_shared<std::pair<std::string, std::size_t>>(std::move(content), 0);
  return [state](unsigned char* buffer, std::size_t size) {
    std::size_t const n = std::min(size, state->first.size() - state->second);
    std::copy_n(state->first.data() + state->second, n, buffer);
    state->second += n;
    return n;
  };
}

// Compressible text that is not a plain repetition.
std::string prose(std::size_t size) {
  std::string result;
  for (std::uint64_t i = 0; result.size() < size; ++i) {
    result += "line " + std::to_string(i * 2654435761u % 100000) + " of the text\n";
  }
  result.resize(size);
  return result;
}

// Sets TZ for the life of the object and puts the former value back.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(char const* zone) {
    char const* old = std::getenv("TZ");
    if (old != nullptr) old_ = old;
    hadOld_ = old != nullptr;
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~ScopedTimeZone() {
    if (hadOld_) {
      ::setenv("TZ", old_.c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }

 private:
  std::string old_;
  bool hadOld_ = false;
};

// Writes `items` (name, content, compression) into memory.
Bytes write(std::vector<std::pair<std::string, std::string>> const& items, unsigned threads,
            std::int64_t const* fixedTime,
            CompressionType compression = CompressionType::DeflateContent) {
  Bytes out;
  auto writer = ZipWriter::toBuffer(out, threads);
  if (fixedTime != nullptr) writer->makeReproducible(*fixedTime);
  for (auto const& [name, content] : items) {
    writer->add(name, compression, content.size(), readerOf(content));
  }
  writer->commit();
  return out;
}

std::uint16_t get16(Bytes const& bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes.at(at) | bytes.at(at + 1) << 8);
}

std::uint32_t get32(Bytes const& bytes, std::size_t at) {
  return get16(bytes, at) | static_cast<std::uint32_t>(get16(bytes, at + 2)) << 16;
}

std::string dosText(Bytes const& bytes, std::size_t at) {
  std::uint16_t const time = get16(bytes, at);
  std::uint16_t const date = get16(bytes, at + 2);
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", (date >> 9) + 1980,
                (date >> 5) & 15, date & 31, time >> 11, (time >> 5) & 63, (time & 31) * 2);
  return text;
}

// "YYYY-MM-DD hh:mm:ss" of every DOS time and date in the archive, of each item's central
// directory record and then its local header, walked from the end record (no ZIP64, no
// archive comment, as the writer makes small archives).
std::vector<std::string> headerTimes(Bytes const& bytes) {
  std::size_t const end = bytes.size() - 22;
  EXPECT_EQ(get32(bytes, end), 0x06054b50u);
  std::size_t at = get32(bytes, end + 16);
  std::vector<std::string> times;
  for (std::uint16_t i = 0; i < get16(bytes, end + 10); ++i) {
    EXPECT_EQ(get32(bytes, at), 0x02014b50u);
    times.push_back(dosText(bytes, at + 12));
    std::size_t const local = get32(bytes, at + 42);
    EXPECT_EQ(get32(bytes, local), 0x04034b50u);
    times.push_back(dosText(bytes, local + 10));
    at += 46 + get16(bytes, at + 28) + get16(bytes, at + 30) + get16(bytes, at + 32);
  }
  return times;
}

TEST(ZipWriterReproducibleTest, EveryHeaderCarriesTheFixedTimeAsUTCInAnyZone) {
  std::int64_t const time = 1700000001;  // 2023-11-14 22:13:21 UTC
  for (char const* zone : {"UTC", "America/New_York", "Pacific/Kiritimati", "Asia/Kolkata"}) {
    ScopedTimeZone const scoped(zone);
    std::vector<std::string> const times =
        headerTimes(write({{"a.txt", "alpha"}, {"b/c.txt", "beta"}}, 1, &time));
    EXPECT_EQ(times, std::vector<std::string>(4, "2023-11-14 22:13:20")) << zone;
  }
}

TEST(ZipWriterReproducibleTest, TimesAreHeldToWhatDosDatesCarry) {
  struct Case {
    std::int64_t seconds;
    char const* expected;
  };
  for (Case const& c :
       {Case{0, "1980-01-01 00:00:00"}, Case{-5000000000, "1980-01-01 00:00:00"},
        Case{315532800, "1980-01-01 00:00:00"}, Case{951782399, "2000-02-28 23:59:58"},
        Case{951782400 + 86399, "2000-02-29 23:59:58"}, Case{4354819199, "2107-12-31 23:59:58"},
        Case{99999999999, "2107-12-31 23:59:58"}}) {
    ScopedTimeZone const scoped("UTC");
    EXPECT_EQ(headerTimes(write({{"a", "x"}}, 1, &c.seconds)),
              std::vector<std::string>(2, c.expected))
        << c.seconds;
  }
}

TEST(ZipWriterReproducibleTest, BytesDoNotDependOnTheNumberOfThreads) {
  // Just past the size from which content is cut into chunks.
  std::vector<std::pair<std::string, std::string>> const items = {
      {"big.txt", prose((std::size_t{4} << 20) + 100)}, {"small.txt", prose(1000)}};
  std::int64_t const time = 0;
  Bytes const one = write(items, 1, &time);
  EXPECT_EQ(write(items, 3, &time), one);
  // Without it, one thread deflates large content in one piece and several in chunks: this
  // is what the option pins.
  ScopedTimeZone const scoped("UTC");
  Bytes const plainOne = write(items, 1, nullptr);
  Bytes const plainTwo = write(items, 2, nullptr);
  EXPECT_NE(plainOne.size(), plainTwo.size());
}

TEST(ZipWriterReproducibleTest, RawCopiesCarryTheFixedTimeToo) {
  Bytes const source = write({{"a", prose(5000)}}, 1, nullptr);
  auto archive = opc::model::detail::ZipArchive::open(
      opc::model::detail::openBufferSource(std::make_shared<Bytes const>(source)),
      opc::model::PackageLimits());
  Bytes out;
  std::int64_t const time = 1234567890;  // 2009-02-13 23:31:30 UTC
  {
    ScopedTimeZone const scoped("Europe/Paris");
    auto writer = ZipWriter::toBuffer(out, 1);
    writer->makeReproducible(time);
    writer->addRaw("a", *archive, archive->entries().front());
    writer->commit();
  }
  EXPECT_EQ(headerTimes(out), std::vector<std::string>(2, "2009-02-13 23:31:30"));
}

TEST(ZipWriterReproducibleTest, ATimeThatTheLocalZoneSkipsIsRefused) {
  ScopedTimeZone const scoped("Europe/Berlin");
  // 2021-03-28 02:30:00: Berlin's clocks went from 02:00 straight to 03:00.
  Bytes out;
  auto writer = ZipWriter::toBuffer(out, 1);
  EXPECT_THROW_MESSAGE(writer->makeReproducible(1616898600), opc::model::CouldNotSavePackage,
                       "Could not save package to memory: the reproducible time 2021-03-28 "
                       "02:30:00 UTC cannot be written in the local time zone, which skips it "
                       "for daylight saving time (run with TZ=UTC)");
}

TEST(ZipWriterReproducibleTest, APackageSavedWithTheOptionHasTheFixedTime) {
  ScopedTimeZone const scoped("America/New_York");
  opc::model::PackageOptions options;
  options.reproducibleTime = 1000000000;  // 2001-09-09 01:46:40 UTC
  options.compressionThreads = 2;
  auto package = opc::model::Package::openBuffer({}, opc::model::PackageAccess::Create, options);
  opc::model::Part part =
      package->createPart(opc::model::PartName(u"/a.txt"), opc::model::ContentType(u"text/plain"),
                          opc::interfaces::StandardPartInfo(CompressionType::DeflateContent, 0));
  std::string const content = prose((std::size_t{4} << 20) + 100);
  part.getOutputStream().write(reinterpret_cast<unsigned char const*>(content.data()),
                               content.size());
  package->save();
  Bytes const twoThreads = package->getBuffer();
  // The content types item and the part, each in its central record and local header.
  EXPECT_EQ(headerTimes(twoThreads), std::vector<std::string>(4, "2001-09-09 01:46:40"));

  options.compressionThreads = 1;
  auto again = opc::model::Package::openBuffer({}, opc::model::PackageAccess::Create, options);
  opc::model::Part same =
      again->createPart(opc::model::PartName(u"/a.txt"), opc::model::ContentType(u"text/plain"),
                        opc::interfaces::StandardPartInfo(CompressionType::DeflateContent, 0));
  same.getOutputStream().write(reinterpret_cast<unsigned char const*>(content.data()),
                               content.size());
  again->save();
  EXPECT_EQ(again->getBuffer(), twoThreads);
}

}  // namespace
