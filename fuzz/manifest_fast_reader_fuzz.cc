// The reader of the plain manifest form that goes without the validating parser, held to the
// parser's road: whenever read() takes a document without the parser, the parser alone must
// come to the same end with it: the same exception class and text or none, and the same tree
// (version, platform, encoding, and every leaf's kind, path, content, permissions and date).
// Documents that read() hands to the parser are its business, and filesystem_manifest's.
//
// The same reader on a stream, in a small window so that window ends fall everywhere in the
// document, is held to the parser's outcome for every document: those that it reads and those
// that it gives up on, which the parser reads again from a second stream.
//
// Input: the bytes of a manifest document.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include <opc/core/stream_adaptors.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_tree.h"
#include "fuzz_support.h"
#include "manifest_shape.h"

namespace {

using opc::vkservices::FileSystemManifestXml;
using opc::vkservices::FileSystemTree;

FileSystemManifestXml& manifest() {
  static FileSystemManifestXml instance;
  return instance;
}

// Readers whose windows are small enough for the elements of most inputs to meet their ends;
// the length of the input picks one.
FileSystemManifestXml& windowed(std::size_t size) {
  static FileSystemManifestXml small(256);
  static FileSystemManifestXml odd(317);
  static FileSystemManifestXml medium(509);
  static FileSystemManifestXml large(1024);
  FileSystemManifestXml* const all[] = {&small, &odd, &medium, &large};
  return *all[size % 4];
}

// How a read ended, and the shape of the tree it left.
template <typename Read>
std::string outcomeOf(std::vector<unsigned char> const& bytes, Read&& read) {
  FileSystemTree tree;
  std::string outcome;
  try {
    opc::ByteArrayInAdaptor source(bytes);
    read(source, tree);
    outcome = "read\n";
  } catch (std::exception const& e) {
    outcome = std::string(typeid(e).name()) + ": " + e.what() + "\n";
  }
  return outcome + opcvk_fuzz::manifestShapeOf(tree);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<unsigned char> const bytes(data, data + size);
  std::string const validated =
      outcomeOf(bytes, [](opc::InputStream& source, FileSystemTree& tree) {
        manifest().readValidating(source, tree);
      });
  auto const input = [&] { return opcvk_fuzz::printable(std::string(bytes.begin(), bytes.end())); };

  std::size_t const parsed = manifest().parserReads();
  std::string const read = outcomeOf(
      bytes, [](opc::InputStream& source, FileSystemTree& tree) { manifest().read(source, tree); });
  if (manifest().parserReads() == parsed) {
    opcvk_fuzz::check(read == validated,
                      "a document read without the parser reads the same through the parser",
                      input() + "\"\n*** without: " + read + "\n*** parser:  " + validated);
  }

  std::unique_ptr<opc::ByteArrayInAdaptor> again;
  int reopens = 0;
  std::string const streamed =
      outcomeOf(bytes, [&](opc::InputStream& source, FileSystemTree& tree) {
        windowed(size).read(source, tree, [&]() -> opc::InputStream& {
          ++reopens;
          again = std::make_unique<opc::ByteArrayInAdaptor>(bytes);
          return *again;
        });
      });
  opcvk_fuzz::check(streamed == validated && reopens <= 1,
                    "a document read as a stream, or read again by the parser when the reader "
                    "gives up, reads as the parser reads it",
                    input() + "\"\n*** stream: " + streamed + "\n*** parser: " + validated);
  return 0;
}
