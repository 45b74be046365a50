#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <xercesc/util/PlatformUtils.hpp>

#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>

namespace {

using opc::model::XercesGuard;
using opc::model::XercesHelper;
using opc::model::XercesRetainer;

// The XML library is usable exactly when its memory manager is set.
bool xmlLibraryInitialised() { return xercesc::XMLPlatformUtils::fgMemoryManager != nullptr; }

TEST(XercesGuardTest, InitialisesForItsLifetime) {
  ASSERT_FALSE(xmlLibraryInitialised());
  {
    XercesGuard guard;
    EXPECT_TRUE(xmlLibraryInitialised());
    EXPECT_NE(nullptr, XercesHelper::createDocument());
  }
  EXPECT_FALSE(xmlLibraryInitialised());
}

TEST(XercesGuardTest, NestedGuardsKeepTheLibraryUntilTheLastGoes) {
  auto outer = std::make_unique<XercesGuard>();
  {
    XercesGuard inner;
    XercesGuard copy(inner);
    copy = inner;
  }
  EXPECT_TRUE(xmlLibraryInitialised());
  auto document = XercesHelper::createDocument();
  EXPECT_NE(nullptr, XercesHelper::appendElementNS(document.get(), u"", u"still"));
  document.reset();
  outer.reset();
  EXPECT_FALSE(xmlLibraryInitialised());
}

TEST(XercesGuardTest, GuardsOnSeveralThreadsAtOnce) {
  XercesGuard keep;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 200; ++i) {
        XercesGuard guard;
        auto document = XercesHelper::createDocument();
        XercesHelper::appendElementNS(document.get(), u"urn:t", u"root");
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_TRUE(xmlLibraryInitialised());
}

TEST(XercesGuardTest, LastGuardsOnSeveralThreadsShutDownCleanly) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 50; ++i) {
        XercesGuard guard;
        EXPECT_TRUE(xmlLibraryInitialised());
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_FALSE(xmlLibraryInitialised());
}

TEST(XercesRetainerTest, InitialisesNothingByItself) {
  {
    XercesRetainer retainer;
    EXPECT_FALSE(xmlLibraryInitialised());
  }
  EXPECT_FALSE(xmlLibraryInitialised());
}

TEST(XercesRetainerTest, KeepsTheLibraryFromTheFirstGuardUntilItGoes) {
  auto retainer = std::make_unique<XercesRetainer>();
  { XercesGuard guard; }
  EXPECT_TRUE(xmlLibraryInitialised());
  {
    XercesGuard again;
    EXPECT_NE(nullptr, XercesHelper::createDocument());
  }
  EXPECT_TRUE(xmlLibraryInitialised());
  retainer.reset();
  EXPECT_FALSE(xmlLibraryInitialised());
}

TEST(XercesRetainerTest, LastOfSeveralRetainersGivesTheLibraryBack) {
  auto first = std::make_unique<XercesRetainer>();
  auto second = std::make_unique<XercesRetainer>();
  auto guard = std::make_unique<XercesGuard>();
  first.reset();
  guard.reset();
  EXPECT_TRUE(xmlLibraryInitialised());
  second.reset();
  EXPECT_FALSE(xmlLibraryInitialised());
}

}  // namespace
