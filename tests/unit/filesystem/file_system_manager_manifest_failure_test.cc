// A manifest that cannot be written whole leaves no trace: neither the save that failed nor a
// later one gives the package a part of it, and the next save writes it complete.
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>
#include <opc/model/package.h>
#include <opc/model/package_options.h>
#include <opc/vkservices/file_system_manager.h>

#include "filesystem/file_system_manifest_xml_names.h"
#include "support/expect_exception.h"
#include "support/scoped_environment.h"

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PartName;
using opc::vkservices::FileSystemManager;

std::u16string const kManifestPart = u"/metadata/filesystemManifest.xml";
// Enough folders for a manifest past the first flush of the parts' shared file.
constexpr int kFolders = 4000;

std::u16string folderName(int i) {
  return u"/a-folder-with-a-rather-long-name-" + opc::toString(std::to_string(i));
}

std::size_t manifestRelationships(Package const& package) {
  auto relationships =
      package.getRelationshipsByType(opc::vkservices::detail::kManifestRelationshipType.str());
  return static_cast<std::size_t>(std::distance(relationships.begin(), relationships.end()));
}

TEST(FileSystemManagerManifestFailureTest, FailedFirstManifestLeavesNoPartAndTheNextSaveIsWhole) {
  // No byte of content may stay in memory, and the shared file has nowhere to go: the
  // manifest fails while it is being written into its part.
  opc::model::PackageOptions options;
  options.spoolBudget = 0;
  auto package = Package::openBuffer({}, PackageAccess::Create, options);
  auto manager = std::make_unique<FileSystemManager>(*package, opc::FileSystemOpsSelector());
  for (int i = 0; i < kFolders; ++i) manager->createFolder(folderName(i));
  {
    opcvk_test::ScopedEnvironment const tmp("TMPDIR", "/nonexistent/opcvk-test");
    EXPECT_THROW_MESSAGE(package->save(), opc::Exception,
                         "Could not create the shared temporary file of the parts: No such file "
                         "or directory");
  }
  EXPECT_FALSE(package->hasPart(PartName(kManifestPart)));
  EXPECT_EQ(manifestRelationships(*package), 0u);

  package->save();
  auto reopened = Package::openBuffer(package->getBuffer(), PackageAccess::Read);
  ASSERT_EQ(manifestRelationships(*reopened), 1u);
  FileSystemManager reader(*reopened, opc::FileSystemOpsSelector());
  for (int i = 0; i < kFolders; ++i) ASSERT_TRUE(reader.hasEntry(folderName(i))) << i;
}

}  // namespace
