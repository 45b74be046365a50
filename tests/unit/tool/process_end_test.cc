#include "process_end.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace {

using opcvk_test::TempDir;

constexpr int kReturned = 3;

std::string contentOf(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// Writes through both the C stream and std::cout into `path`, without a newline or a flush of
// its own, and ends the process as a finished command does; a build that keeps its teardown
// returns, and the child leaves with kReturned.
void finishCommandWritingTo(std::string const& path) {
  if (std::freopen(path.c_str(), "w", stdout) == nullptr) std::_Exit(1);
  std::printf("result line");
  std::cout << " and more";
  opcvk::endProcessWithoutTeardown();
  std::exit(kReturned);
}

TEST(ProcessEndTest, EndsWithSuccessAfterFlushingStandardOutput) {
  TempDir dir;
  std::string const path = dir.path() + "/stdout.txt";
  int const expected = opcvk::processEndSkipsTeardown() ? 0 : kReturned;
  EXPECT_EXIT(finishCommandWritingTo(path), testing::ExitedWithCode(expected), "");
  EXPECT_EQ(contentOf(path), "result line and more");
}

TEST(ProcessEndTest, ReturnsWhenStandardOutputCannotBeFlushed) {
  if (!opcvk::processEndSkipsTeardown()) GTEST_SKIP() << "a leak-checked build always returns";
  // /dev/full takes the open and refuses every write with ENOSPC.
  EXPECT_EXIT(finishCommandWritingTo("/dev/full"), testing::ExitedWithCode(kReturned), "");
}

}  // namespace
