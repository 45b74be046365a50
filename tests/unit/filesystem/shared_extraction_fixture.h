// The package and the place on disk that the tests of SharedExtraction share: files, folders
// and links made in a package in memory, saved and opened again for reading as the tool does.
#ifndef TESTS_UNIT_FILESYSTEM_SHARED_EXTRACTION_FIXTURE_H_
#define TESTS_UNIT_FILESYSTEM_SHARED_EXTRACTION_FIXTURE_H_

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <opc/core/file_system_ops_selector.h>
#include <opc/model/package.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/temp_dir.h"
#include "unit/filesystem/file_system_manager_test_support.h"

namespace opcvk_test {

constexpr opc::vkservices::RestoreMode kRestore =
    opc::vkservices::RestoreMode::RestoreTimeAndPermissions;
constexpr opc::vkservices::ReplaceMode kNever = opc::vkservices::ReplaceMode::ReplaceNever;

class SharedExtractionTest : public ::testing::Test {
 protected:
  SharedExtractionTest()
      : package_(opc::model::Package::openBuffer({}, opc::model::PackageAccess::Create)),
        manager_(std::make_unique<opc::vkservices::FileSystemManager>(
            *package_, opc::FileSystemOpsSelector())) {}

  opc::vkservices::FileSystemEntry addFile(std::u16string const& path, std::string const& content,
                                           unsigned permissions = 0640) {
    boost::posix_time::ptime const time(
        boost::gregorian::date(2020, 1, 2),
        boost::posix_time::seconds(permissions) + boost::posix_time::microseconds(path.size()));
    opc::vkservices::FileSystemEntry const entry =
        manager_->createFile(path, opcvk_test::textType(), opcvk_test::perms(permissions), time);
    opc::OutputStream& output = manager_->getFileOutputStream(entry);
    output.write(reinterpret_cast<unsigned char const*>(content.data()), content.size());
    output.close();
    return entry;
  }

  // Saves what was made and opens it again for reading, as the tool does, after `alter` had
  // its say on the saved bytes.
  void reopen(std::function<void(std::vector<unsigned char>&)> const& alter = {}) {
    package_->save();
    manager_.reset();
    std::vector<unsigned char> bytes = package_->getBuffer();
    if (alter) alter(bytes);
    package_ = opc::model::Package::openBuffer(std::move(bytes), opc::model::PackageAccess::Read);
    manager_ = std::make_unique<opc::vkservices::FileSystemManager>(*package_,
                                                                    opc::FileSystemOpsSelector());
  }

  // A tree of `files` files in folders of a few levels, with empty folders and links.
  void makeTree(std::size_t files) {
    for (std::size_t i = 0; i < files; ++i) {
      std::string const name = "/d" + std::to_string(i % 13) + "/e" + std::to_string(i % 5) + "/f" +
                               std::to_string(i) + (i % 4 == 0 ? ".bin" : ".txt");
      addFile(u16(name), std::string(i % 97 * 31, static_cast<char>('a' + i % 26)) + name,
              0600 + static_cast<unsigned>(i % 64));
    }
    manager_->createFolder(u"/d3/empty");
    manager_->createFolder(u"/zz/empty");
    manager_->createLink(u"/d1/abs", u"/d2/e2/f2.txt");
    manager_->createLink(u"/d4/e1/rel", u"../../d5");
    manager_->createLink(u"/top", u"/");
    reopen();
  }

  std::string dest(std::string const& name) const { return temp_ / name; }

  // The class and message of what `extract` raises, or "" for none.
  template <typename Extract>
  std::string failureOf(Extract&& extract) {
    try {
      extract();
    } catch (std::exception const& e) {
      return std::string(typeid(e).name()) + ": " + e.what();
    }
    return "";
  }

  TempDir temp_;
  std::unique_ptr<opc::model::Package> package_;
  std::unique_ptr<opc::vkservices::FileSystemManager> manager_;
};

}  // namespace opcvk_test

#endif  // TESTS_UNIT_FILESYSTEM_SHARED_EXTRACTION_FIXTURE_H_
