// An outside program, built against the installed library only and including only the
// umbrella headers of the library and of its crypto library.  It checks the exported data
// and that an exception of the library's family, whose constructors, virtual table and type
// information live in the library, is caught both by its opc::Exception base and by its
// exact class; and that the crypto library, reached through the library's link interface,
// encrypts and reports its failures across the boundary; and that a data manager of the
// library works over a package of the model; and that the model's XML wrappers, in a library
// of their own, write a document.  Prints one line and exits 0 on
// success; names the failure and exits 1 otherwise.
#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include <foundation/crypto.h>
#include <opc/core/stream_adaptors.h>
#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/vkservices.h>

namespace {

int fail(std::string const& what) {
  std::cerr << "consumer: " << what << "\n";
  return 1;
}

void throwNotFound() {
  throw opc::vkservices::FileSystemEntryNotFound("File system entry does not exist: /a/b");
}

}  // namespace

int main() {
  if (std::strlen(opcvkservices_version) < 7 || std::strlen(opcvkservices_build_date) != 11) {
    return fail("unexpected version data");
  }

  try {
    throwNotFound();
    return fail("nothing was thrown");
  } catch (opc::Exception const& e) {
    if (std::strcmp(e.what(), "File system entry does not exist: /a/b") != 0) {
      return fail(std::string("caught by base with the wrong text: ") + e.what());
    }
    if (e.code()) return fail("a message-only exception reported a code");
    if (dynamic_cast<opc::vkservices::FileSystemEntryNotFound const*>(&e) == nullptr) {
      return fail("caught by base but not recognised as FileSystemEntryNotFound");
    }
  }

  try {
    throwNotFound();
    return fail("nothing was thrown");
  } catch (opc::vkservices::FileSystemEntryNotFound const& e) {
    if (std::strcmp(e.what(), "File system entry does not exist: /a/b") != 0) {
      return fail(std::string("caught by class with the wrong text: ") + e.what());
    }
  } catch (std::exception const& e) {
    return fail(std::string("not caught by its exact class: ") + e.what());
  }

  // A class with a code hands back the code it was given, comparable with the generic
  // condition.
  try {
    throw opc::vkservices::CouldNotCreateFolder(
        "Could not create folder: /out: File exists",
        boost::system::errc::make_error_code(boost::system::errc::file_exists));
  } catch (opc::Exception const& e) {
    if (e.code() != boost::system::errc::file_exists) return fail("the code was not kept");
  }

  // The crypto library: a round trip, and a refusal raised inside it and caught here by
  // its base std::runtime_error and by its exact class.
  namespace crypto = foundation::crypto;
  crypto::CryptoEngine const engine(std::make_shared<crypto::cryptopp::CryptoProvider>());
  auto const key = engine.createAES256Key(crypto::bytes(32, 7));
  crypto::AESGCMStreamEncryptor encryptor(key, crypto::bytes(16, 1));
  unsigned char data[3] = {'a', 'b', 'c'};
  encryptor.update(data, sizeof data, data);
  crypto::bytes const tag = encryptor.finish();
  crypto::AESGCMStreamDecryptor decryptor(key, crypto::bytes(16, 1));
  decryptor.update(data, sizeof data, data);
  decryptor.finish(tag);
  if (data[0] != 'a' || data[2] != 'c') return fail("the crypto round trip changed the data");
  try {
    engine.createAES256Key(crypto::bytes(3, 0));
    return fail("a short key was accepted");
  } catch (std::runtime_error const& e) {
    if (dynamic_cast<crypto::utils::Exception const*>(&e) == nullptr) {
      return fail(std::string("the crypto failure is not a utils::Exception: ") + e.what());
    }
  }

  // The core properties record, over the release-information library, refuses a bad value
  // with the library's exception.
  opc::vkservices::CoreProperties properties;
  try {
    properties.setContentType(u"text/plain");
    return fail("a bad content type was accepted");
  } catch (opc::vkservices::InvalidCorePropertyValue const&) {
  }
  properties.setORVANEReleaseInfo(foundation::release_info::ReleaseInfo());
  if (properties.getORVANERelease().empty()) return fail("the running release has no family");

  // A manager of the library over a package of the model, and an exception it raises
  // caught by its exact class.
  auto package = opc::model::Package::openBuffer({}, opc::model::PackageAccess::Create);
  {
    opc::vkservices::CipherDataManager cipherData(*package);
    opc::model::RelationshipSelector const selector(
        opc::model::URI(u"/"), opc::model::RelationshipSelectorType::ByType, u"urn:consumer");
    cipherData.addCipherEntry(selector, {1}, cipherData.generateRandomSalt(),
                              cipherData.generateRandomInitVector());
    if (cipherData.getCipherEntry(selector).getSalt().size() != 32) {
      return fail("the cipher entry did not keep its salt");
    }
    try {
      cipherData.deleteCipherEntry(opc::model::RelationshipSelector(
          opc::model::URI(u"/"), opc::model::RelationshipSelectorType::ByID, u"rId1"));
      return fail("an unknown cipher entry was deleted");
    } catch (opc::vkservices::CipherEntryNotFound const&) {
    }
  }

  // The model's XML wrappers, from their own library.
  {
    opc::model::XercesGuard const guard;
    auto const document = opc::model::XercesHelper::createDocument();
    opc::model::XercesHelper::setElementAttribute(
        opc::model::XercesHelper::appendElementNS(document.get(), u"urn:consumer", u"root"), u"a",
        u"b");
    auto const writer = opc::model::XercesHelper::createPrettyPrintingWriter();
    std::ostringstream text;
    {
      opc::StdOStreamAdaptor target(text);
      opc::model::XercesHelper::writeDocumentToStream(writer.get(), document.get(), target);
    }
    if (text.str().find("<root xmlns=\"urn:consumer\" a=\"b\"/>") == std::string::npos) {
      return fail("the XML wrappers wrote " + text.str());
    }
  }

  std::cout << "consumer: opcvkservices " << opcvkservices_version << " built "
            << opcvkservices_build_date
            << ": exceptions caught by base and by class, crypto round trip, cipher data, XML "
               "wrappers: ok\n";
  return 0;
}
