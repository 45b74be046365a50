// Shared by the tests of an encrypted file system: packages made, saved and read again with a
// key, and the name and bytes that an encrypted file must have.
#ifndef TESTS_UNIT_FILESYSTEM_FILE_SYSTEM_MANAGER_ENCRYPTION_TEST_SUPPORT_H_
#define TESTS_UNIT_FILESYSTEM_FILE_SYSTEM_MANAGER_ENCRYPTION_TEST_SUPPORT_H_

#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <boost/date_time/gregorian/gregorian_types.hpp>

#include <foundation/crypto/digest_engine.h>
#include <foundation/crypto/encoding.h>
#include <opc/core/stream_helper.h>
#include <opc/model/part.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/file_system_manager.h>

#include "unit/encryption/encryption_test_support.h"
#include "unit/filesystem/file_system_manager_test_support.h"

namespace opcvk_test {

inline opc::vkservices::bytes fixedPortion() { return fromHex("a0a1a2a3a4a5a6a7"); }

// The IV of the n-th message (from 1) under fixedPortion().
inline opc::vkservices::bytes deterministicIV(int n) {
  static char const* const kStates[] = {"0100000000000000", "00000000000000d8", "000000000000006c",
                                        "0000000000000036"};
  return fromHex(toHex(fixedPortion()) + kStates[n - 1]);
}

// "/fsroot/" and the HMAC-SHA-256 under `key` of the UTF-16LE code units of `encoded`,
// computed with the crypto library alone.
inline std::u16string hiddenPartName(opc::vkservices::bytes const& key,
                                     std::u16string const& encoded) {
  opc::vkservices::bytes units;
  for (char16_t unit : encoded) {
    units.push_back(static_cast<unsigned char>(unit & 0xFF));
    units.push_back(static_cast<unsigned char>(unit >> 8));
  }
  foundation::crypto::DigestEngine<foundation::crypto::utils::HMACSHA256DigestAlgorithm> engine(
      key.data(), key.size());
  return u"/fsroot/" + foundation::crypto::utils::hexEncode(engine.computeDigest(units));
}

inline std::string readStream(opc::InputStream& input) {
  std::ostringstream out;
  opc::StreamHelper::copyStreamToStream(input, out);
  return out.str();
}

inline std::string partBytes(opc::model::Package& package, std::u16string const& name) {
  opc::model::Part part = package.getPart(opc::model::PartName(name));
  return readStream(part.getInputStream());
}

inline std::string contentOf(
    opc::vkservices::FileSystemManager& manager, std::u16string const& path,
    opc::vkservices::TransformMode mode = opc::vkservices::TransformMode::ApplyTransforms) {
  auto source = manager.getFileContentSource(manager.getEntry(path), mode);
  return readStream(source->getInputStream());
}

// Adds `content` at `path` with a type, permissions and a time.
inline opc::vkservices::FileSystemEntry addContent(
    opc::vkservices::FileSystemManager& manager, std::u16string const& path,
    std::string const& content, std::u16string const& type = u"application/json") {
  // The stream outlives the source: the add reads it to its end and drops the source.
  std::istringstream stream(content);
  auto source =
      std::make_unique<opc::vkservices::StreamContentSource>(stream, opc::model::ContentType(type));
  return manager.addFile(
      std::move(source), path, perms(0640),
      boost::posix_time::ptime(boost::gregorian::date(2021, 3, 4), boost::posix_time::seconds(5)));
}

// A saved package in memory holding an encrypted file system of two files, a link and an
// empty folder, written with deterministic IVs.
inline std::vector<unsigned char> encryptedPackage(opc::vkservices::bytes const& key = keyA()) {
  ManagedPackage p;
  p.manager->enableEncryption(key, opc::vkservices::IVMode::DeterministicIV, fixedPortion());
  addContent(*p.manager, u"/docs/a.json", "{\"a\": 1}");
  addContent(*p.manager, u"/b.txt", "plain words", u"text/plain");
  p.manager->createLink(u"/docs/link", u"a.json");
  p.manager->createFolder(u"/empty");
  return p.save();
}

// Every part of a package and its bytes.
inline std::map<std::u16string, std::string> allParts(opc::model::Package& package) {
  std::map<std::u16string, std::string> parts;
  for (opc::model::Part part : package.getParts()) {
    parts[part.getName().toString()] = readStream(part.getInputStream());
  }
  return parts;
}

// The part's bytes replaced by `content` in a saved package, through the model alone.
inline std::vector<unsigned char> withPart(std::vector<unsigned char> const& archive,
                                           std::u16string const& name, std::string const& content) {
  auto package = opc::model::Package::openBuffer(archive, opc::model::PackageAccess::Modify);
  opc::OutputStream& output = package->getPart(opc::model::PartName(name)).getOutputStream();
  output.write(reinterpret_cast<unsigned char const*>(content.data()), content.size());
  output.close();
  package->save();
  return package->getBuffer();
}

// `value` with the bit `bit` (from the first byte's lowest) flipped.
inline std::string flipped(std::string value, std::size_t bit) {
  value[bit / 8] = static_cast<char>(value[bit / 8] ^ (1 << (bit % 8)));
  return value;
}

}  // namespace opcvk_test

#endif  // TESTS_UNIT_FILESYSTEM_FILE_SYSTEM_MANAGER_ENCRYPTION_TEST_SUPPORT_H_
