#include "coreproperties/release_info_xml_handler.h"

#include <string>

#include <gtest/gtest.h>

#include <foundation/release_info/release_info.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/errors.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"

namespace {

using foundation::release_info::ReleaseInfo;
using opc::model::InvalidPartContent;
using opc::vkservices::CoreProperties;
using opc::vkservices::ReleaseInfoXmlHandler;
using opcvk_test::MemoryInputStream;
using opcvk_test::MemoryOutputStream;

constexpr char kConstructMessage[] = "Could not construct a ReleaseInfo from the given XML";

// A release-info text as ReleaseInfo writes it.
std::string releaseText(std::string const& family, std::string const& version) {
  return "<releaseInfo xmlns='http://schemas.opcvkservices.org/release/2026/releaseInfo'>"
         "<releaseFamily>" +
         family + "</releaseFamily>" +
         (version.empty() ? "" : "<version>" + version + "</version>") + "</releaseInfo>";
}

CoreProperties read(std::string const& text) {
  CoreProperties record;
  MemoryInputStream in(text, 100);
  ReleaseInfoXmlHandler().read(in, record);
  EXPECT_EQ(in.opens, 1);
  EXPECT_EQ(in.closes, 1);
  return record;
}

TEST(ReleaseInfoXmlHandlerTest, WritesTheVersionInfoByteForByte) {
  CoreProperties record(u"application/vnd.veltrance.a.b", u"n", ReleaseInfo());
  MemoryOutputStream out;
  ReleaseInfoXmlHandler().write(record, out);
  EXPECT_EQ(out.bytes, ReleaseInfo().getVersionInfo());
  EXPECT_EQ(out.closes, 0);
}

TEST(ReleaseInfoXmlHandlerTest, ReadsTheCompleteRecord) {
  CoreProperties const record = read(ReleaseInfo().getVersionInfo());
  EXPECT_EQ(record.getORVANEReleaseInfo(), ReleaseInfo());
  EXPECT_FALSE(record.getORVANEReleaseInfo().isLegacy());
}

TEST(ReleaseInfoXmlHandlerTest, AVersionOfThreeDotsPassesAndOfTwoFails) {
  EXPECT_EQ(read(releaseText("R2020a", "1.2.3.4")).getORVANEReleaseInfo().getORVANEVersion(),
            "1.2.3.4");
  EXPECT_EQ(read(releaseText("R2020a", "1.2.3.4.5")).getORVANERelease(), u"R2020a");
  EXPECT_THROW_MESSAGE(read(releaseText("R2020a", "1.2.3")), InvalidPartContent,
                       "ReleaseInfo is invalid");
}

TEST(ReleaseInfoXmlHandlerTest, ARecordWithoutVersionIsInvalid) {
  EXPECT_THROW_MESSAGE(read(releaseText("R2020a", "")), InvalidPartContent,
                       "ReleaseInfo is invalid");
}

TEST(ReleaseInfoXmlHandlerTest, TextThatReleaseInfoRefusesCannotConstructOne) {
  for (std::string const& text :
       {std::string(), std::string("<releaseInfo/>"), std::string("not xml"),
        std::string("<!DOCTYPE releaseInfo []>") + releaseText("R2020a", "1.2.3.4"),
        releaseText("R2020a", "1.2.3.x")}) {
    EXPECT_THROW_MESSAGE(read(text), InvalidPartContent, kConstructMessage) << text;
  }
}

TEST(ReleaseInfoXmlHandlerTest, APartLargerThanReleaseInfoReadsIsNotReadToItsEnd) {
  std::string const text =
      releaseText("R2020a", "1.2.3.4") + std::string(std::size_t{1} << 20, ' ');
  CoreProperties record;
  MemoryInputStream in(text);
  EXPECT_THROW_MESSAGE(ReleaseInfoXmlHandler().read(in, record), InvalidPartContent,
                       kConstructMessage);
  EXPECT_EQ(in.position(), ReleaseInfo::kMaxVersionInfoSize + 1);
  EXPECT_EQ(in.closes, 1);
}

TEST(ReleaseInfoXmlHandlerTest, AFamilyOfTheWrongFormPassesAsTheSettersError) {
  EXPECT_THROW_MESSAGE(read(releaseText("r2020a", "1.2.3.4")),
                       opc::vkservices::InvalidCorePropertyValue,
                       "ORVANE release must have the format: R<four-digit-year>(a|b)");
}

TEST(ReleaseInfoXmlHandlerTest, AFailingStreamPassesThroughAndIsClosed) {
  CoreProperties record;
  MemoryInputStream in(ReleaseInfo().getVersionInfo(), 16);
  in.failAfter(40);
  EXPECT_THROW_MESSAGE(ReleaseInfoXmlHandler().read(in, record), opc::Exception,
                       "injected read failure");
  EXPECT_EQ(in.closes, 1);
}

}  // namespace
