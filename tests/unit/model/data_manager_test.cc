#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/local_file_system_ops.h>
#include <opc/model/data_manager.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/xml/xml_exceptions.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using interfaces::StandardPartInfo;

// A manager that records what the package asks of it and writes one part when saved.
class RecordingManager : public DataManager {
 public:
  RecordingManager(Package& package, std::string name, std::vector<std::string>& log,
                   bool autoLoad = false)
      : DataManager(package, autoLoad), name_(std::move(name)), log_(log) {}

  void change() { markAsDirty(); }
  void ensureLoaded() { load(); }
  Package& package() const { return getPackage(); }

  int failLoads = 0;
  bool failSave = false;

 private:
  void doLoad() override {
    log_.push_back(name_ + ".load");
    if (failLoads > 0) {
      --failLoads;
      throw InvalidPartContent(name_ + " could not load");
    }
  }
  void doSave() override {
    log_.push_back(name_ + ".save");
    if (failSave) throw InvalidPartContent(name_ + " could not save");
    PartName const part(u"/" + opcvk_test::u16(name_) + u".xml");
    if (!getPackage().hasPart(part)) {
      getPackage().createPart(part, ContentType(u"application/xml"),
                              StandardPartInfo(CompressionType::DeflateMetadata, 0));
    }
    opcvk_test::writeAll(getPackage().getPart(part).getOutputStream(), "<" + name_ + "/>");
  }
  std::vector<std::u16string> doGetManagedPartNames() const override {
    return {u"/" + opcvk_test::u16(name_) + u".xml"};
  }
  std::vector<std::u16string> doGetManagedRelationshipTypes() const override {
    return {u"urn:" + opcvk_test::u16(name_)};
  }

  std::string name_;
  std::vector<std::string>& log_;
};

TEST(DataManagerTest, LoadRunsOnceAndAFailedLoadIsTriedAgain) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  std::vector<std::string> log;
  RecordingManager manager(*package, "m", log);
  EXPECT_EQ(&manager.package(), package.get());
  EXPECT_TRUE(log.empty());
  manager.failLoads = 1;
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPartContent>([&] { manager.ensureLoaded(); },
                                                                "m could not load"));
  manager.ensureLoaded();
  manager.ensureLoaded();
  EXPECT_EQ(log, (std::vector<std::string>{"m.load", "m.load"}));
}

TEST(DataManagerTest, SaveRunsDirtyManagersInOrderOfRegistrationThenClearsThem) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  std::vector<std::string> log;
  RecordingManager second(*package, "b", log);
  RecordingManager first(*package, "a", log);
  RecordingManager clean(*package, "c", log);
  first.change();
  second.change();
  package->save();
  EXPECT_EQ(log, (std::vector<std::string>{"b.save", "a.save"}));
  auto reread = Package::openBuffer(package->getBuffer(), PackageAccess::Read);
  EXPECT_EQ(opcvk_test::readAll(reread->getPart(PartName(u"/a.xml")).getInputStream()), "<a/>");
  log.clear();
  package->save();
  EXPECT_TRUE(log.empty());
}

TEST(DataManagerTest, DestroyedManagerIsNoLongerSaved) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  std::vector<std::string> log;
  {
    RecordingManager gone(*package, "gone", log);
    gone.change();
  }
  RecordingManager kept(*package, "kept", log);
  kept.change();
  package->save();
  EXPECT_EQ(log, (std::vector<std::string>{"kept.save"}));
}

TEST(DataManagerTest, AutoLoadManagerIsLoadedBeforeItSaves) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  std::vector<std::string> log;
  RecordingManager manager(*package, "m", log, true);
  EXPECT_TRUE(log.empty());
  manager.change();
  package->save();
  EXPECT_EQ(log, (std::vector<std::string>{"m.load", "m.save"}));
}

TEST(DataManagerTest, FailingSaveLeavesTheFileIntactAndTheManagerDirty) {
  opcvk_test::TempDir dir;
  std::string const file = dir / "p.zip";
  {
    auto package = Package::open(opcvk_test::u16(file), PackageAccess::Create);
    package->createPart(PartName(u"/x.xml"), ContentType(u"application/xml"),
                        StandardPartInfo(CompressionType::DeflateMetadata, 0));
    package->save();
  }
  opcvk_test::Bytes const before = opcvk_test::fileBytes(file);
  auto package = Package::open(opcvk_test::u16(file), PackageAccess::Modify);
  std::vector<std::string> log;
  RecordingManager good(*package, "good", log);
  RecordingManager bad(*package, "bad", log);
  good.change();
  bad.change();
  bad.failSave = true;
  // The manager's own exception reaches the caller unchanged.
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPartContent>([&] { package->save(); },
                                                                "bad could not save"));
  EXPECT_EQ(opcvk_test::fileBytes(file), before);
  std::vector<std::u16string> files;
  boost::system::error_code code;
  opc::LocalFileSystemOps::getShared()->getFiles(opcvk_test::u16(dir.path()), files, false, code);
  EXPECT_EQ(files.size(), 1u);
  bad.failSave = false;
  log.clear();
  package->save();
  EXPECT_EQ(log, (std::vector<std::string>{"good.save", "bad.save"}));
  EXPECT_NE(opcvk_test::fileBytes(file), before);
}

TEST(DataManagerTest, GivesItsPartsAndRelationshipTypesToAnyCaller) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  std::vector<std::string> log;
  RecordingManager manager(*package, "m", log);
  DataManager const& base = manager;
  EXPECT_EQ(base.getManagedPartNames(), std::vector<std::u16string>{u"/m.xml"});
  EXPECT_EQ(base.getManagedRelationshipTypes(), std::vector<std::u16string>{u"urn:m"});
}

}  // namespace
}  // namespace model
}  // namespace opc
