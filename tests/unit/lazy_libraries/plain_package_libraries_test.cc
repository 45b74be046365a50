// Reading, listing and extracting a package that is not encrypted needs nothing of OpenSSL or
// libzip: a program that does only that never maps libcrypto, libzip or the libraries that
// bring them.  The package is made by a child process, which may load them.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <opc/core/file_system_ops_selector.h>
#include <opc/core/stream_helper.h>
#include <opc/model/package.h>
#include <opc/vkservices/core_properties_manager.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/process_maps.h"
#include "support/temp_dir.h"

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::FileSystemManager;
using opcvk_test::isMapped;

// Whether any library that stands for OpenSSL or libzip is in the process.
std::string loadedCostlyLibrary() {
  for (char const* name :
       {"/libcrypto.so", "libvkflcrypto_openssl", "/libzip.so", "libopcmodel_zip", "/libbz2.so"}) {
    if (isMapped(name)) return name;
  }
  return std::string();
}

// The child of PlainPackageIsReadListedAndExtractedWithoutThem, started as this program with
// the variable set to a package's path, runs before any test: it makes the package (a folder
// and two files) and ends.
constexpr char kChildVariable[] = "OPCVK_TEST_PLAIN_PACKAGE_OUT";

void writeText(FileSystemManager& manager, std::u16string const& path, std::string const& text) {
  auto const entry = manager.createFile(
      path, opc::model::ContentType(u"text/plain"), static_cast<opc::Perms::Perms_tag>(0644),
      boost::posix_time::ptime(boost::posix_time::not_a_date_time));
  opc::OutputStream& out = manager.getFileOutputStream(entry);
  out.write(reinterpret_cast<unsigned char const*>(text.data()), text.size());
  out.close();
}

int runAsChild() {
  char const* out = std::getenv(kChildVariable);
  if (out == nullptr) return 0;
  std::string const path(out);
  auto package = Package::open(std::u16string(path.begin(), path.end()), PackageAccess::Create);
  {
    FileSystemManager manager(*package, opc::FileSystemOpsSelector());
    manager.createFolder(u"/docs");
    writeText(manager, u"/docs/a.txt", "alpha");
    writeText(manager, u"/b.txt", "beta");
    package->save();
  }
  package.reset();
  std::_Exit(0);
}

int const kRunAsChild = runAsChild();

std::string fileText(std::filesystem::path const& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(PlainPackageLibrariesTest, PlainPackageIsReadListedAndExtractedWithoutThem) {
  ASSERT_EQ("", loadedCostlyLibrary());
  opcvk_test::TempDir folder;
  std::filesystem::path const where(folder.path());
  std::string const path = (where / "plain.opc").string();
  std::string const command = "env " + std::string(kChildVariable) + "=" + path + " /proc/" +
                              std::to_string(getpid()) + "/exe >/dev/null 2>&1";
  int const status = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command;

  auto const package = Package::open(std::u16string(path.begin(), path.end()), PackageAccess::Read);
  FileSystemManager manager(*package, opc::FileSystemOpsSelector());
  opc::vkservices::CorePropertiesManager const properties(
      *package, opc::vkservices::CorePropertiesManager::NotDeterministic);
  EXPECT_FALSE(properties.getCoreProperties().isValid());
  EXPECT_FALSE(manager.isEncrypted());
  std::vector<std::u16string> names;
  auto const leafs = manager.getAllLeafs();
  for (auto const& entry : leafs.getEntries()) names.push_back(entry.getPathName());
  EXPECT_EQ((std::vector<std::u16string>{u"/b.txt", u"/docs/a.txt"}), names);
  auto const source = manager.getFileContentSource(manager.getEntry(u"/docs/a.txt"),
                                                   opc::vkservices::TransformMode::ApplyTransforms);
  std::stringstream content;
  ASSERT_TRUE(opc::StreamHelper::copyStreamToStream(source->getInputStream(), content));
  EXPECT_EQ("alpha", content.str());
  std::filesystem::path const out = where / "out";
  std::filesystem::create_directory(out);
  manager.extractAll(out.u16string(), opc::vkservices::RestoreMode::RestoreNothing,
                     opc::vkservices::TransformMode::ApplyTransforms,
                     opc::vkservices::ReplaceMode::ReplaceNever);
  EXPECT_EQ("alpha", fileText(out / "docs" / "a.txt"));
  EXPECT_EQ("beta", fileText(out / "b.txt"));
  EXPECT_EQ("", loadedCostlyLibrary());
}

}  // namespace
